// Messages on standard error.
#include <unistd.h>

#include <cstdio>

#include "host_internal.h"
#include "platform/fd.h"

namespace nomsoi {

void WriteToStderr(const std::string& text) {
  nomplat::WriteAll(STDERR_FILENO, text.data(), text.size());
}

int Refuse(const std::string& command, const std::string& message) {
  std::fprintf(stderr, "nomsoi %s: %s\n", command.c_str(), message.c_str());
  return kExitUsage;
}

}  // namespace nomsoi
