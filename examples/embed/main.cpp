// Packs a package on disk as `nomsoi pack` does, through the library alone:
//   embed MAIN OUT [LOG]
// MAIN is the package's main document, OUT the directory that receives the self-contained copy,
// LOG (optional) the file the log is appended to in raw form.
#include <cstdio>
#include <string>

#include "NOMSOIHost.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: embed MAIN OUT [LOG]\n");
    return nomsoi::kExitUsage;
  }
  std::printf("NOMVGXGenBase %s\n", nomsoi::LibraryVersion());

  // Process settings: the log, the code page, and paths as the package writes them.
  if (argc > 3) {
    const std::string problem = nomsoi::ConfigureLog(argv[3], nomsoi::LogFormat::kRaw);
    if (!problem.empty()) {
      std::fprintf(stderr, "embed: %s\n", problem.c_str());
      return nomsoi::kExitUsage;
    }
  }
  nomsoi::SetCodePage(65001);
  nomsoi::SetVerbosity(nomsoi::Verbosity::kQuiet);
  const std::string main_path = nomsoi::FullPath(argv[1]);
  const std::string out = nomsoi::FullPath(argv[2]);
  const std::string problem = nomsoi::XmlDocumentProblem(main_path);
  if (!problem.empty()) {
    std::fprintf(stderr, "embed: '%s' %s\n", main_path.c_str(), problem.c_str());
    return nomsoi::kExitUsage;
  }

  // What would be copied, before anything is written.
  nomsoi::PreflightOptions check;
  check.main_path = main_path;
  check.soi_directory = out;
  const nomsoi::PreflightResult plan = nomsoi::RunPreflight(check);
  for (const nomsoi::PreflightProblem& refusal : plan.problems)
    std::fprintf(stderr, "embed: refused: %s\n", refusal.message.c_str());
  if (plan.Refused()) return nomsoi::kExitUsage;
  std::printf("plan: %zu files, %llu bytes\n", plan.items.size(),
              static_cast<unsigned long long>(plan.bytes));

  // The run itself: journalled, on the module's own thread, put back on failure.
  nomsoi::SafetyOptions safety;
  const nomsoi::RunResult result =
      nomsoi::RunModuleSafely(nomsoi::PackRun(main_path, "", out), safety);
  const nomsoi::Outcome& outcome = result.outcome;
  std::printf("status %d: %llu documents, %llu geometry files, %zu missing, %zu failed\n",
              result.status, static_cast<unsigned long long>(outcome.documents),
              static_cast<unsigned long long>(outcome.geometry), outcome.missing.size(),
              outcome.failed.size());
  for (const nomsoi::OutcomeItem& item : outcome.missing)
    std::printf("missing %s '%s'\n", item.kind.c_str(), item.source.c_str());
  nomsoi::FlushLog();
  return result.status;
}
