// The commands of nomsoi. Each one declares its options on a sub-application of app and returns
// what runs it once the command line has been parsed.
#ifndef NOM_TOOLS_NOMSOI_COMMANDS_H_
#define NOM_TOOLS_NOMSOI_COMMANDS_H_

#include <string>
#include <vector>

#include "connection.h"
#include "global_options.h"
#include "host.h"

namespace nomsoi {

// nomsoi's whole command line: the application with its global options and every command. One
// definition serves --help, the manual page and the bash completion script, so none of them
// can describe options the program does not have.
class CommandLine {
 public:
  // Declares the application, its options and its commands; parses nothing.
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // The application; its subcommands are the commands.
  CLI::App& app() { return app_; }
  // The commands, in the order --help lists them.
  const std::vector<Command>& commands() const { return commands_; }
  // Parses the command line (argv[0] is the program's name), applies the global options and
  // runs the command. Returns the exit status: 0 for --help and --version, 2 for a usage error.
  int Run(int argc, const char* const* argv);

 private:
  CLI::App app_;
  GlobalOptions globals_;
  std::vector<Command> commands_;
};

// Builds the command line and runs it (CommandLine::Run). Returns the exit status.
int RunCommandLine(int argc, const char* const* argv);

// "nomsoi <version>", the version being the project's (--version prints it).
std::string VersionText();

// A documented name and what it means: an exit status, an environment variable.
struct HelpEntry {
  std::string name;
  std::string text;
};
// The exit statuses of nomsoi's commands, 0 to 3.
const std::vector<HelpEntry>& ExitStatuses();
// The environment variables nomsoi and the libraries read.
const std::vector<HelpEntry>& EnvironmentVariables();

// The manual page nomsoi(1) in roff with the man macros: NAME, SYNOPSIS, DESCRIPTION, OPTIONS
// (the global ones, then each command's with its names, value type and description), EXIT
// STATUS, ENVIRONMENT and EXAMPLES, all taken from line. Never empty.
std::string ManPage(CommandLine& line);
// A bash completion script for nomsoi, taken from line: commands, global options, each
// command's options, file names for FILE values, directories for DIR values, and the allowed
// words of options and arguments that take one of a set (--log-format, --position, db's
// action). Registers itself with "complete -F _nomsoi nomsoi".
std::string BashCompletion(CommandLine& line);

// dump: connect, generate a package from the planning data, Pack & Go, mapping, disconnect.
Command SetupDumpCommand(CLI::App& app);
// odt: Pack & Go and mapping over a package already on disk ($ADL_ODT_IN\NOMZUBVGXExtractTest).
Command SetupOdtCommand(CLI::App& app);
// pack: Pack & Go of a main document (and view file) on disk into a directory.
Command SetupPackCommand(CLI::App& app);
// db: create the planning schema, or load the sample project.
Command SetupDbCommand(CLI::App& app);
// connect: check that a login reaches a project on the server.
Command SetupConnectCommand(CLI::App& app);
// verify: check that a directory holds a self-contained package (verify.h).
Command SetupVerifyCommand(CLI::App& app);
// preview: write preview.glb and preview.html of the package in a directory (WritePreview).
Command SetupPreviewCommand(CLI::App& app);
// Prints what a preview gave as command's messages: the problem (returns kExitUsage), else each
// missing geometry on a line of its own and a summary line (returns kExitMissing when geometry
// is missing, else kExitOk).
int ReportPreview(const std::string& command, const PreviewResult& result);
// The --preview of dump and pack: after a run that ended with status kExitOk or kExitMissing,
// writes the preview of dir and reports it; returns status, or kExitFailed when the preview could
// not be written. Any other status is returned at once, nothing written.
int PreviewAfterRun(const std::string& command, const std::string& dir, int status);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_COMMANDS_H_
