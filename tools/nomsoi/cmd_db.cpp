// nomsoi db: creates the planning schema, or loads the sample project.
#include <memory>
#include <string>

#include "NOMZUBProxy/planning_admin.h"
#include "commands.h"

namespace nomsoi {
namespace {

struct DbOptions {
  std::string action;
  std::string server;
};

int RunDb(const DbOptions& options) {
  const HRESULT result = options.action == "init" ? nomzub::InitPlanningDatabase(options.server)
                                                  : nomzub::LoadSamplePlanningData(options.server);
  return ExitForResult("db " + options.action, result);
}

}  // namespace

Command SetupDbCommand(CLI::App& app) {
  auto options = std::make_shared<DbOptions>();
  CLI::App* command = app.add_subcommand(
      "db",
      "Administer a planning database: 'init' creates the schema or upgrades an older one; "
      "'sample' also loads the sample project (replacing an earlier copy of it).");
  command->add_option("action", options->action, "init or sample")
      ->type_name("ACTION")
      ->required()
      ->check(CLI::IsMember({"init", "sample"}));
  command
      ->add_option("--server", options->server,
                   "Planning data server: sqlite:PATH or postgresql://... (default: NOMZUB_SERVER)")
      ->type_name("URL")
      ->envname("NOMZUB_SERVER")
      ->required();
  return {command, [options] { return RunDb(*options); }};
}

}  // namespace nomsoi
