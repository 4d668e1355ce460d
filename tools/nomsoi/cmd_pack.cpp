// nomsoi pack: Pack & Go of a package that lies on disk.
#include <memory>
#include <string>

#include "commands.h"
#include "packing.h"

namespace nomsoi {
namespace {

// What --help says of the command.
constexpr char kDescription[] =
    "Pack & Go of a package on disk: copy every product document and geometry file that the "
    "main document references, however deep, into DIR, rewrite the references to bare file "
    "names and copy the shared resources. The main document and view file are rewritten in "
    "place when they lie in DIR; otherwise they stay untouched and the packed ones are saved "
    "into DIR.";

struct PackOptions {
  std::string main;
  std::string view;
  std::string out;
  bool preview = false;
  SafetyOptions safety;
};

int RunPack(PackOptions options) {
  options.main = FullPath(options.main);
  options.view = FullPath(options.view);
  options.out = FullPath(options.out);
  if (int status = CheckXmlDocument("pack", "--main", options.main)) return status;
  if (!options.view.empty()) {
    if (int status = CheckXmlDocument("pack", "--view", options.view)) return status;
  }
  if (int status = CheckOutputDirectory("pack", "--out", options.out)) return status;

  const int status =
      RunModuleSafely(PackRun(options.main, options.view, options.out), options.safety).status;
  // A dry run writes nothing, so there is no package to preview.
  const bool preview = options.preview && !options.safety.dry_run;
  return preview ? PreviewAfterRun("pack", options.out, status) : status;
}

}  // namespace

Command SetupPackCommand(CLI::App& app) {
  auto options = std::make_shared<PackOptions>();
  CLI::App* command = app.add_subcommand("pack", kDescription);
  command->add_option("--main", options->main, "Main document of the package (SOI.vgxXml)")
      ->type_name("FILE")
      ->required();
  command->add_option("--view", options->view, "View file of the package (SOI.vgxView)")
      ->type_name("FILE");
  command->add_option("--out", options->out, "SOI directory that receives the copies (created)")
      ->type_name("DIR")
      ->required();
  command->add_flag("--preview", options->preview,
                    "After a run that ends with status 0 or 3, write DIR/preview.glb and "
                    "DIR/preview.html (see the preview command)");
  AddSafetyOptions(*command, options->safety, true);
  return {command, [options] { return RunPack(*options); },
          "nomsoi pack --main ./package/SOI.vgxXml --view ./package/SOI.vgxView --out ./package"};
}

}  // namespace nomsoi
