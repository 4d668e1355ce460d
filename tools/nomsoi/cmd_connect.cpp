// nomsoi connect: checks that a login reaches a project on the planning data server.
#include <cstdio>
#include <memory>

#include "NOMSOIUtility.h"
#include "commands.h"

namespace nomsoi {
namespace {

// What --help says of the command.
constexpr char kDescription[] =
    "Check access: connect to the server with the login, select the project and the filters, "
    "then disconnect. Exit 0 when connected, 1 when a step failed (the log says which).";

int RunConnect(const ConnectionOptions& options) {
  NOMSOIUtility utility;
  const BOOL connected = ConnectToServer(utility, LoginOf(options));
  utility.DisconnectServer();
  if (!connected) return ReportNotConnected("connect", options);
  if (CurrentVerbosity() == Verbosity::kQuiet) return kExitOk;  // errors only
  std::printf("connected to project '%s' on '%s' as '%s'\n", options.project.c_str(),
              RedactedServer(options.server).c_str(), options.login.c_str());
  return kExitOk;
}

}  // namespace

Command SetupConnectCommand(CLI::App& app) {
  auto options = std::make_shared<ConnectionOptions>();
  CLI::App* command = app.add_subcommand("connect", kDescription);
  AddConnectionOptions(*command, *options);
  return {command, [options] { return RunConnect(*options); },
          "nomsoi connect --server sqlite:plan.db --login planner --password planner --project "
          "AssemblyLine"};
}

}  // namespace nomsoi
