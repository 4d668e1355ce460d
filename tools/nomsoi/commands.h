// The commands of nomsoi. Each one declares its options on a sub-application of app and returns
// what runs it once the command line has been parsed.
#ifndef NOM_TOOLS_NOMSOI_COMMANDS_H_
#define NOM_TOOLS_NOMSOI_COMMANDS_H_

#include "connection.h"
#include "global_options.h"
#include "host.h"
#include "inputs.h"

namespace nomsoi {

// Parses the command line (argv[0] is the program's name), applies the global options and runs
// the command. Returns the exit status.
int RunCommandLine(int argc, const char* const* argv);

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

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_COMMANDS_H_
