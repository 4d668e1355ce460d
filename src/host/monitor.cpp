// The run monitor: an Env wrapper and log sink installed while the module runs.
#include "monitor.h"

#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <shared_mutex>
#include <utility>

#include "module_thread.h"
#include "platform/paths.h"

namespace nomsoi {
namespace {

// The module's own lines for a stage that failed; Pack & Go's result is left out, since what the
// copies did tells more than the last document's code.
const char* const kStageFailures[] = {
    "****** ERROR:\t Error in VGX files Generation.",
    "****** ERROR:\t Error in Applying Positions.",
    "****** ERROR:\t ERROR:\t Error in generating MappingXML.",
    "****** ERROR:\t GenerateMappingXML failed...",
    "Info:\t Failed to get SOI.vgxXml file path",
};

bool EndsWithIgnoringCase(const std::string& text, const std::string& suffix) {
  if (text.size() < suffix.size()) return false;
  for (size_t i = 0; i < suffix.size(); ++i) {
    const char a = text[text.size() - suffix.size() + i];
    const char b = suffix[i];
    if ((a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) != (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b))
      return false;
  }
  return true;
}

bool SameFile(const std::string& first, const std::string& second) {
  nomplat::FileFacts a, b;
  return nomplat::StatModulePath(first, &a) == 0 && nomplat::StatModulePath(second, &b) == 0 &&
         a.exists && b.exists && a.device == b.device && a.inode == b.inode;
}

uint64_t SizeOf(const std::string& module_path) {
  nomplat::FileFacts facts;
  return nomplat::StatModulePath(module_path, &facts) == 0 ? facts.size : 0;
}

}  // namespace

// The progress line on a terminal: "copied N documents, M bytes", redrawn at most ten times a
// second and erased before a log record is written to the same terminal.
class RunMonitor::Progress {
 public:
  void Update(const Outcome& outcome) {
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_draw_ < std::chrono::milliseconds(100)) return;
    last_draw_ = now;
    char line[128];
    std::snprintf(line, sizeof line, "\rcopied %" PRIu64 " documents, %" PRIu64 " bytes\033[K",
                  outcome.documents, outcome.bytes);
    WriteToStderr(line);
    drawn_ = true;
  }
  void Erase() {
    if (!drawn_) return;
    WriteToStderr("\r\033[K");
    drawn_ = false;
  }
  ~Progress() { Erase(); }

 private:
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_draw_;
};

RunMonitor::RunMonitor(const PreflightResult* plan, std::map<std::string, std::string> redirects,
                       bool keep_copied)
    : EnvWrapper(nomplat::CurrentEnv()), plan_(plan), keep_copied_(keep_copied) {
  if (plan_ != nullptr) {
    for (const PlannedItem& item : plan_->items) by_source_.emplace(item.source, &item);
  }
  for (auto& redirect : redirects) {
    redirected_names_.insert(nomplat::FileNameKey(redirect.first));
    redirects_[NativePath(redirect.first)] = redirect.second;
  }
  // No progress line for a quiet run: it says nothing unless something goes wrong.
  if (isatty(STDERR_FILENO) && CurrentVerbosity() != Verbosity::kQuiet)
    progress_ = std::make_unique<Progress>();
  previous_env_ = nomplat::SetCurrentEnv(this);
  previous_sink_ = nomzub::SetLogSink(this);
}

RunMonitor::~RunMonitor() {
  progress_.reset();
  nomzub::SetLogSink(previous_sink_);
  nomplat::SetCurrentEnv(previous_env_);
}

std::string RunMonitor::Redirected(const std::string& path) const {
  // Only a file named like a redirected one can be it: the name is compared before the whole
  // path is mapped, so that the module's many other saves cost no look-up here.
  if (redirects_.empty() || redirected_names_.count(nomplat::FileNameKey(path)) == 0) return path;
  const auto found = redirects_.find(NativePath(path));
  return found == redirects_.end() ? path : found->second;
}

std::string RunMonitor::KindOf(const std::string& source, const std::string& target) const {
  const auto found = by_source_.find(source);
  if (found != by_source_.end()) return ItemKindName(found->second->kind);
  if (EndsWithIgnoringCase(target, ".vgxGeom")) return "geometry";
  if (EndsWithIgnoringCase(target, ".vgxXml")) return "document";
  return "resource";
}

