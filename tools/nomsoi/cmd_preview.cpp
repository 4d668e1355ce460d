// nomsoi preview: writes a package's preview (preview.glb and preview.html) into its directory.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"

namespace nomsoi {
namespace {

// What --help says of the command.
constexpr char kDescription[] =
    "Write DIR/preview.glb, one glTF scene of the package in DIR (as dump, odt or pack leave it: "
    "SOI.vgxXml, product documents and their .vgxGeom geometry) with every product instance "
    "placed and named, and DIR/preview.html, a page that shows it with orbit controls and the "
    "product tree and works from the file alone (no network). Missing or damaged geometry "
    "shows as a red placeholder box and is listed. Exit 0 with a summary line; 3 when geometry "
    "is missing (each on a line of its own, the preview still written); 2 when DIR holds no "
    "readable package or the files cannot be written.";

int RunPreview(const std::string& dir_argument) {
  const PreviewResult result = WritePreview(FullPath(dir_argument));
  return ReportPreview("preview", result);
}

}  // namespace

int ReportPreview(const std::string& command, const PreviewResult& result) {
  if (!result.problem.empty()) return Refuse(command, "preview: " + result.problem);
  std::string lines;
  for (const PreviewGeometryIssue& issue : result.missing) {
    lines += "nomsoi " + command + ": preview: geometry " + Quoted(issue.geometry) + " of " +
             Quoted(issue.product) + ": " + issue.problem + "\n";
  }
  std::fputs(lines.c_str(), stderr);
  Inform("nomsoi " + command + ": preview " + Quoted(result.html_path) + ": " +
         std::to_string(result.instances) + " instances, " + std::to_string(result.products) +
         " products, " + std::to_string(result.missing.size()) + " missing geometry\n");
  return result.missing.empty() ? kExitOk : kExitMissing;
}

int PreviewAfterRun(const std::string& command, const std::string& dir, int status) {
  if (status != kExitOk && status != kExitMissing) return status;
  const PreviewResult result = WritePreview(dir);
  const int preview_status = ReportPreview(command, result);
  if (preview_status == kExitUsage) return kExitFailed;
  return status;
}

Command SetupPreviewCommand(CLI::App& app) {
  auto dir = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("preview", kDescription);
  command->add_option("dir", *dir, "Directory of the package to preview")
      ->type_name("DIR")
      ->required();
  return {command, [dir] { return RunPreview(*dir); }, "nomsoi preview ./package"};
}

}  // namespace nomsoi
