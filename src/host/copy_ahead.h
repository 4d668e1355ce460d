// Copying a planned package beside the module: a thread that makes the preflight's copies while
// the module walks, from the last planned copy backwards, so that the module's own copy of each
// file it reaches finds it made already and does nothing (the default Env remembers the copies
// it made), and the module and the thread meet once, near the middle.
#ifndef NOM_HOST_COPY_AHEAD_H_
#define NOM_HOST_COPY_AHEAD_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>

#include "NOMSOIHost.h"

namespace nomsoi {

// What the module sees does not change: the thread only makes copies of documents and geometry
// whose target lies directly in the SOI directory and does not exist yet (it never replaces a
// file), none to a name that two targets share without letter case (the module's order decides
// which spelling is created), and none whose name is that of a file the run looks for and cannot
// find (the module would find the copy sooner than it should). A copy that fails is left to the
// module, which then makes it and meets the failure itself. The module's copy of a file the thread
// is copying waits for it; one the thread has not reached is the module's, and the thread skips it.
//
// Nothing is copied ahead under confinement or while another Env than the default one is in
// force (a test's fault injector), since only the default Env remembers copies.
class NOM_API CopyAhead {
 public:
  // plan must outlive this object; soi_directory: the run's output directory, which exists.
  // Starts the thread when there is anything to copy ahead, unless start is false (Start then).
  CopyAhead(const PreflightResult& plan, const std::string& soi_directory, bool start = true);
  // Stops the thread after the copy it is making, and waits for it.
  ~CopyAhead();
  CopyAhead(const CopyAhead&) = delete;
  CopyAhead& operator=(const CopyAhead&) = delete;

  // Called before the module copies to target: waits while the thread copies to it, and keeps
  // the thread from starting to. A target the plan does not hold returns at once.
  void Claim(const std::string& target);

  // Starts the thread, when it was not started and there is anything to copy ahead.
  void Start();
  // Waits until the thread has gone through the whole plan.
  void Finish();

  // Copies made ahead that succeeded, for tests and benchmarks.
  uint64_t copied() const { return copied_.load(); }

 private:
  enum State : uint8_t { kPending, kTaken, kCopying, kDone };

  void Run();
  // Whether item may be copied ahead; *name_hash then receives the hash of its target's name
  // without letter case.
  bool Eligible(const PlannedItem& item, size_t* name_hash) const;

  const PreflightResult& plan_;
  std::string soi_native_;             // the SOI directory's native path, as written
  std::set<std::u32string> reserved_;  // names in it the run looks for and cannot find
  std::unordered_map<std::string_view, size_t> by_target_;  // into plan_.items
  std::unique_ptr<std::atomic<uint8_t>[]> states_;
  std::mutex mu_;
  std::condition_variable copied_one_;
  std::atomic<int> waiters_{0};  // module calls waiting for a copy to end
  std::atomic<bool> stop_{false};
  std::atomic<uint64_t> copied_{0};
  bool any_ = false;  // a source in the plan can be read
  std::thread thread_;
};

}  // namespace nomsoi

#endif  // NOM_HOST_COPY_AHEAD_H_
