// The previous bytes of the files a run rewrites in place (the main document and the view file),
// kept in the output directory so that a run that fails, or is interrupted, even by kill -9,
// leaves them as they were.
#ifndef NOM_TOOLS_NOMSOI_JOURNAL_H_
#define NOM_TOOLS_NOMSOI_JOURNAL_H_

#include <string>
#include <vector>

#include "NOMSOITypes.h"

namespace nomsoi {

class NOM_API Journal {
 public:
  // The journal's folder inside an output directory.
  static constexpr const char* kFolder = ".nomsoi-journal";

  Journal() = default;
  // An open journal is left on disk for the next run to restore.
  ~Journal() = default;
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // Puts back the files a run interrupted in native directory dir left journalled, and removes
  // the journal. Returns the native paths restored (empty when there was no journal). A journal
  // without its list (the run died while starting it) is removed.
  static std::vector<std::string> RecoverInterrupted(const std::string& dir);

  // Starts a journal in native directory dir for the native files targets: keeps a copy of each
  // one that exists, and notes the others as absent. Returns "" or what went wrong (nothing is
  // then journalled).
  std::string Begin(const std::string& dir, const std::vector<std::string>& targets);
  // Puts every journalled file back as it was (an absent one is removed) and removes the journal.
  // Safe to call from the thread that waits for an interrupted run.
  void Restore();
  // Keeps the files as the run left them and removes the journal.
  void Commit();
  // True between Begin and Restore or Commit.
  bool open() const { return !folder_.empty(); }

 private:
  struct Entry {
    std::string backup;  // the copy in the journal, "" when the file did not exist
    std::string target;
  };
  // Renames each backup over its target (or removes a target that did not exist before).
  static void PutBack(const std::vector<Entry>& entries);
  static void RemoveFolder(const std::string& folder);

  std::string folder_;
  std::vector<Entry> entries_;
};

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_JOURNAL_H_
