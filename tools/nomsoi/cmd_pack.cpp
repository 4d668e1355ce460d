// nomsoi pack: Pack & Go of a package that lies on disk.
#include <cstdio>
#include <memory>
#include <string>

#include "NOMSOIUtility.h"
#include "commands.h"
#include "services/NOMZUBVGXGen.h"

namespace nomsoi {
namespace {

struct PackOptions {
  std::string main;
  std::string view;
  std::string out;
};

// Refuses a main document or view file that is not XML, and an output directory that cannot be
// made, before anything is written.
int CheckInputs(const PackOptions& options) {
  if (int status = CheckXmlDocument("pack", "--main", options.main)) return status;
  if (!options.view.empty()) {
    if (int status = CheckXmlDocument("pack", "--view", options.view)) return status;
  }
  return PrepareOutputDirectory("pack", "--out", options.out);
}

int RunPack(const PackOptions& options) {
  if (int status = CheckInputs(options)) return status;
  if (!LiesDirectlyIn(options.main, options.out)) {
    std::fprintf(stderr,
                 "nomsoi pack: warning: the main document '%s' does not lie in '%s'; it is "
                 "rewritten in place (its references become bare file names)\n",
                 options.main.c_str(), options.out.c_str());
  }
  nomzub::RegisterPackage(options.main, options.view);
  NOMSOIUtility utility;
  HRESULT result;
  {
    ProgressLine progress;
    result = utility.PackNGo(options.out);
  }
  return ExitForResult("pack", result);
}

}  // namespace

Command SetupPackCommand(CLI::App& app) {
  auto options = std::make_shared<PackOptions>();
  CLI::App* command = app.add_subcommand(
      "pack",
      "Pack & Go of a package on disk: copy every product document and geometry file that the "
      "main document references, however deep, into DIR, rewrite the references to bare file "
      "names, copy the shared resources, and save the main document and view file in place.");
  command->add_option("--main", options->main, "Main document of the package (SOI.vgxXml)")
      ->type_name("FILE")
      ->required();
  command->add_option("--view", options->view, "View file of the package (SOI.vgxView)")
      ->type_name("FILE");
  command->add_option("--out", options->out, "SOI directory that receives the copies (created)")
      ->type_name("DIR")
      ->required();
  return {command, [options] { return RunPack(*options); }};
}

}  // namespace nomsoi
