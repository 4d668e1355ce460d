// The command line of nomsoi: the application, its global options and its commands.
#include <cstdio>
#include <exception>

#include "commands.h"

namespace nomsoi {

int RunCommandLine(int argc, const char* const* argv) {
  CLI::App app{
      "Turns planning data, or a package already on disk, into a self-contained 3D VGX "
      "package.",
      "nomsoi"};
  app.footer(
      "Exit status: 0 every referenced document and geometry file is in the output; 1 a copy or "
      "save failed, the module failed for another cause, or the server refused the connection; "
      "2 a usage error or an input refused before the module ran; 3 the run finished but "
      "referenced files were missing.");
  app.require_subcommand(1);
  app.fallthrough();
  GlobalOptions globals;
  AddGlobalOptions(app, globals);
  const Command commands[] = {
      SetupDumpCommand(app), SetupOdtCommand(app),     SetupPackCommand(app),
      SetupDbCommand(app),   SetupConnectCommand(app),
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitOk : kExitUsage;
  }
  if (int status = ApplyGlobalOptions(globals)) return status;
  for (const Command& command : commands) {
    if (!command.app->parsed()) continue;
    try {
      return command.run();
    } catch (const std::exception& error) {
      // Out of memory in the module: say so rather than abort.
      std::fprintf(stderr, "nomsoi %s: %s\n", command.app->get_name().c_str(), error.what());
      return kExitFailed;
    }
  }
  return kExitUsage;
}

}  // namespace nomsoi
