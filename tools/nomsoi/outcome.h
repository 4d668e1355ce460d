// What a run of the module gave the user: every file copied, missing or failed, the summary line,
// the JSON report and the exit status they stand for.
#ifndef NOM_TOOLS_NOMSOI_OUTCOME_H_
#define NOM_TOOLS_NOMSOI_OUTCOME_H_

#include <string>
#include <vector>

#include "NOMSOITypes.h"

namespace nomsoi {

// Exit status when the run finished but referenced files were missing.
constexpr int kExitMissing = 3;

// One file of the outcome.
struct OutcomeItem {
  std::string kind;      // "document", "geometry", "resource" or "save"
  std::string source;    // the file read (for a save: the document written)
  std::string target;    // where it went, or was to go
  std::string referrer;  // the document that names it, when known
  DWORD error = 0;       // the Windows error of a failure
};

struct Outcome {
  std::vector<OutcomeItem> copied;   // each target once, in the order first written (when kept)
  std::vector<OutcomeItem> missing;  // each source once
  std::vector<OutcomeItem> failed;   // each kind, source and target once
  uint64_t documents = 0;            // distinct targets copied, by kind
  uint64_t geometry = 0;
  uint64_t resources = 0;
  uint64_t bytes = 0;
  // Error lines the module logged for a stage that failed (generation, positions, mapping).
  std::vector<std::string> module_failures;
};

// The exit status an outcome stands for: 1 when something failed, else 3 when something was
// missing, else 0.
int ExitStatusOf(const Outcome& outcome);

// "nomsoi <command>: 3 documents, 3 geometry files, 0 resources, 1234 bytes copied; 0 missing,
// 0 failed; output DIR[; module result 0x%08X]" on standard error, then each missing and failed
// file on a line of its own.
void PrintSummary(const std::string& command, const Outcome& outcome, const std::string& output,
                  const HRESULT* module_result);

// Writes the outcome as JSON to path (a native path). "" or what went wrong.
std::string WriteReport(const std::string& path, const std::string& command, int status,
                        const Outcome& outcome, const std::string& output,
                        const HRESULT* module_result);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_OUTCOME_H_
