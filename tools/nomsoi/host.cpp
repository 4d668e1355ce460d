// The exit status of nomsoi's commands and their refusals.
#include "host.h"

#include <cstdio>

namespace nomsoi {

void Inform(const std::string& text) {
  if (CurrentVerbosity() == Verbosity::kQuiet) return;
  std::fputs(text.c_str(), stderr);
}

int ExitForResult(const std::string& command, HRESULT hr) {
  if (hr >= 0) return kExitOk;
  std::fprintf(stderr, "nomsoi %s: failed with result 0x%08X\n", command.c_str(),
               static_cast<unsigned>(hr));
  return kExitFailed;
}

int Refuse(const std::string& command, const std::string& message) {
  std::fprintf(stderr, "nomsoi %s: %s\n", command.c_str(), message.c_str());
  return kExitUsage;
}

}  // namespace nomsoi
