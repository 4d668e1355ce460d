// What every command of nomsoi shares: its shape, the exit status, and how it refuses.
#ifndef NOM_TOOLS_NOMSOI_HOST_H_
#define NOM_TOOLS_NOMSOI_HOST_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "NOMSOIHost.h"

namespace nomsoi {

// One command of the host: its parsed sub-application and what runs it. run returns the exit
// status.
struct Command {
  CLI::App* app;
  std::function<int()> run;
  // A real invocation of the command ("nomsoi pack --main ..."): the "Example:" line of its
  // --help and its entry in the manual page's EXAMPLES.
  std::string example;
};

// Exit status for a result of the module: kExitOk when hr is not negative, else kExitFailed after
// printing the code as 0x%08X on standard error.
int ExitForResult(const std::string& command, HRESULT hr);
// text between single quotes, as messages name paths and values.
inline std::string Quoted(const std::string& text) { return "'" + text + "'"; }
// Writes all of text to standard error unless the verbosity is quiet: the host's informational
// output (a command's closing line on success).
void Inform(const std::string& text);
// Prints "nomsoi <command>: <message>" on standard error and returns kExitUsage.
int Refuse(const std::string& command, const std::string& message);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_HOST_H_
