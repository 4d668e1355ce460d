// What every command of nomsoi shares: its shape, the exit status, and how it refuses.
#ifndef NOM_TOOLS_NOMSOI_HOST_H_
#define NOM_TOOLS_NOMSOI_HOST_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "NOMSOITypes.h"

namespace nomsoi {

// Exit status of the host: every referenced file is in the output; a copy or save failed, the
// module failed for another cause or the server refused the connection; the command line or an
// input was refused before the module ran. (3, references missing, is in outcome.h.)
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// One command of the host: its parsed sub-application and what runs it. run returns the exit
// status.
struct Command {
  CLI::App* app;
  std::function<int()> run;
};

// Exit status for a result of the module: kExitOk when hr is not negative, else kExitFailed after
// printing the code as 0x%08X on standard error.
int ExitForResult(const std::string& command, HRESULT hr);
// text between single quotes, as messages name paths and values.
inline std::string Quoted(const std::string& text) { return "'" + text + "'"; }
// Writes all of text to standard error (no buffering: it may interleave with log records).
void WriteToStderr(const std::string& text);
// Prints "nomsoi <command>: <message>" on standard error and returns kExitUsage.
int Refuse(const std::string& command, const std::string& message);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_HOST_H_
