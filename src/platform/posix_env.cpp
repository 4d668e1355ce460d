// The default Env: module paths mapped to native ones (paths.h) and POSIX calls on them.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/case_lookup.h"
#include "platform/env.h"
#include "platform/fd.h"
#include "platform/file_memo.h"
#include "platform/path_syntax.h"
#include "platform/paths.h"
#include "platform/winerror.h"

namespace nomplat {
namespace {

// The size of the target the calling thread's last copy through the default Env made or found
// current; -1 when unknown.
thread_local int64_t t_last_copy_size = -1;

// A file whose mode grants no write permission to anyone is read-only, as a file with Windows'
// read-only attribute; checked by us because the kernel lets root write it.
bool IsReadOnly(const struct stat& st) { return (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0; }

// The Windows error for errno err from a call on native path p: a missing entry is a missing
// file (2) when its directory exists and a missing directory (3) otherwise.
DWORD PathError(const std::string& p, int err) {
  if (err != ENOENT) return MapErrno(err);
  struct stat st;
  const std::string parent = ParentDirectory(p);
  return stat(parent.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? kErrorFileNotFound
                                                               : kErrorPathNotFound;
}

// Opens native path p for reading without blocking on a FIFO; *st receives its status.
// Returns 0 or the Windows error; anything but a regular file is refused with 5. Under
// confinement the real path of p (links resolved) is checked first: outside every root it is
// refused with 5, inside it is the path opened, and a link swapped in since is not followed.
DWORD OpenRegularForReading(const std::string& p, Fd* fd, struct stat* st) {
  std::string real;
  int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
  if (ReadsConfined()) {
    if (!RealPath(p, &real)) return PathError(p, errno);
    if (!IsConfined(real)) return kErrorAccessDenied;
    flags |= O_NOFOLLOW;
  }
  const std::string& path = real.empty() ? p : real;
  Fd opened(open(path.c_str(), flags));
  if (!opened) return PathError(path, errno);
  if (fstat(opened.get(), st) != 0) return MapErrno(errno);
  if (!S_ISREG(st->st_mode)) return kErrorAccessDenied;
  *fd = std::move(opened);
  return 0;
}

// The memo of files is used only without confinement: under confinement every read resolves
// the real path again, so that a link swapped in is never followed out of the roots.
FileMemo* Memo() { return ReadsConfined() ? nullptr : &FileMemo::Instance(); }

// The identity of the regular file at native path p, links followed unless followLinks is false;
// false when p names no regular file. What the path's look-up found stands for a fresh look.
bool RegularIdentity(const std::string& p, const FoundEntry& found, bool followLinks,
                     FileIdentity* id) {
  struct stat st;
  const struct stat* seen = &st;
  if (found.missing) return false;
  if (found.known && (!followLinks || !S_ISLNK(found.st.st_mode))) {
    seen = &found.st;
  } else if ((followLinks ? stat(p.c_str(), &st) : lstat(p.c_str(), &st)) != 0) {
    return false;
  }
  if (!S_ISREG(seen->st_mode)) return false;
  *id = FileIdentity::Of(*seen);
  return true;
}

DWORD CopyByReadWrite(int in, int out) {
  std::vector<char> buffer(1 << 16);
  for (;;) {
    const ssize_t n = read(in, buffer.data(), buffer.size());
    if (n == 0) return 0;
    if (n < 0) {
      if (errno == EINTR) continue;
      return MapErrno(errno);
    }
    if (const DWORD error = WriteAll(out, buffer.data(), static_cast<size_t>(n))) return error;
  }
}

// Copies in to out in the kernel (which may share extents) or, where the file systems do not
// allow it, through a buffer: the size source gave when the file was opened, or less when it
// ends sooner. Files that report no size (as in /proc) are read to their end.
DWORD CopyContents(int in, int out, const struct stat& source) {
  if (source.st_size == 0) return CopyByReadWrite(in, out);
  off_t copied = 0;
  for (;;) {
    const ssize_t n = copy_file_range(in, nullptr, out, nullptr, 1 << 30, 0);
    if (n > 0) {
      copied += n;
      if (copied >= source.st_size) return 0;  // no call to find the end already reached
      continue;
    }
    if (n == 0) return 0;
    if (errno == EINTR) continue;
    if (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP) {
      return CopyByReadWrite(in, out);
    }
    return MapErrno(errno);
  }
}

// Gives out the modification time of source; the access time is left alone.
DWORD KeepModificationTime(int out, const struct stat& source) {
  const struct timespec times[2] = {{0, UTIME_OMIT}, source.st_mtim};
  return futimens(out, times) == 0 ? 0 : MapErrno(errno);
}

// Checks that an existing target st (from lstat) may be replaced: not a directory, not
// read-only. A symbolic link standing at the target is replaced itself, whatever it points to.
DWORD CheckReplaceable(const struct stat& st) {
  if (S_ISLNK(st.st_mode)) return 0;
  return S_ISDIR(st.st_mode) || IsReadOnly(st) ? kErrorAccessDenied : 0;
}

// The entry standing at native path p, links not followed (what the look-up found, when it
// found it). Returns 0 with *exists set, or the Windows error of a failed look-up other than a
// missing entry.
DWORD LookAtTarget(const std::string& p, const FoundEntry& found, struct stat* st, bool* exists) {
  if (found.known || found.missing) {
    *st = found.st;
    *exists = found.known;
    return 0;
  }
  *exists = lstat(p.c_str(), st) == 0;
  return *exists || errno == ENOENT ? 0 : PathError(p, errno);
}

// Gives a new file beside native path target a name of its own: tries ".nomtmp.<pid>.<n>" names
// with make(name), which makes the file under that name and returns false with errno set when it
// cannot, until one is free. The process id is taken once: a forked child that picks a name in
// use gets EEXIST and takes the next. Returns 0 with *tempPath set, or the Windows error with
// *tempPath empty.
DWORD NameBeside(const std::string& target, const std::function<bool(const std::string&)>& make,
                 std::string* tempPath) {
  static std::atomic<unsigned> counter{0};
  static const std::string pid = std::to_string(getpid());
  const std::string prefix = ParentDirectory(target) + "/.nomtmp." + pid + ".";
  for (;;) {
    *tempPath = prefix + std::to_string(counter.fetch_add(1));
    if (make(*tempPath)) return 0;
    if (errno != EEXIST) {
      const DWORD error = PathError(*tempPath, errno);
      tempPath->clear();
      return error;
    }
  }
}

// A new, uniquely named file beside native path target, for writing, with permissions mode
// (less the umask).
DWORD CreateTempBeside(const std::string& target, mode_t mode, Fd* fd, std::string* tempPath) {
  return NameBeside(
      target,
      [&](const std::string& name) {
        Fd created(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        if (!created) return false;
        *fd = std::move(created);
        return true;
      },
      tempPath);
}

// Gives the finished temporary file temp the name target: replacing whatever stands there, or,
// with noReplace, only when nothing does (80 otherwise), decided by the kernel at the rename.
DWORD MoveIntoPlace(const std::string& temp, const std::string& target, bool noReplace) {
  if (noReplace) {
    if (renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
      return 0;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) {
      return PathError(target, errno);
    }
    // A file system without the flag: the check made before the copy has to do.
  }
  return rename(temp.c_str(), target.c_str()) == 0 ? 0 : PathError(target, errno);
}

// Whether an unnamed file can be given a name: through /proc/self/fd, which linkat follows
// without privileges.
bool CanNameUnnamedFiles() {
  static const bool can = access("/proc/self/fd", X_OK) == 0;
  return can;
}

// Links the unnamed file fd in under native path name: by the descriptor itself where this
// process may (it holds CAP_DAC_READ_SEARCH), which spares the kernel a walk through /proc, else
// through /proc/self/fd. Returns 0 or -1 with errno set, as linkat.
int LinkUnnamed(int fd, const std::string& name) {
  // -1: not tried yet; 1: linking by descriptor works here; 0: it does not.
  static std::atomic<int> byDescriptor{-1};
  if (byDescriptor.load(std::memory_order_relaxed) != 0) {
    if (linkat(fd, "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) == 0) {
      byDescriptor.store(1, std::memory_order_relaxed);
      return 0;
    }
    if (errno != ENOENT && errno != EPERM && errno != EINVAL) return -1;
    // ENOENT is also what a missing directory gives: only a first failure decides.
    if (byDescriptor.load(std::memory_order_relaxed) == 1) return -1;
    byDescriptor.store(0, std::memory_order_relaxed);
  }
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW);
}

// A file that takes the place of native path target once it is complete. Where nothing stands
// at target it is an unnamed file in target's directory (O_TMPFILE), linked in under target's
// name when placed: as cheap as creating the file in place, and a crash leaves nothing. Else, or
// where the file system has no unnamed files, a temporary beside target renamed over it. Until
// Place nothing is visible under target's name; destroyed unplaced, it leaves nothing behind.
class Replacement {
 public:
  explicit Replacement(std::string target) : target_(std::move(target)) {}
  ~Replacement() {
    fd_.Close();
    if (!temp_.empty()) {
      unlink(temp_.c_str());
      NoteFileRemoved(temp_);
    }
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Creates the file with permissions mode (less the umask), or unnamedMode when it is an
  // unnamed file, which nobody else can open before it is placed; targetExists: something stands
  // at the target (it is then replaced by rename). Returns 0 or the Windows error.
  DWORD Create(mode_t mode, bool targetExists, mode_t unnamedMode) {
    if (!targetExists && CanNameUnnamedFiles()) {
      Fd unnamed(
          open(ParentDirectory(target_).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, unnamedMode));
      if (unnamed) {
        fd_ = std::move(unnamed);
        return 0;
      }
      // No unnamed files here (or a failure the named temporary reports in its own words).
    }
    return CreateTempBeside(target_, mode, &fd_, &temp_);
  }
  DWORD Create(mode_t mode, bool targetExists) { return Create(mode, targetExists, mode); }

  int fd() const { return fd_.get(); }

  // Gives the file permissions mode: a named temporary at once, an unnamed file when it is
  // placed, and then only when the umask or a default ACL gave it others than it was created
  // with (the look that placing takes anyway tells).
  DWORD SetMode(mode_t mode) {
    mode_ = mode;
    if (!temp_.empty() && fchmod(fd_.get(), mode) != 0) return MapErrno(errno);
    return 0;
  }

  // Closes the file and gives it the target's name: replacing what stands there, or, with
  // noReplace, only when nothing does (80 otherwise). Returns 0 or the Windows error, the
  // target then as it was. When placed is not null, *placed receives the status of the file
  // now at the target (without looking the target up again where that can be avoided).
  DWORD Place(bool noReplace, struct stat* placed = nullptr) {
    if (temp_.empty()) {
      if (LinkUnnamed(fd_.get(), target_) == 0) {
        struct stat st;
        if (fstat(fd_.get(), &st) != 0) st.st_mode = 0;
        if (mode_ != kUnknownMode && S_ISREG(st.st_mode) && (st.st_mode & 07777) != mode_) {
          if (fchmod(fd_.get(), mode_) != 0) {
            const DWORD error = MapErrno(errno);
            unlink(target_.c_str());
            return error;
          }
          if (fstat(fd_.get(), &st) != 0) st.st_mode = 0;
        }
        if (placed != nullptr) *placed = st;
        const DWORD closed = fd_.Close();
        if (closed != 0) unlink(target_.c_str());
        return closed;
      }
      if (errno != EEXIST) return PathError(target_, errno);
      if (noReplace) return kErrorFileExists;
      // Something appeared at the target since it was looked at: named, then renamed over it.
      const DWORD named = NameBeside(
          target_, [this](const std::string& name) { return LinkUnnamed(fd_.get(), name) == 0; },
          &temp_);
      if (named != 0) return named;
    }
    if (const DWORD closed = fd_.Close()) return closed;
    if (const DWORD moved = MoveIntoPlace(temp_, target_, noReplace)) return moved;
    temp_.clear();
    if (placed != nullptr && lstat(target_.c_str(), placed) != 0) placed->st_mode = 0;
    return 0;
  }

 private:
  std::string target_;
  Fd fd_{-1};
  std::string temp_;  // the named temporary, when there is one
  static constexpr mode_t kUnknownMode = ~mode_t{0};
  mode_t mode_ = kUnknownMode;  // the permissions SetMode asked for, if it was called
};

DWORD MakeDirectories(const std::string& native) {
  struct stat st;
  if (stat(native.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? 0 : MapErrno(EEXIST);
  if (errno != ENOENT) return MapErrno(errno);
  const std::string parent = ParentDirectory(native);
  if (parent != native) {
    if (const DWORD error = MakeDirectories(parent)) return error;
  }
  if (mkdir(native.c_str(), 0777) != 0) return errno == EEXIST ? 0 : MapErrno(errno);
  NoteFileCreated(native);
  return 0;
}

// Whether this process may read the file it just made, whose status is st: it owns it and the
// owner may read it (a file it made is never subject to confinement's real-path check).
bool OwnReadable(const struct stat& st) {
  static const uid_t self = geteuid();
  return S_ISREG(st.st_mode) && st.st_uid == self && (st.st_mode & S_IRUSR) != 0;
}

// Contents held in memory, handed over in one piece.
class StringSource : public ContentSource {
 public:
  explicit StringSource(const std::string& contents) : contents_(contents) {}
  DWORD WriteTo(const Sink& sink) override { return sink(contents_.data(), contents_.size()); }

 private:
  const std::string& contents_;
};

// Reads the regular file open as in, whose status is source, whole into *bytes; false when it is
// larger than kMemoFileLimit, cannot be read, or changed while it was read.
bool ReadSmallFile(int in, const struct stat& source, std::string* bytes) {
  if (source.st_size > static_cast<off_t>(kMemoFileLimit)) return false;
  bytes->resize(static_cast<size_t>(source.st_size));
  size_t total = 0;
  while (total < bytes->size()) {
    const ssize_t n = read(in, &(*bytes)[total], bytes->size() - total);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    total += static_cast<size_t>(n);
  }
  struct stat after;
  return fstat(in, &after) == 0 && FileIdentity::Of(after) == FileIdentity::Of(source);
}

// The default Env's CopyFile. With rewrite (a copy onto a target that does not exist yet, as for
// failIfExists): when src is a small file that does not change while it is read and rewrite
// gives bytes, the new file holds those bytes and the time it is made instead of src's, and is
// remembered as a current copy of src with contents of its own (*rewritten, when given, tells).
DWORD CopyThroughMemo(const std::string& src, const std::string& dst, bool failIfExists,
                      const CopyRewrite* rewrite, bool* rewritten) {
  std::string from, to;
  DWORD error = 0;
  FoundEntry fromFound, toFound;
  if (!ToNativePathFound(src, &from, &error, &fromFound) ||
      !ToNativePathFound(dst, &to, &error, &toFound)) {
    return error;
  }
  FileMemo* memo = Memo();
  FileIdentity was, is;
  if (memo != nullptr && !failIfExists && RegularIdentity(from, fromFound, true, &was) &&
      RegularIdentity(to, toFound, false, &is) && memo->CopyIsCurrent(from, to, was, is)) {
    // The source's size: a copy made rewritten ahead of a save holds other bytes.
    t_last_copy_size = static_cast<int64_t>(was.size);
    return 0;
  }
  Fd in(-1);
  struct stat source;
  if ((error = OpenRegularForReading(from, &in, &source)) != 0) {
    return error;
  }
  struct stat target;
  bool exists = false;
  if ((error = LookAtTarget(to, toFound, &target, &exists)) != 0) return error;
  if (exists) {
    if (failIfExists) return kErrorFileExists;
    if ((error = CheckReplaceable(target)) != 0) return error;
    // Windows refuses to copy a file onto itself; replacing it here would lose it.
    if (target.st_dev == source.st_dev && target.st_ino == source.st_ino) {
      return kErrorSharingViolation;
    }
  } else if (to.back() == '/') {
    return MapErrno(EISDIR);  // "name\" can only be a directory
  }
  // The source's permissions, never wider, and writable by the owner so it can be replaced;
  // a named temporary is readable by its owner alone until it is complete.
  const mode_t mode = (source.st_mode & 0777) | S_IWUSR;
  std::string bytes, result;
  const std::string* rewritten_bytes = nullptr;
  if (rewrite != nullptr) {
    if (ReadSmallFile(in.get(), source, &bytes) && (*rewrite)(bytes, &result)) {
      rewritten_bytes = &result;
    } else if (lseek(in.get(), 0, SEEK_SET) != 0) {
      return MapErrno(errno);  // copied from the start, whatever the reading consumed
    }
  }
  Replacement out(to);
  if ((error = out.Create(S_IRUSR | S_IWUSR, exists, mode)) != 0) return error;
  if (rewritten_bytes != nullptr) {
    error = WriteAll(out.fd(), rewritten_bytes->data(), rewritten_bytes->size());
    if (error == 0) error = out.SetMode(mode);
  } else {
    error = CopyContents(in.get(), out.fd(), source);
    if (error == 0) error = out.SetMode(mode);
    if (error == 0) error = KeepModificationTime(out.fd(), source);
  }
  struct stat placed;
  if (error == 0) error = out.Place(failIfExists, &placed);
  if (error != 0) return error;
  NoteFileCreated(to);
  if (S_ISREG(placed.st_mode)) {
    t_last_copy_size =
        static_cast<int64_t>(rewritten_bytes != nullptr ? source.st_size : placed.st_size);
  }
  if (memo != nullptr) {
    memo->NoteReadable(from, FileIdentity::Of(source));
    // The copy's own entry says whether it may be read: no second entry per file copied.
    if (S_ISREG(placed.st_mode)) {
      memo->NoteCopy(from, to, FileIdentity::Of(source), FileIdentity::Of(placed),
                     OwnReadable(placed), rewritten_bytes == nullptr);
      if (rewritten_bytes != nullptr) {
        memo->NoteContents(to, FileIdentity::Of(placed),
                           std::make_shared<std::string>(*rewritten_bytes));
      }
    }
  }
  if (rewritten != nullptr) *rewritten = rewritten_bytes != nullptr;
  return 0;
}

class PosixEnv : public Env {
 public:
  bool CanOpenForReading(const std::string& path) override {
    std::string native;
    DWORD error = 0;
    FoundEntry found;
    if (!ToNativePathFound(path, &native, &error, &found)) return false;
    FileMemo* memo = Memo();
    FileIdentity id;
    if (memo != nullptr && RegularIdentity(native, found, true, &id) &&
        memo->KnownReadable(native, id)) {
      return true;
    }
    Fd fd(-1);
    struct stat st;
    if (OpenRegularForReading(native, &fd, &st) != 0) return false;
    if (memo != nullptr) memo->NoteReadable(native, FileIdentity::Of(st));
    return true;
  }

  // The copy is written to a new file (readable by its owner alone until it is complete), given
  // src's permissions and modification time and put in dst's place, so dst is either as it was
  // or the whole copy, and a link standing at dst is replaced, not written through. A copy that
  // would write what dst already holds (the same source, neither file changed since this process
  // made the copy) is not made again.
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override {
    return CopyThroughMemo(src, dst, failIfExists, nullptr, nullptr);
  }

  // A file read before and unchanged since is served from memory.
  DWORD ReadFile(const std::string& path, std::string* contents) override {
    contents->clear();
    std::string native;
    DWORD error = 0;
    FoundEntry found;
    if (!ToNativePathFound(path, &native, &error, &found)) return error;
    FileMemo* memo = Memo();
    FileIdentity id;
    if (memo != nullptr && RegularIdentity(native, found, true, &id)) {
      if (const FileBytes kept = memo->Contents(native, id)) {
        *contents = *kept;
        return 0;
      }
    }
    Fd fd(-1);
    struct stat st;
    if ((error = OpenRegularForReading(native, &fd, &st)) != 0) return error;
    // Read straight into the string; the size the file had when opened ends the reading, so
    // that no call is made to find an end already reached (the look after the reading tells
    // whether it changed). A file that reports no size (as in /proc) is read to its end.
    const size_t expected = static_cast<size_t>(st.st_size);
    size_t total = 0;
    contents->resize(expected > 0 ? expected : 1 << 12);
    for (;;) {
      if (total == contents->size()) {
        if (expected > 0 && total == expected) break;
        contents->resize(total * 2);
      }
      const ssize_t n = read(fd.get(), &(*contents)[total], contents->size() - total);
      if (n == 0) break;
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        contents->clear();
        return MapErrno(errno);
      }
      total += static_cast<size_t>(n);
    }
    contents->resize(total);
    // Kept only when the file did not change while it was read.
    struct stat after;
    if (memo != nullptr && contents->size() <= kMemoFileLimit && fstat(fd.get(), &after) == 0 &&
        FileIdentity::Of(after) == FileIdentity::Of(st)) {
      memo->NoteContents(native, FileIdentity::Of(st), std::make_shared<std::string>(*contents));
    }
    return 0;
  }

  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override {
    StringSource source(contents);
    return ReplaceFile(path, source);
  }

  DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source) override {
    return ReplaceFile(path, source);
  }

  DWORD CreateDirectories(const std::string& path) override {
    std::string native;
    DWORD error = 0;
    if (!ToNativePath(path, &native, &error)) return error;
    return MakeDirectories(native);
  }

  bool GetEnvironmentVariable(const std::string& name, std::string* value) override {
    const char* found = std::getenv(name.c_str());
    if (found == nullptr) {
      value->clear();
      return false;
    }
    *value = found;
    return true;
  }

 private:
  // Writes source to a new file and puts it in path's place; a link standing at path is
  // replaced, not followed. When path is known to hold exactly what source produces (this
  // process wrote or read it so, and it has not changed since), nothing is written.
  DWORD ReplaceFile(const std::string& path, ContentSource& source) {
    std::string native;
    DWORD error = 0;
    FoundEntry found;
    if (!ToNativePathFound(path, &native, &error, &found)) return error;
    struct stat existing;
    bool exists = false;
    if ((error = LookAtTarget(native, found, &existing, &exists)) != 0) return error;
    if (exists && (error = CheckReplaceable(existing)) != 0) return error;
    FileMemo* memo = Memo();
    FileBytes known;  // what path holds now, when remembered
    if (memo != nullptr && exists && S_ISREG(existing.st_mode)) {
      known = memo->Contents(native, FileIdentity::Of(existing));
    }
    auto written = std::make_shared<std::string>();  // kept for the memo while small enough
    bool keeping = memo != nullptr;
    size_t same = 0;  // leading bytes found equal to known's
    bool differs = known == nullptr;
    Replacement out(native);
    bool created = false;
    const auto write = [&](const char* data, size_t size) -> DWORD {
      if (!created) {
        if (const DWORD failed = out.Create(0666, exists)) return failed;
        created = true;
      }
      return WriteAll(out.fd(), data, size);
    };
    error = source.WriteTo([&](const char* data, size_t size) -> DWORD {
      if (keeping && written->size() + size > kMemoFileLimit) {
        keeping = false;
        written = std::make_shared<std::string>();
      }
      if (keeping) written->append(data, size);
      if (!differs) {
        if (same + size <= known->size() && std::memcmp(known->data() + same, data, size) == 0) {
          same += size;
          return 0;
        }
        differs = true;
        if (const DWORD failed = write(known->data(), same)) return failed;
      }
      return write(data, size);
    });
    if (error != 0) return error;
    if (!differs) {
      if (same == known->size()) return 0;  // path holds these bytes already
      if ((error = write(known->data(), same)) != 0) return error;
    }
    if (!created && (error = write(nullptr, 0)) != 0) return error;  // empty contents
    // The replacement keeps the permissions of the file it replaces (not of a link's target).
    if (exists && !S_ISLNK(existing.st_mode) &&
        (error = out.SetMode(existing.st_mode & 07777)) != 0) {
      return error;
    }
    struct stat placed;
    if ((error = out.Place(false, &placed)) != 0) return error;
    NoteFileCreated(native);
    if (memo != nullptr && S_ISREG(placed.st_mode)) {
      if (keeping) {
        written->shrink_to_fit();  // grown piece by piece: kept at its size, not its capacity
        memo->NoteContents(native, FileIdentity::Of(placed), written);
      }
      if (OwnReadable(placed)) memo->NoteReadable(native, FileIdentity::Of(placed));
    }
    return 0;
  }
};

}  // namespace

namespace {

// Makes the new file to from the regular file open as in (status source): a copy of its bytes,
// or, when rewritten is given, those bytes (and the time of making instead of source's).
DWORD MakeNewFile(int in, const struct stat& source, const std::string& from, const std::string& to,
                  const std::string* rewritten) {
  const mode_t mode = (source.st_mode & 0777) | S_IWUSR;
  Fd out(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!out) return PathError(to, errno);
  DWORD error = 0;
  if (rewritten != nullptr) {
    error = WriteAll(out.get(), rewritten->data(), rewritten->size());
  } else {
    error = CopyContents(in, out.get(), source);
    if (error == 0) error = KeepModificationTime(out.get(), source);
  }
  struct stat made;
  if (error == 0 && fstat(out.get(), &made) != 0) error = MapErrno(errno);
  // The umask or a default ACL may have taken bits away.
  if (error == 0 && (made.st_mode & 07777) != mode &&
      (fchmod(out.get(), mode) != 0 || fstat(out.get(), &made) != 0)) {
    error = MapErrno(errno);
  }
  if (error == 0) error = out.Close();
  if (error != 0) {
    unlink(to.c_str());
    return error;
  }
  if (FileMemo* memo = Memo()) {
    memo->NoteReadable(from, FileIdentity::Of(source));
    memo->NoteCopy(from, to, FileIdentity::Of(source), FileIdentity::Of(made), OwnReadable(made),
                   rewritten == nullptr);
    if (rewritten != nullptr) {
      memo->NoteContents(to, FileIdentity::Of(made), std::make_shared<std::string>(*rewritten));
    }
  }
  return 0;
}

}  // namespace

DWORD CopyToNewFile(const std::string& from, const std::string& to) {
  Fd in(-1);
  struct stat source;
  if (const DWORD error = OpenRegularForReading(from, &in, &source)) return error;
  return MakeNewFile(in.get(), source, from, to, nullptr);
}

DWORD CopyFileRewritten(const std::string& src, const std::string& dst, const CopyRewrite& rewrite,
                        bool* rewritten) {
  if (rewritten != nullptr) *rewritten = false;
  return CopyThroughMemo(src, dst, true, &rewrite, rewritten);
}

DWORD CopyToNewFileRewritten(const std::string& from, const std::string& to,
                             const CopyRewrite& rewrite, bool* rewritten) {
  if (rewritten != nullptr) *rewritten = false;
  Fd in(-1);
  struct stat source;
  if (const DWORD error = OpenRegularForReading(from, &in, &source)) return error;
  std::string bytes, result;
  if (ReadSmallFile(in.get(), source, &bytes) && rewrite(bytes, &result)) {
    const DWORD error = MakeNewFile(in.get(), source, from, to, &result);
    if (error == 0 && rewritten != nullptr) *rewritten = true;
    return error;
  }
  // Copied from the start, whatever the reading consumed.
  if (lseek(in.get(), 0, SEEK_SET) != 0) return MapErrno(errno);
  return MakeNewFile(in.get(), source, from, to, nullptr);
}

DWORD MoveNewDirectory(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
    if (errno == ENOENT) return kErrorPathNotFound;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) {
      return errno == ENOTEMPTY ? kErrorFileExists : MapErrno(errno);
    }
    // A file system without the flag: looked at first, then renamed.
    struct stat st;
    if (lstat(to.c_str(), &st) == 0) return kErrorFileExists;
    if (rename(from.c_str(), to.c_str()) != 0) {
      return errno == ENOENT ? kErrorPathNotFound : MapErrno(errno);
    }
  }
  FileMemo::Instance().MoveDirectory(from, to);
  ClearListings();  // listings of the parent and of both paths are out of date: rare, so all go
  return 0;
}

void ForgetLastCopySize() { t_last_copy_size = -1; }

int64_t LastCopySize() { return t_last_copy_size; }

Env* Env::Default() {
  static Env* const env = new PosixEnv;  // never destroyed: records may be logged during exit
  return env;
}

}  // namespace nomplat