std::string RunMonitor::ReferrerOf(const std::string& source) const {
  const auto found = by_source_.find(source);
  return found == by_source_.end() ? std::string() : found->second->referrer;
}

void RunMonitor::NoteCopied(const std::string& src, const std::string& dst, int64_t size) {
  std::lock_guard<std::mutex> lock(notes_mu_);
  if (!copied_targets_.insert(dst).second) return;
  std::string kind = KindOf(src, dst);
  if (kind == "document") {
    ++outcome_.documents;
  } else if (kind == "geometry") {
    ++outcome_.geometry;
  } else {
    ++outcome_.resources;
  }
  outcome_.bytes += size >= 0 ? static_cast<uint64_t>(size) : SizeOf(dst);
  // The item with its paths only for a report: a large package costs no memory per file.
  if (keep_copied_) outcome_.copied.push_back({std::move(kind), src, dst, ReferrerOf(src), 0});
  if (progress_) progress_->Update(outcome_);
}

void RunMonitor::NoteMissing(const std::string& path, const std::string& target) {
  std::lock_guard<std::mutex> lock(notes_mu_);
  if (!missing_sources_.insert(path).second) return;
  const auto found = by_source_.find(path);
  OutcomeItem item{KindOf(path, target.empty() ? path : target), path, target, ReferrerOf(path), 0};
  if (found != by_source_.end() && item.target.empty()) item.target = found->second->target;
  outcome_.missing.push_back(std::move(item));
}

void RunMonitor::NoteFailed(std::string kind, const std::string& src, const std::string& dst,
                            DWORD error) {
  std::lock_guard<std::mutex> lock(notes_mu_);
  if (!failures_.insert(kind + '\n' + src + '\n' + dst).second) return;
  outcome_.failed.push_back({std::move(kind), src, dst, ReferrerOf(src), error});
}

bool RunMonitor::CanOpenForReading(const std::string& path) {
  const bool readable = EnvWrapper::CanOpenForReading(path);
  if (!readable) NoteMissing(path, "");
  return readable;
}

DWORD RunMonitor::CopyFile(const std::string& src, const std::string& dst, bool failIfExists) {
  std::shared_lock<std::shared_mutex> gate(WriteGate());
  if (ahead_ != nullptr) ahead_->Claim(dst);
  nomplat::ForgetLastCopySize();
  const DWORD error = EnvWrapper::CopyFile(src, dst, failIfExists);
  if (error == 0) {
    NoteCopied(src, dst, nomplat::LastCopySize());
  } else if (SameFile(src, dst)) {
    NoteCopied(src, dst, -1);  // already in place: copying a file onto itself changes nothing
  } else if ((error == 2 || error == 3) && !EnvWrapper::CanOpenForReading(src)) {
    NoteMissing(src, dst);
  } else {
    NoteFailed(KindOf(src, dst), src, dst, error);
  }
  return error;
}

DWORD RunMonitor::WriteFileAtomic(const std::string& path, const std::string& contents) {
  std::shared_lock<std::shared_mutex> gate(WriteGate());
  const std::string target = Redirected(path);
  const DWORD error = EnvWrapper::WriteFileAtomic(target, contents);
  if (error != 0) NoteFailed("save", path, target, error);
  return error;
}

DWORD RunMonitor::WriteFileAtomicFrom(const std::string& path, nomplat::ContentSource& source) {
  std::shared_lock<std::shared_mutex> gate(WriteGate());
  const std::string target = Redirected(path);
  const DWORD error = EnvWrapper::WriteFileAtomicFrom(target, source);
  if (error != 0) NoteFailed("save", path, target, error);
  return error;
}

void RunMonitor::Write(const std::string& message, int32_t level) {
  if (level < 2) {
    for (const char* failure : kStageFailures) {
      if (message == failure) outcome_.module_failures.push_back(message);
    }
  }
  // Records reach standard error when the log goes there or a verbose run echoes them.
  const bool under_progress =
      progress_ && (LogGoesToStderr() || CurrentVerbosity() == Verbosity::kVerbose);
  if (under_progress) progress_->Erase();
  if (previous_sink_ != nullptr) {
    previous_sink_->Write(message, level);
  } else {
    nomzub::WriteToConfiguredLog(message, level);
  }
  // On the terminal the record must be out before the progress line is drawn again.
  if (under_progress) nomzub::FlushLog();
}

}  // namespace nomsoi
