// nomsoi db: creates the planning schema, or loads the sample project.
#include <memory>
#include <string>

#include "commands.h"

namespace nomsoi {
namespace {

// What --help says of the command.
constexpr char kDescription[] =
    "Administer a planning database: 'init' creates the schema or upgrades an older one; "
    "'sample' also loads the sample project (replacing an earlier copy of it).";

struct DbOptions {
  std::string action;
  std::string server;
};

int RunDb(const DbOptions& options) {
  const HRESULT result = options.action == "init" ? InitPlanningDatabase(options.server)
                                                  : LoadSampleProject(options.server);
  return ExitForResult("db " + options.action, result);
}

}  // namespace

Command SetupDbCommand(CLI::App& app) {
  auto options = std::make_shared<DbOptions>();
  CLI::App* command = app.add_subcommand("db", kDescription);
  command->add_option("action", options->action, "init or sample")
      ->type_name("ACTION")
      ->required()
      ->check(CLI::IsMember({"init", "sample"}));
  AddServerOption(*command, options->server);
  return {command, [options] { return RunDb(*options); },
          "nomsoi db sample --server sqlite:plan.db"};
}

}  // namespace nomsoi
