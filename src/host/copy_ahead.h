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
#include <unordered_set>
#include <vector>

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
// A product document is made as the module's rewrite of its copy will leave it
// (RewrittenDocument, CopyFileRewritten), so that the rewrite saves nothing new; not one whose
// name the walk looks for anywhere and does not find (the module might read it as a source
// before its rewrite), which is a plain copy.
//
// Nothing is copied ahead under confinement or while another Env than the default one is in
// force (a test's fault injector), since only the default Env remembers copies.
class NOM_API CopyAhead {
 public:
  // plan must outlive this object; soi_directory: the run's output directory, which exists.
  // made: indices of plan items whose copies stand in it already (StagedCopies), not copied
  // again. Starts the thread when there is anything to copy ahead, unless start is false (Start
  // then).
  CopyAhead(const PreflightResult& plan, const std::string& soi_directory, bool start = true,
            const std::vector<size_t>& made = {});
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
  // without letter case, and *rewrite whether it is made as its rewrite will leave it.
  bool Eligible(const PlannedItem& item, size_t* name_hash, bool* rewrite) const;

  const PreflightResult& plan_;
  std::string soi_native_;               // the SOI directory's native path, as written
  std::set<std::string> reserved_;       // names in it the run looks for and cannot find
  std::set<std::string> missing_names_;  // names the run looks for anywhere and cannot find
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

// The bytes a copied product document holds after the module's rewrite of it (its references
// cut down to bare file names) when the copy held bytes, into *rewritten. True only when the
// rewrite would save the document and rewriting its result again gives the same bytes, so that
// the module, finding these bytes in the file, saves exactly them. False (*rewritten cleared)
// for bytes that do not parse, a document the rewrite leaves unsaved, one whose rewrite is not
// stable, and while a DOM hook is installed (a hook may make the module's save fail, which must
// then leave the plain copy).
NOM_API bool RewrittenDocument(const std::string& bytes, std::string* rewritten);

// Copies made while the preflight walks, into an output directory that does not exist yet: it
// is staged under a hidden name beside it (".NAME.nomsoi-staging.PID"), and a second thread
// copies the documents and geometry the walk plans there, in the walk's order, as it plans them.
// The preflight looks at none of it, so its plan and refusals are those of a run without it. When
// the run may start, Commit gives the staging directory the output directory's name in one
// rename (what the default Env remembers of the copies goes with them), and CopyAhead leaves the
// copies made to the module, which finds them current. When the run is refused, the staging
// directory goes with everything in it: nothing was written.
//
// A product document is staged as the module's rewrite of its copy will leave it (its
// references cut down to bare file names, RewrittenDocument), where that rewrite is stable: the
// module's copy finds it current, its rewrite reads these bytes and saves the same bytes, so
// nothing is written twice. A document the rewrite would not save, or not save stably, is
// staged as a plain copy.
//
// What the module sees does not change, for the reasons CopyAhead gives: only new files are made
// (never over one that stands), in the module's own order, so that of two targets sharing a name
// without letter case the first is made and the later one left to the module; no name of a file
// the walk looked for and did not find is made (a rewritten document whose name turns out so
// after it was staged is removed again at Commit, since the module might read it as a copy
// before its rewrite). Nothing is staged under confinement, while
// another Env than the default one is in force, or when the output directory or its parent
// cannot be named or looked at.
class NOM_API StagedCopies {
 public:
  // out: the run's output directory (module path); own_files: the main document and view file
  // (module paths, "" for none), whose names nothing is staged under, since the run journals
  // what stands there before it saves them. Creates the staging directory and starts the thread
  // when out does not exist and its parent does; else does nothing (active() false).
  StagedCopies(const std::string& out, const std::vector<std::string>& own_files);
  // Discards the staging directory unless Commit moved it into place.
  ~StagedCopies();
  StagedCopies(const StagedCopies&) = delete;
  StagedCopies& operator=(const StagedCopies&) = delete;

  bool active() const { return active_; }

  // The preflight's on_planned: item `index` of the plan, whose source the look-up found at
  // native_source, queued for the thread when it may be copied ahead. Cheap; called on the
  // preflight's thread.
  void Planned(size_t index, const PlannedItem& item, const std::string& native_source);

  // Waits until every item queued so far has been copied or refused (or copying stopped).
  void Finish();

  // Stops the thread after the copy it is making and gives the staging directory the output
  // directory's name. Returns the plan indices of the copies that stand there; empty (and the
  // staging directory removed) when nothing was staged or the rename failed.
  std::vector<size_t> Commit();
  // Stops the thread and removes the staging directory with everything in it.
  void Discard();

 private:
  struct Job {
    size_t index;
    std::string source;  // native
    std::string target;  // native, in the staging directory
    size_t name;         // hash of the target's name without letter case
    bool document;       // a product document: staged rewritten where it can be
  };
  // A document staged rewritten.
  struct Rewritten {
    size_t index;
    size_t name;
    std::string target;
  };

  void Run();
  void Stop();

  bool active_ = false;
  std::string out_native_;      // the output directory, native, where it will be made
  std::string out_as_written_;  // the same with every name as written, as targets name it
  std::string staging_native_;  // the staging directory, native
  // Hashes of names without letter case (two names of one hash are taken as one: a copy left to
  // the module at worst): names the walk looked for and did not find and the own files' names;
  // names of the targets queued.
  std::unordered_set<size_t> reserved_;
  std::unordered_set<size_t> queued_names_;
  std::vector<Job> queue_;
  std::vector<size_t> made_;
  std::vector<Rewritten> rewritten_;
  std::mutex mu_;
  std::condition_variable queued_;
  std::condition_variable idle_;
  size_t pending_ = 0;  // jobs queued and not yet done
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace nomsoi

#endif  // NOM_HOST_COPY_AHEAD_H_
