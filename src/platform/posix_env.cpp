// The default Env: module paths mapped to native ones (paths.h) and POSIX calls on them.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/case_lookup.h"
#include "platform/env.h"
#include "platform/fd.h"
#include "platform/path_syntax.h"
#include "platform/paths.h"
#include "platform/winerror.h"

namespace nomplat {
namespace {

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
  if (!ConfinementRoots().empty()) {
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

// Copies the rest of in to out in the kernel (which may share extents) or, where the file
// systems do not allow it, through a buffer. Files that report no size (as in /proc) are read.
DWORD CopyContents(int in, int out, const struct stat& source) {
  if (source.st_size == 0) return CopyByReadWrite(in, out);
  for (;;) {
    const ssize_t n = copy_file_range(in, nullptr, out, nullptr, 1 << 30, 0);
    if (n > 0) continue;
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

// The entry standing at native path p, links not followed. Returns 0 with *exists set, or the
// Windows error of a failed look-up other than a missing entry.
DWORD LookAtTarget(const std::string& p, struct stat* st, bool* exists) {
  *exists = lstat(p.c_str(), st) == 0;
  return *exists || errno == ENOENT ? 0 : PathError(p, errno);
}

// A new, uniquely named file beside native path target, for writing, with permissions mode
// (less the umask).
DWORD CreateTempBeside(const std::string& target, mode_t mode, Fd* fd, std::string* tempPath) {
  static std::atomic<unsigned> counter{0};
  const std::string prefix = ParentDirectory(target) + "/.nomtmp." + std::to_string(getpid()) + ".";
  for (;;) {
    *tempPath = prefix + std::to_string(counter.fetch_add(1));
    Fd created(open(tempPath->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (created) {
      *fd = std::move(created);
      return 0;
    }
    if (errno != EEXIST) return PathError(*tempPath, errno);
  }
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

class PosixEnv : public Env {
 public:
  bool CanOpenForReading(const std::string& path) override {
    std::string native;
    DWORD error = 0;
    if (!ToNativePath(path, &native, &error)) return false;
    Fd fd(-1);
    struct stat st;
    return OpenRegularForReading(native, &fd, &st) == 0;
  }

  // The copy is written to a temporary file beside dst (readable by its owner alone until it
  // is complete), given src's permissions and modification time and renamed over dst, so dst
  // is either as it was or the whole copy, and a link standing at dst is replaced, not written
  // through.
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override {
    std::string from, to;
    DWORD error = 0;
    if (!ToNativePath(src, &from, &error) || !ToNativePath(dst, &to, &error)) return error;
    Fd in(-1);
    struct stat source;
    if ((error = OpenRegularForReading(from, &in, &source)) != 0) {
      return error;
    }
    struct stat target;
    bool exists = false;
    if ((error = LookAtTarget(to, &target, &exists)) != 0) return error;
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
    Fd out(-1);
    std::string temp;
    if ((error = CreateTempBeside(to, S_IRUSR | S_IWUSR, &out, &temp)) != 0) return error;
    error = CopyContents(in.get(), out.get(), source);
    // The source's permissions, never wider, and writable by the owner so it can be replaced.
    if (error == 0 && fchmod(out.get(), (source.st_mode & 0777) | S_IWUSR) != 0) {
      error = MapErrno(errno);
    }
    if (error == 0) error = KeepModificationTime(out.get(), source);
    const DWORD closeError = out.Close();
    if (error == 0) error = closeError;
    if (error == 0) error = MoveIntoPlace(temp, to, failIfExists);
    if (error != 0) {
      unlink(temp.c_str());  // nothing is left under dst's name, nor beside it
      NoteFileRemoved(temp);
    } else {
      NoteFileCreated(to);
    }
    return error;
  }

  DWORD ReadFile(const std::string& path, std::string* contents) override {
    contents->clear();
    std::string native;
    DWORD error = 0;
    if (!ToNativePath(path, &native, &error)) return error;
    Fd fd(-1);
    struct stat st;
    if ((error = OpenRegularForReading(native, &fd, &st)) != 0) return error;
    contents->reserve(static_cast<size_t>(st.st_size));
    char buffer[1 << 16];
    for (;;) {
      const ssize_t n = read(fd.get(), buffer, sizeof buffer);
      if (n == 0) return 0;
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        contents->clear();
        return MapErrno(errno);
      }
      contents->append(buffer, static_cast<size_t>(n));
    }
  }

  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override {
    return ReplaceFile(
        path, [&contents](int fd) { return WriteAll(fd, contents.data(), contents.size()); });
  }

  DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source) override {
    return ReplaceFile(path, [&source](int fd) {
      return source.WriteTo(
          [fd](const char* data, size_t size) { return WriteAll(fd, data, size); });
    });
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
  // Writes a temporary file beside path with write(fd) and renames it over path; a link standing
  // at path is replaced, not followed.
  DWORD ReplaceFile(const std::string& path, const std::function<DWORD(int fd)>& write) {
    std::string native;
    DWORD error = 0;
    if (!ToNativePath(path, &native, &error)) return error;
    struct stat existing;
    bool exists = false;
    if ((error = LookAtTarget(native, &existing, &exists)) != 0) return error;
    if (exists && (error = CheckReplaceable(existing)) != 0) return error;
    Fd fd(-1);
    std::string temp;
    if ((error = CreateTempBeside(native, 0666, &fd, &temp)) != 0) return error;
    error = write(fd.get());
    // The replacement keeps the permissions of the file it replaces (not of a link's target).
    if (error == 0 && exists && !S_ISLNK(existing.st_mode) &&
        fchmod(fd.get(), existing.st_mode & 07777) != 0) {
      error = MapErrno(errno);
    }
    const DWORD closeError = fd.Close();
    if (error == 0) error = closeError;
    if (error == 0 && rename(temp.c_str(), native.c_str()) != 0) error = PathError(native, errno);
    if (error != 0) {
      unlink(temp.c_str());
      NoteFileRemoved(temp);
    } else {
      NoteFileCreated(native);
    }
    return error;
  }
};

}  // namespace

Env* Env::Default() {
  static Env* const env = new PosixEnv;  // never destroyed: records may be logged during exit
  return env;
}

}  // namespace nomplat
