// What the commands of nomsoi share: the global options, the connection options, the checks made
// before the module is called, the exit status and the progress line.
#ifndef NOM_TOOLS_NOMSOI_HOST_H_
#define NOM_TOOLS_NOMSOI_HOST_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "NOMSOITypes.h"

class NOMSOIUtility;

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

// Options that apply to every command.
struct GlobalOptions {
  std::string log;
  std::string log_format;
  int code_page = 0;
  std::vector<std::string> drives;
  std::vector<std::string> shares;
  // Set by AddGlobalOptions; tell whether an option was given at all.
  CLI::Option* log_option = nullptr;
  CLI::Option* log_format_option = nullptr;
  CLI::Option* code_page_option = nullptr;
};

// Declares --log, --log-format, --code-page, --drive and --share on app, with the checks of
// their syntax (a bad value is a parse error: exit 2).
void AddGlobalOptions(CLI::App& app, GlobalOptions& options);
// Applies the parsed global options: code page, drive and share maps, log target and format.
// Returns kExitOk, or kExitUsage after a message naming the option when one cannot be applied.
int ApplyGlobalOptions(const GlobalOptions& options);

// Exit status for a result of the module: kExitOk when hr is not negative, else kExitFailed after
// printing the code as 0x%08X on standard error.
int ExitForResult(const std::string& command, HRESULT hr);
// Prints "nomsoi <command>: <message>" on standard error and returns kExitUsage.
int Refuse(const std::string& command, const std::string& message);

// Checks that path (a module path, as the module will open it) holds a well-formed XML document.
// Returns an empty string when it does, else what is wrong with it ("does not exist", ...).
std::string XmlDocumentProblem(const std::string& path);
// Refuses the option's document when XmlDocumentProblem finds a problem: prints
// "nomsoi <command>: <option>: '<path>' <problem>" and returns kExitUsage; kExitOk otherwise.
int CheckXmlDocument(const std::string& command, const std::string& option,
                     const std::string& path);
// Refuses an output directory (a module path) that cannot be mapped or is not a directory;
// kExitOk when it is one or does not exist yet. Creates nothing.
int CheckOutputDirectory(const std::string& command, const std::string& option,
                         const std::string& dir);
// Creates the output directory (a module path) and its parents when missing. kExitOk when it
// exists afterwards; kExitUsage after a message naming the option and the path otherwise.
int PrepareOutputDirectory(const std::string& command, const std::string& option,
                           const std::string& dir);
// True when the file lies directly in the directory (both module paths that exist).
bool LiesDirectlyIn(const std::string& file, const std::string& dir);

// True when the log goes to standard error (after ApplyGlobalOptions).
bool LogGoesToStderr();

// The full path of a path given on the command line: a relative one is taken from the working
// directory (as the shell shows it), with "." and ".." steps resolved by their text, so that it
// names the same file as the full path a user would type (without a trailing separator); a full
// path (rooted, drive or network) is returned as it is.
std::string FullPath(const std::string& path);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_HOST_H_
