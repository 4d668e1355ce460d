// nomsoi odt: Pack & Go and mapping over a package laid out for the ODT mode, without a server.
#include <cstdlib>
#include <memory>
#include <string>

#include "NOMSOIUtility.h"
#include "commands.h"
#include "packing.h"

namespace nomsoi {
namespace {

// What --help says of the command.
constexpr char kDescription[] =
    "ODT mode, no server: copy the product documents and geometry that the package "
    "$ADL_ODT_IN/NOMZUBVGXExtractTest/SOI.vgxXml references into DIR, rewrite the references "
    "inside the copies, and optionally write DIR/Mapping.xml. The package's main document is "
    "saved in place when it lies in DIR, else into DIR.";

struct OdtOptions {
  std::string out;
  std::string in;
  bool light = false;
  bool mapping = false;
  SafetyOptions safety;
  CLI::Option* in_option = nullptr;
};

// The main document the module opens: $ADL_ODT_IN\NOMZUBVGXExtractTest\SOI.vgxXml.
std::string OdtPackagePath() {
  const char* input = std::getenv("ADL_ODT_IN");
  return std::string(input ? input : "") + "\\NOMZUBVGXExtractTest\\SOI.vgxXml";
}

// Refuses to start when the package's main document is missing or not XML.
int CheckOdtPackage() {
  const char* input = std::getenv("ADL_ODT_IN");
  const std::string package = OdtPackagePath();
  const std::string problem = XmlDocumentProblem(package);
  if (problem.empty()) return kExitOk;
  const std::string holds = input ? "ADL_ODT_IN holds '" + std::string(input) + "'"
                                  : std::string("ADL_ODT_IN is not set");
  return Refuse("odt", "the package '" + package + "' " + problem + "; " + holds +
                           " (set --in DIR to the directory that holds NOMZUBVGXExtractTest)");
}

int RunOdt(OdtOptions options) {
  options.out = FullPath(options.out);
  if (options.in_option->count() > 0) setenv("ADL_ODT_IN", FullPath(options.in).c_str(), 1);
  if (!options.light) {
    if (int status = CheckOdtPackage()) return status;
  }
  if (int status = CheckOutputDirectory("odt", "--out", options.out)) return status;

  ModuleRun run;
  run.command = "odt";
  run.walk = PackWalk::kOdt;
  run.preflight = !options.light;
  run.main_path = OdtPackagePath();
  run.out = options.out;
  run.call = [&options](HRESULT*, bool*) {
    NOMSOIUtility utility;
    utility.DumpVGXPackage_ODT("", options.out, options.light, "", "", options.mapping);
    return 0;
  };
  return RunModuleSafely(run, options.safety).status;
}

}  // namespace

Command SetupOdtCommand(CLI::App& app) {
  auto options = std::make_shared<OdtOptions>();
  CLI::App* command = app.add_subcommand("odt", kDescription);
  command->add_option("--out", options->out, "Output directory (created)")
      ->type_name("DIR")
      ->required();
  options->in_option =
      command
          ->add_option("--in", options->in,
                       "Directory that holds NOMZUBVGXExtractTest (sets ADL_ODT_IN)")
          ->type_name("DIR");
  command->add_flag("--light", options->light,
                    "Light mode: do not open the package nor copy its documents");
  command->add_flag("--mapping", options->mapping, "Write Mapping.xml");
  AddSafetyOptions(*command, options->safety, true);
  return {command, [options] { return RunOdt(*options); },
          "nomsoi odt --in ./odt --out ./odt-out --mapping"};
}

}  // namespace nomsoi
