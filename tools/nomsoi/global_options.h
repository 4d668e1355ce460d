// The options every command of nomsoi takes: the log, how much is said on standard error, the code
// page, the drive and share maps.
#ifndef NOM_TOOLS_NOMSOI_GLOBAL_OPTIONS_H_
#define NOM_TOOLS_NOMSOI_GLOBAL_OPTIONS_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host.h"

namespace nomsoi {

// Options that apply to every command.
struct GlobalOptions {
  std::string log;
  std::string log_format;
  int code_page = 0;
  std::vector<std::string> drives;
  std::vector<std::string> shares;
  bool quiet = false;    // -q: errors only
  bool verbose = false;  // -v: the services' log records on standard error too
  // Set by AddGlobalOptions; tell whether an option was given at all.
  CLI::Option* log_option = nullptr;
  CLI::Option* log_format_option = nullptr;
  CLI::Option* code_page_option = nullptr;
};

// Declares -q/--quiet, -v/--verbose (the two exclude each other), --log, --log-format,
// --code-page, --drive and --share on app, with the checks of their syntax (a bad value or both
// -q and -v is a parse error: exit 2).
void AddGlobalOptions(CLI::App& app, GlobalOptions& options);
// Applies the parsed global options: verbosity (SetVerbosity, and which log records reach
// standard error: see the options' descriptions), code page, drive and share maps, log target
// and format. Returns kExitOk, or kExitUsage after a message naming the option when one cannot
// be applied.
int ApplyGlobalOptions(const GlobalOptions& options);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_GLOBAL_OPTIONS_H_
