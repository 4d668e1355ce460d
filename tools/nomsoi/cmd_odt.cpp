// nomsoi odt: Pack & Go and mapping over a package laid out for the ODT mode, without a server.
#include <cstdlib>
#include <memory>
#include <string>

#include "NOMSOIUtility.h"
#include "commands.h"

namespace nomsoi {
namespace {

struct OdtOptions {
  std::string out;
  std::string in;
  bool light = false;
  bool mapping = false;
  CLI::Option* in_option = nullptr;
};

// The module reads the package from $ADL_ODT_IN\NOMZUBVGXExtractTest\SOI.vgxXml; refuses to start
// when that document is missing or not XML.
int CheckOdtPackage() {
  const char* value = std::getenv("ADL_ODT_IN");
  const std::string input = value ? value : "";
  const std::string package = input + "\\NOMZUBVGXExtractTest\\SOI.vgxXml";
  const std::string problem = XmlDocumentProblem(package);
  if (problem.empty()) return kExitOk;
  const std::string holds =
      value ? "ADL_ODT_IN holds '" + input + "'" : std::string("ADL_ODT_IN is not set");
  return Refuse("odt", "the package '" + package + "' " + problem + "; " + holds +
                           " (set --in DIR to the directory that holds NOMZUBVGXExtractTest)");
}

int RunOdt(const OdtOptions& options) {
  if (options.in_option->count() > 0) setenv("ADL_ODT_IN", options.in.c_str(), 1);
  if (int status = CheckOdtPackage()) return status;
  if (int status = PrepareOutputDirectory("odt", "--out", options.out)) return status;
  NOMSOIUtility utility;
  ProgressLine progress;
  utility.DumpVGXPackage_ODT("", options.out, options.light, "", "", options.mapping);
  return kExitOk;
}

}  // namespace

Command SetupOdtCommand(CLI::App& app) {
  auto options = std::make_shared<OdtOptions>();
  CLI::App* command = app.add_subcommand(
      "odt",
      "ODT mode, no server: copy the product documents and geometry that the package "
      "$ADL_ODT_IN/NOMZUBVGXExtractTest/SOI.vgxXml references into DIR, rewrite the references "
      "inside the copies, and optionally write DIR/Mapping.xml. The package's main document is "
      "saved in place.");
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
  return {command, [options] { return RunOdt(*options); }};
}

}  // namespace nomsoi
