// nomsoi dump: produces a package from the planning data: generation, positioning, Pack & Go and
// the mapping file, between a connection and a disconnection.
#include <memory>
#include <string>

#include "NOMSOIUtility.h"
#include "commands.h"

namespace nomsoi {
namespace {

struct DumpOptions {
  ConnectionOptions connection;
  std::string out;
  std::string input;
  std::string option;
  std::string position;
  bool light = false;
  bool mapping = false;
};

int RunDump(const DumpOptions& options) {
  if (int status = PrepareOutputDirectory("dump", "--out", options.out)) return status;
  NOMSOIUtility utility;
  if (!ConnectToServer(utility, options.connection)) {
    utility.DisconnectServer();
    return ReportNotConnected("dump", options.connection);
  }
  HRESULT result;
  {
    ProgressLine progress;
    result = utility.DumpVGXPackage(options.input, options.out, options.light, options.option,
                                    options.position, options.mapping);
  }
  utility.DisconnectServer();
  return ExitForResult("dump", result);
}

}  // namespace

Command SetupDumpCommand(CLI::App& app) {
  auto options = std::make_shared<DumpOptions>();
  CLI::App* command = app.add_subcommand(
      "dump",
      "Produce a package from the planning data: connect, generate the package into DIR, apply "
      "3D states or simulation positions, gather its product documents and geometry into DIR "
      "(Pack & Go), write DIR/Mapping.xml, disconnect.");
  AddConnectionOptions(*command, options->connection);
  command->add_option("--out", options->out, "SOI directory that receives the package (created)")
      ->type_name("DIR")
      ->required();
  command->add_option("--input", options->input, "Input handed unchanged to the generator")
      ->type_name("TEXT");
  command->add_option("--option", options->option, "Option handed unchanged to the generator")
      ->type_name("TEXT");
  command
      ->add_option("--position", options->position,
                   "Apply the project's 3D states or simulation positions (default: none)")
      ->type_name("MODE")
      ->check(CLI::IsMember({"3D_States", "Simulation_Positions"}));
  command->add_flag("--light", options->light,
                    "Light mode: leave the product documents and geometry where they are (no "
                    "Pack & Go)");
  command->add_flag("--mapping", options->mapping,
                    "Write Mapping.xml (entities and views with their OIDs and ident paths)");
  return {command, [options] { return RunDump(*options); }};
}

}  // namespace nomsoi
