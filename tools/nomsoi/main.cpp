// nomsoi: the command-line host of the NOMVGXGenBase module.
#include <cstdio>
#include <exception>

#include "commands.h"

int main(int argc, char** argv) {
  CLI::App app{
      "Turns planning data, or a package already on disk, into a self-contained 3D VGX "
      "package.",
      "nomsoi"};
  app.footer(
      "Exit status: 0 when the module's result is not negative; 1 when it is negative (printed as "
      "0x%08X) or the server refused the connection; 2 for a usage error or an input refused "
      "before the module is called.");
  app.require_subcommand(1);
  app.fallthrough();
  nomsoi::GlobalOptions globals;
  nomsoi::AddGlobalOptions(app, globals);
  const nomsoi::Command commands[] = {
      nomsoi::SetupDumpCommand(app),    nomsoi::SetupOdtCommand(app),
      nomsoi::SetupPackCommand(app),    nomsoi::SetupDbCommand(app),
      nomsoi::SetupConnectCommand(app),
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? nomsoi::kExitOk : nomsoi::kExitUsage;
  }
  if (int status = nomsoi::ApplyGlobalOptions(globals)) return status;
  for (const nomsoi::Command& command : commands) {
    if (!command.app->parsed()) continue;
    try {
      return command.run();
    } catch (const std::exception& error) {
      // Out of memory in the module: say so rather than abort.
      std::fprintf(stderr, "nomsoi %s: %s\n", command.app->get_name().c_str(), error.what());
      return nomsoi::kExitFailed;
    }
  }
  return nomsoi::kExitUsage;
}
