// The copy-ahead thread and its hand-over to the module.
#include "copy_ahead.h"

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <utility>
#include <vector>

#include "packngo/RelativePaths.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/winerror.h"

namespace nomsoi {
namespace {

// The directory part of a native path and the name after it ("" for a path without "/").
std::pair<std::string_view, std::string_view> SplitNative(std::string_view native) {
  const size_t slash = native.rfind('/');
  if (slash == std::string_view::npos) return {std::string_view(), native};
  return {native.substr(0, slash), native.substr(slash + 1)};
}

// The hash of the file name of module path `path`, without letter case.
size_t NameHash(const std::string& path) {
  return std::hash<std::string>()(nomplat::FileNameKey(path));
}

// Removes the staging directories named prefix + PID in parent whose process is gone: a run
// killed while its preflight walked leaves one behind.
void RemoveAbandonedStaging(const std::string& parent, const std::string& prefix) {
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(parent, ec)) {
    const std::string file = entry.path().filename().string();
    if (file.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string digits = file.substr(prefix.size());
    if (digits.empty() || digits.size() > 9 ||
        digits.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    const pid_t pid = static_cast<pid_t>(std::stol(digits));
    if (pid > 0 && kill(pid, 0) != 0 && errno == ESRCH) {
      std::error_code ignored;
      std::filesystem::remove_all(entry.path(), ignored);
    }
  }
}

// What the module's rewrite saves for bytes, into *saved; false when it saves nothing.
bool RewriteOnce(const std::string& bytes, std::string* saved) {
  NOMZUBDOMWrapper doc;
  HRESULT rc = S_OK;
  return doc.OpenBytes(bytes) >= 0 && CutReferencesToNames(doc, &rc) && doc.SaveBytes(saved) >= 0;
}

}  // namespace

bool RewrittenDocument(const std::string& bytes, std::string* rewritten) {
  rewritten->clear();
  std::string again;
  if (nomzub::DomHookInstalled() || !RewriteOnce(bytes, rewritten) ||
      !RewriteOnce(*rewritten, &again) || again != *rewritten) {
    rewritten->clear();
    return false;
  }
  return true;
}

CopyAhead::CopyAhead(const PreflightResult& plan, const std::string& soi_directory, bool start,
                     const std::vector<size_t>& made)
    : plan_(plan), states_(new std::atomic<uint8_t>[plan.items.size()]) {
  const size_t count = plan_.items.size();
  for (size_t i = 0; i < count; ++i) states_[i].store(kPending);
  for (size_t i : made) {
    if (i < count) states_[i].store(kDone);
  }

  DWORD error = 0;
  nomplat::FileFacts soi;
  if (!nomplat::ToNativePathAsWritten(soi_directory, &soi_native_, &error) ||
      nomplat::StatModulePath(soi_directory, &soi) != 0 || !soi.exists) {
    return;  // nothing is copied ahead into a directory that cannot be named or found
  }
  while (soi_native_.size() > 1 && soi_native_.back() == '/') soi_native_.pop_back();

  for (size_t i = 0; i < count; ++i) {
    // A target planned twice (allowed collisions) keeps its first item here; Run leaves every
    // name planned twice to the module.
    const PlannedItem& item = plan_.items[i];
    by_target_.emplace(item.target, i);
    if (item.present) {
      any_ = true;
      continue;
    }
    // A name the walk looks for somewhere and does not find: were it looked for in the SOI
    // directory after all, a document made under it must be the plain copy.
    missing_names_.insert(nomplat::FileNameKey(item.source));
    // A file the run looks for and does not find must still be missing when it looks: a name
    // of the SOI directory that one stands for is not copied ahead.
    const std::string native = NativePath(item.source);
    struct stat parent;
    if (stat(std::string(SplitNative(native).first).c_str(), &parent) == 0 &&
        parent.st_dev == soi.device && parent.st_ino == soi.inode) {
      reserved_.insert(nomplat::FileNameKey(item.source));
    }
  }
  if (start) Start();
}

void CopyAhead::Start() {
  if (any_ && !thread_.joinable()) thread_ = std::thread([this] { Run(); });
}

void CopyAhead::Finish() {
  if (thread_.joinable()) thread_.join();
}

CopyAhead::~CopyAhead() {
  stop_.store(true);
  if (thread_.joinable()) thread_.join();
}

bool CopyAhead::Eligible(const PlannedItem& item, size_t* name_hash, bool* rewrite) const {
  if (!item.present || item.kind == ItemKind::kResource) return false;
  std::string native;
  DWORD error = 0;
  if (!nomplat::ToNativePathAsWritten(item.target, &native, &error)) return false;
  const auto [directory, name] = SplitNative(native);
  if (directory != soi_native_ || name.empty() || name == "." || name == "..") return false;
  const std::string key = nomplat::FileNameKey(item.target);
  if (reserved_.count(key) > 0) return false;
  *name_hash = std::hash<std::string>()(key);
  *rewrite = item.kind == ItemKind::kDocument && missing_names_.count(key) == 0;
  return true;
}

void CopyAhead::Run() {
  // First the targets that may be copied ahead, each with its name without letter case: names
  // that two targets share (or whose hashes collide) are left to the module, which writes them
  // in its order, so that the first spelling to be created is the one that stays.
  const size_t count = plan_.items.size();
  std::vector<size_t> hashes(count);
  std::vector<bool> eligible(count), rewrite(count);
  std::unordered_map<size_t, uint32_t> names;
  for (size_t i = 0; i < count && !stop_.load(std::memory_order_relaxed); ++i) {
    bool rewritten = false;
    eligible[i] = Eligible(plan_.items[i], &hashes[i], &rewritten);
    rewrite[i] = rewritten;
    if (eligible[i]) ++names[hashes[i]];
  }
  // From the end of the plan backwards, while the module works from its start: the two meet
  // once, instead of the module catching up with the copy in hand at every step and waiting.
  nomplat::Env* const env = nomplat::Env::Default();
  for (size_t i = count; i-- > 0 && !stop_.load(std::memory_order_relaxed);) {
    if (!eligible[i] || names[hashes[i]] > 1) continue;
    uint8_t expected = kPending;
    if (!states_[i].compare_exchange_strong(expected, kCopying)) continue;
    const PlannedItem& item = plan_.items[i];
    // Never over an existing file: what stands at a target is the module's to replace. A
    // product document is made as the module's rewrite will leave it, where it can be.
    const DWORD error = rewrite[i] ? nomplat::CopyFileRewritten(item.source, item.target,
                                                                RewrittenDocument, nullptr)
                                   : env->CopyFile(item.source, item.target, true);
    if (error == 0) ++copied_;
    states_[i].store(kDone);
    // The module waits rarely: only then is the lock taken and the waiter woken.
    if (waiters_.load() > 0) {
      { std::lock_guard<std::mutex> lock(mu_); }
      copied_one_.notify_all();
    }
  }
}

void CopyAhead::Claim(const std::string& target) {
  const auto found = by_target_.find(target);
  if (found == by_target_.end()) return;
  std::atomic<uint8_t>& state = states_[found->second];
  uint8_t expected = kPending;
  if (state.compare_exchange_strong(expected, kTaken) || expected != kCopying) return;
  std::unique_lock<std::mutex> lock(mu_);
  ++waiters_;
  copied_one_.wait(lock, [&state] { return state.load() != kCopying; });
  --waiters_;
}

StagedCopies::StagedCopies(const std::string& out, const std::vector<std::string>& own_files) {
  DWORD error = 0;
  nomplat::FileFacts facts;
  // Missing in every letter case: the module, too, would find nothing there.
  if (nomplat::CurrentEnv() != nomplat::Env::Default() || nomplat::ReadsConfined() ||
      nomplat::StatModulePath(out, &facts) != 0 || facts.exists ||
      !nomplat::ToNativePathAsWritten(out, &out_as_written_, &error)) {
    return;
  }
  while (out_as_written_.size() > 1 && out_as_written_.back() == '/') out_as_written_.pop_back();
  out_native_ = facts.native;  // the parents that exist, in their own letter case
  while (out_native_.size() > 1 && out_native_.back() == '/') out_native_.pop_back();
  const auto [parent, name] = SplitNative(out_native_);
  if (parent.empty() || name.empty() || name == "." || name == "..") return;
  struct stat st;
  if (lstat(out_native_.c_str(), &st) == 0 || errno != ENOENT) return;
  const std::string parent_native(parent);
  if (stat(parent_native.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return;
  const std::string prefix = "." + std::string(name) + ".nomsoi-staging.";
  RemoveAbandonedStaging(parent_native, prefix);
  staging_native_ = parent_native + "/" + prefix + std::to_string(getpid());
  if (mkdir(staging_native_.c_str(), 0777) != 0) return;
  for (const std::string& own : own_files) {
    if (!own.empty()) reserved_.insert(NameHash(own));
  }
  active_ = true;
  // The copying thread leaves the interrupting signals to the thread that waits for them.
  sigset_t all, previous;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &previous);
  thread_ = std::thread([this] { Run(); });
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

StagedCopies::~StagedCopies() { Discard(); }

void StagedCopies::Planned(size_t index, const PlannedItem& item,
                           const std::string& native_source) {
  if (!active_ || (item.present && native_source.empty())) return;
  const size_t key = NameHash(item.present ? item.target : item.source);
  std::lock_guard<std::mutex> lock(mu_);
  if (!item.present) {
    // Wherever the walk looked for it: the module looks in the output directory too, maybe.
    reserved_.insert(key);
    return;
  }
  if (item.kind == ItemKind::kResource || reserved_.count(key) > 0) return;
  std::string native;
  DWORD error = 0;
  if (!nomplat::ToNativePathAsWritten(item.target, &native, &error)) return;
  const auto [directory, name] = SplitNative(native);
  if (directory != out_as_written_ || name.empty() || name == "." || name == "..") return;
  // Of two targets sharing a name without letter case, the first is made, the later left to the
  // module (which replaces it in the first one's spelling).
  if (!queued_names_.insert(key).second) return;
  queue_.push_back({index, native_source, staging_native_ + "/" + std::string(name), key,
                    item.kind == ItemKind::kDocument});
  ++pending_;
  queued_.notify_one();
}

void StagedCopies::Finish() {
  std::unique_lock<std::mutex> lock(mu_);
  idle_.wait(lock, [this] { return pending_ == 0 || stop_.load(); });
}

void StagedCopies::Run() {
  std::vector<Job> jobs;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mu_);
      queued_.wait(lock, [this] { return stop_.load() || !queue_.empty(); });
      if (stop_.load()) return;
      jobs.swap(queue_);
    }
    for (const Job& job : jobs) {
      if (stop_.load()) return;
      // In a directory of the run's own: made in place, remembered as the module's copies are.
      bool rewritten = false;
      const DWORD error = job.document ? nomplat::CopyToNewFileRewritten(
                                             job.source, job.target, RewrittenDocument, &rewritten)
                                       : nomplat::CopyToNewFile(job.source, job.target);
      std::lock_guard<std::mutex> lock(mu_);
      if (error == 0) made_.push_back(job.index);
      if (rewritten) rewritten_.push_back({job.index, job.name, job.target});
      if (error == nomplat::kErrorDiskFull) stop_.store(true);  // the preflight tells about space
      if (--pending_ == 0 || stop_.load()) idle_.notify_all();
    }
    jobs.clear();
  }
}

void StagedCopies::Stop() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    stop_.store(true);
  }
  queued_.notify_one();
  idle_.notify_all();
  if (thread_.joinable()) thread_.join();
}

std::vector<size_t> StagedCopies::Commit() {
  if (!active_) return {};
  Stop();
  // A name the walk looked for and did not find after its document was staged: the module may
  // read that file before its rewrite, and must find the plain copy it made itself.
  std::unordered_set<size_t> withdrawn;
  for (const Rewritten& document : rewritten_) {
    if (reserved_.count(document.name) > 0 && unlink(document.target.c_str()) == 0) {
      withdrawn.insert(document.index);
    }
  }
  if (!withdrawn.empty()) {
    made_.erase(std::remove_if(made_.begin(), made_.end(),
                               [&withdrawn](size_t index) { return withdrawn.count(index) > 0; }),
                made_.end());
  }
  if (made_.empty() || nomplat::MoveNewDirectory(staging_native_, out_native_) != 0) {
    Discard();
    return {};
  }
  active_ = false;
  return std::move(made_);
}

void StagedCopies::Discard() {
  if (!active_) return;
  Stop();
  active_ = false;
  made_.clear();
  std::error_code ignored;
  std::filesystem::remove_all(staging_native_, ignored);
}

}  // namespace nomsoi
