// Connects to the configured server (NOMZUB_SERVER) and disconnects, printing both results.
#include <cstdio>

#include "NOMSOIUtility.h"

int main() {
  NOMSOIUtility utility;
  const nomsoi::BOOL connected = utility.ConnectServer("u", "p", "prj", "");
  const nomsoi::BOOL disconnected = utility.DisconnectServer();
  std::printf("ConnectServer=%d DisconnectServer=%d\n", connected, disconnected);
  return 0;
}
