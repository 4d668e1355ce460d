// The safety options of pack, odt and dump, and the checks of their inputs.
#include "packing.h"

#include "host.h"

namespace nomsoi {

void AddSafetyOptions(CLI::App& command, SafetyOptions& options, bool preflight) {
  command
      .add_option("--report", options.report,
                  "Write the outcome as JSON to FILE: every file copied, missing or failed, with "
                  "its source, target, referencing document and error")
      ->type_name("FILE");
  if (!preflight) return;
  command
      .add_option("--confine", options.confine,
                  "Read only files whose real path (links resolved) lies in DIR (repeatable; "
                  "also NOMZUB_CONFINE, colon-separated); a package naming anything else is "
                  "refused")
      ->type_name("DIR")
      ->allow_extra_args(false);
  command
      .add_option("--max-visits", options.max_visits,
                  "Refuse a package whose references would be followed more than N times "
                  "(a shared document counts once per path to it)")
      ->type_name("N")
      ->capture_default_str();
  command
      .add_option("--max-depth", options.max_depth,
                  "Refuse a package whose product documents nest deeper than N")
      ->type_name("N")
      ->capture_default_str();
  command.add_flag("--force", options.force,
                   "Pack even when two different files would land on one name (the later copy "
                   "wins)");
  command.add_flag("--dry-run", options.dry_run,
                   "Check the package and print what would be copied; write nothing");
}

int CheckXmlDocument(const std::string& command, const std::string& option,
                     const std::string& path) {
  const std::string problem = XmlDocumentProblem(path);
  if (problem.empty()) return kExitOk;
  return Refuse(command, option + ": " + Quoted(path) + " " + problem);
}

int CheckOutputDirectory(const std::string& command, const std::string& option,
                         const std::string& dir) {
  const std::string problem = OutputDirectoryProblem(dir);
  return problem.empty() ? kExitOk : Refuse(command, option + ": " + problem);
}

}  // namespace nomsoi
