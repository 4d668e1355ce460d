// nomsoi dump: produces a package from the planning data: generation, positioning, Pack & Go and
// the mapping file, between a connection and a disconnection.
#include <memory>
#include <string>

#include "NOMSOIUtility.h"
#include "commands.h"
#include "packing.h"

namespace nomsoi {
namespace {

// What --help says of the command.
constexpr char kDescription[] =
    "Produce a package from the planning data: connect, generate the package into DIR, apply "
    "3D states or simulation positions, gather its product documents and geometry into DIR "
    "(Pack & Go), write DIR/Mapping.xml, disconnect.";

// How deep the generated package's product documents may nest, for the module's stack.
constexpr uint64_t kGeneratedDepth = 10000;

struct DumpOptions {
  ConnectionOptions connection;
  std::string out;
  std::string input;
  std::string option;
  std::string position;
  bool light = false;
  bool mapping = false;
  bool preview = false;
  uint64_t max_objects = 10000000;
  SafetyOptions safety;
};

// Refuses a generator option the generator does not know, with the ones it does.
int CheckGeneratorOption(const std::string& option) {
  const std::string problem = GeneratorOptionProblem(option);
  return problem.empty() ? kExitOk : Refuse("dump", "--option: " + problem);
}

int RunDump(DumpOptions options) {
  options.out = FullPath(options.out);
  if (int status = CheckGeneratorOption(options.option)) return status;
  if (int status = CheckOutputDirectory("dump", "--out", options.out)) return status;
  SetMaxObjects(options.max_objects);

  ModuleRun run;
  run.command = "dump";
  run.preflight = false;
  run.keep_input = false;
  run.main_path = options.out + "\\SOI.vgxXml";
  run.view_path = options.out + "\\SOI.vgxView";
  run.out = options.out;
  run.stack_depth = kGeneratedDepth;
  run.call = [&options](HRESULT* result, bool* has_result) {
    NOMSOIUtility utility;
    if (!ConnectToServer(utility, LoginOf(options.connection))) {
      utility.DisconnectServer();
      return ReportNotConnected("dump", options.connection);
    }
    *result = utility.DumpVGXPackage(options.input, options.out, options.light, options.option,
                                     options.position, options.mapping);
    *has_result = true;
    utility.DisconnectServer();
    return 0;
  };
  const int status = RunModuleSafely(run, options.safety).status;
  // A dry run writes nothing, so there is no package to preview.
  const bool preview = options.preview && !options.safety.dry_run;
  return preview ? PreviewAfterRun("dump", options.out, status) : status;
}

}  // namespace

Command SetupDumpCommand(CLI::App& app) {
  auto options = std::make_shared<DumpOptions>();
  CLI::App* command = app.add_subcommand("dump", kDescription);
  AddConnectionOptions(*command, options->connection);
  command->add_option("--out", options->out, "SOI directory that receives the package (created)")
      ->type_name("DIR")
      ->required();
  command->add_option("--input", options->input, "Input handed unchanged to the generator")
      ->type_name("TEXT");
  command
      ->add_option("--option", options->option,
                   "Generator option (see docs/PLANNING_DATA.md); an unknown one is refused")
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
  command->add_flag("--preview", options->preview,
                    "After a run that ends with status 0 or 3, write DIR/preview.glb and "
                    "DIR/preview.html (see the preview command)");
  command
      ->add_option("--max-objects", options->max_objects,
                   "Refuse to generate more than N product instances")
      ->type_name("N")
      ->capture_default_str();
  AddSafetyOptions(*command, options->safety, false);
  return {command, [options] { return RunDump(*options); },
          "nomsoi dump --server sqlite:plan.db --login planner --password planner --project "
          "AssemblyLine --out soi --position 3D_States --mapping"};
}

}  // namespace nomsoi
