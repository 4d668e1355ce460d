// Watching the module while it runs: what it copies, cannot open and fails to write, through the
// platform seam and the log.
#ifndef NOM_TOOLS_NOMSOI_MONITOR_H_
#define NOM_TOOLS_NOMSOI_MONITOR_H_

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "copy_ahead.h"
#include "outcome.h"
#include "platform/env.h"
#include "services/NOMZUBLog.h"

namespace nomsoi {

// Watches one run while it lives: installed as the Env and as the log's sink, it records what the
// module copies, finds missing and fails to write, forwards every record to the configured log,
// redirects the saves of the main document and view file when the input is to stay untouched, and
// keeps the progress line on a terminal. Uninstalls itself when destroyed.
class RunMonitor : public nomplat::EnvWrapper, public nomzub::LogSink {
 public:
  // plan: the preflight's items, to name each file's kind and referrer (may be null; when not,
  // it must outlive the monitor). redirects: module path written by the module -> module path
  // to write instead. keep_copied: list every file copied in the outcome (for a report);
  // otherwise copies are only counted, so that a large package costs no memory per file.
  RunMonitor(const PreflightResult* plan, std::map<std::string, std::string> redirects,
             bool keep_copied);
  ~RunMonitor() override;
  RunMonitor(const RunMonitor&) = delete;
  RunMonitor& operator=(const RunMonitor&) = delete;

  // Copies made ahead of the module: each copy of the module first claims its target there.
  // ahead is not owned; null (the default) for none.
  void SetCopyAhead(CopyAhead* ahead) { ahead_ = ahead; }

  // The outcome so far.
  const Outcome& outcome() const { return outcome_; }
  // Hands the outcome over; the monitor's is empty after.
  Outcome TakeOutcome() { return std::move(outcome_); }

  bool CanOpenForReading(const std::string& path) override;
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override;
  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override;
  DWORD WriteFileAtomicFrom(const std::string& path, nomplat::ContentSource& source) override;
  void Write(const std::string& message, int32_t level) override;

  class Progress;

 private:
  // The path a save of path goes to.
  std::string Redirected(const std::string& path) const;
  // size: of the copy at dst, -1 to look it up.
  void NoteCopied(const std::string& src, const std::string& dst, int64_t size);
  void NoteMissing(const std::string& path, const std::string& target);
  void NoteFailed(std::string kind, const std::string& src, const std::string& dst, DWORD error);
  std::string KindOf(const std::string& source, const std::string& target) const;
  std::string ReferrerOf(const std::string& source) const;

  const PreflightResult* plan_;
  std::unordered_map<std::string_view, const PlannedItem*> by_source_;  // into plan_'s items
  std::map<std::string, std::string> redirects_;  // native path -> module path
  std::set<std::string> redirected_names_;        // their file names, without letter case
  Outcome outcome_;
  const bool keep_copied_;
  std::mutex notes_mu_;  // guards what the Note functions record: writes come from several threads
  std::unordered_set<std::string> copied_targets_;
  std::set<std::string> missing_sources_;
  std::set<std::string> failures_;  // kind, source and target of each failure reported
  CopyAhead* ahead_ = nullptr;
  nomplat::Env* previous_env_;
  nomzub::LogSink* previous_sink_;
  std::unique_ptr<Progress> progress_;
};

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_MONITOR_H_
