// What the default Env remembers of the files it read, copied and wrote, so that work already
// done is not done again while the files stay as they were. A package that shares one
// sub-assembly among many parents reaches its documents once per path to them; every visit
// checks, copies and reads the same few files. Each remembered fact is tied to the identity of
// the files it is about (device, inode, size, modification and status-change times), taken again
// before the fact is used: a file replaced, rewritten, truncated, renamed or given other
// permissions since no longer matches, and the work is done as if nothing were remembered.
// Internal to libNOMZUBBase; thread-safe.
#ifndef NOM_PLATFORM_FILE_MEMO_H_
#define NOM_PLATFORM_FILE_MEMO_H_

#include <sys/stat.h>

#include <cstddef>
#include <memory>
#include <string>

#include "win_types.h"

namespace nomplat {

// Who a file is and how it stands: equal for two looks at a file only when nothing about its
// contents or permissions has been changed in between (short of a change of the same size in
// the same clock tick, which no time-based check can see).
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};

  static FileIdentity Of(const struct stat& st);
  bool operator==(const FileIdentity& other) const;
};

// The bytes of a remembered file; shared, never changed once made.
using FileBytes = std::shared_ptr<const std::string>;

// Files up to this size have their contents remembered; larger ones are read each time.
constexpr size_t kMemoFileLimit = 1 << 20;

// Native paths to what is known about the files there. Bounded: contents up to a total of 2 MiB,
// oldest forgotten first; copies and files found readable up to 65,536 each, then forgotten
// all at once.
class NOM_API FileMemo {
 public:
  // The memo of the default Env.
  static FileMemo& Instance();

  // True when native, now id, was opened for reading as id before, or is a copy made here and
  // left as id that its owner, this process, may read.
  bool KnownReadable(const std::string& native, const FileIdentity& id);
  // native, as id, was just opened for reading.
  void NoteReadable(const std::string& native, const FileIdentity& id);

  // True when the last copy from `from` to `to` found `from` as src and left `to` as dst, and
  // both are so again: the copy would write what `to` already holds.
  bool CopyIsCurrent(const std::string& from, const std::string& to, const FileIdentity& src,
                     const FileIdentity& dst);
  // `to`, now dst, was just made a copy of `from`, which was src; readable: this process owns
  // the copy and may read it; verbatim: it holds from's bytes (else contents of its own, which
  // Contents never takes from `from`).
  void NoteCopy(const std::string& from, const std::string& to, const FileIdentity& src,
                const FileIdentity& dst, bool readable = false, bool verbatim = true);

  // The contents of native, now id, when they are remembered: read or written as id, or copied
  // byte for byte as id from a file whose contents are remembered as they were when copied.
  // Null otherwise.
  FileBytes Contents(const std::string& native, const FileIdentity& id);
  // native, now id, holds bytes (read or just written). Larger than kMemoFileLimit: ignored.
  void NoteContents(const std::string& native, const FileIdentity& id, FileBytes bytes);

  // The directory from (a native path) now has the native path to: what is remembered of files
  // inside it is remembered under their new paths (a directory's rename leaves their identities
  // as they were).
  void MoveDirectory(const std::string& from, const std::string& to);

  // Forgets everything (a test that rewrites files within one clock tick calls it).
  void Clear();

  FileMemo();
  ~FileMemo();
  FileMemo(const FileMemo&) = delete;
  FileMemo& operator=(const FileMemo&) = delete;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Forgets what the default Env remembers of files: the next call of each kind does its work.
NOM_API void ForgetRememberedFiles();

}  // namespace nomplat

#endif  // NOM_PLATFORM_FILE_MEMO_H_
