// What a run of the module gave the user: every copy, missing file and failure seen through the
// platform layer and the log while it ran, the summary line, the JSON report and the exit status.
#ifndef NOM_TOOLS_NOMSOI_OUTCOME_H_
#define NOM_TOOLS_NOMSOI_OUTCOME_H_

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "NOMSOITypes.h"
#include "packngo/Preflight.h"
#include "platform/env.h"
#include "services/NOMZUBLog.h"

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
  std::vector<OutcomeItem> copied;   // each target once, in the order first written
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

// Watches one run while it lives: installed as the Env and as the log's sink, it records what the
// module copies, finds missing and fails to write, forwards every record to the configured log,
// redirects the saves of the main document and view file when the input is to stay untouched, and
// keeps the progress line on a terminal. Uninstalls itself when destroyed.
class RunMonitor : public nomplat::EnvWrapper, public nomzub::LogSink {
 public:
  // plan: the preflight's items, to name each file's kind and referrer (may be null).
  // redirects: module path written by the module -> module path to write instead.
  RunMonitor(const PreflightResult* plan, std::map<std::string, std::string> redirects);
  ~RunMonitor() override;
  RunMonitor(const RunMonitor&) = delete;
  RunMonitor& operator=(const RunMonitor&) = delete;

  // The outcome so far.
  const Outcome& outcome() const { return outcome_; }

  bool CanOpenForReading(const std::string& path) override;
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override;
  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override;
  DWORD WriteFileAtomicFrom(const std::string& path, nomplat::ContentSource& source) override;
  void Write(const std::string& message, int32_t level) override;

  class Progress;

 private:
  // The path a save of path goes to.
  std::string Redirected(const std::string& path) const;
  void NoteCopied(const std::string& src, const std::string& dst);
  void NoteMissing(const std::string& path, const std::string& target);
  void NoteFailed(std::string kind, const std::string& src, const std::string& dst, DWORD error);
  std::string KindOf(const std::string& source, const std::string& target) const;
  std::string ReferrerOf(const std::string& source) const;

  const PreflightResult* plan_;
  std::map<std::string, const PlannedItem*> by_source_;
  std::map<std::string, std::string> redirects_;  // native path -> module path
  Outcome outcome_;
  std::set<std::string> copied_targets_;
  std::set<std::string> missing_sources_;
  std::set<std::string> failures_;  // kind, source and target of each failure reported
  nomplat::Env* previous_env_;
  nomzub::LogSink* previous_sink_;
  std::unique_ptr<Progress> progress_;
};

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
