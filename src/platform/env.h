// The operating-system seam. Every file and environment access of the module, the services and
// the platform layer itself goes through the current Env, so a test can replace it to record calls
// or inject failures: subclass EnvWrapper over the Env in force, override what is to be observed
// or broken, and install it with SetCurrentEnv (which returns the Env it replaces; null installs
// the default again) or, for a scope, ScopedEnv. Threads: the default Env may be called from any
// number of threads at once, while SetCurrentEnv must only be called when no other thread is
// using the Env, and an installed Env must itself be safe for the threads that call it (the
// generator writes a large package's files from several threads at once).
//
// Paths handed to an Env are module paths: Windows-style, in the process's code page; the default
// Env maps them to native paths (paths.h). Failures are Windows error numbers (winerror.h).
//
// The default Env remembers, per process, what it read, copied and wrote (file_memo.h), tied to
// the identity of the files (device, inode, size, modification and status-change times), and
// does not repeat work whose result is still on disk: a file found readable and unchanged is not
// opened again, a copy whose source and target are both as this process left them is not made
// again, a file read or written and unchanged since is read from memory, and a write of the bytes
// a file already holds writes nothing. Results and files are those of doing the work; only the
// system calls are fewer. Under confinement nothing is remembered.
#ifndef NOM_PLATFORM_ENV_H_
#define NOM_PLATFORM_ENV_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "win_types.h"

namespace nomplat {

// A file's contents produced piece by piece, so that a large file need not be held whole.
class NOM_API ContentSource {
 public:
  // Receives one piece (size bytes at data, valid only during the call); returns 0, or the
  // Windows error that ends the writing.
  using Sink = std::function<DWORD(const char* data, size_t size)>;
  virtual ~ContentSource();
  // Hands every piece to sink, in order, and stops at the first nonzero return. Returns 0, or
  // the first error sink returned.
  virtual DWORD WriteTo(const Sink& sink) = 0;
};

class NOM_API Env {
 public:
  virtual ~Env();

  // The existence test. Returns true only when path names a regular file this process can open
  // for reading; the file is opened and closed at once, without blocking on a FIFO (the default
  // Env skips the opening for a file it opened or made and that has not changed since). Returns
  // false for a directory, a missing file, one without read permission, a name Windows refuses, an
  // unmapped drive or share and, under confinement (paths.h), a file whose real path lies outside
  // every root. Sets no error.
  virtual bool CanOpenForReading(const std::string& path) = 0;

  // Copies the file src to dst, keeping src's modification time and permission bits (plus owner
  // write, never more); replaces an existing dst unless failIfExists. The copy is written as a new
  // file (unnamed until complete where the file system allows, else a temporary beside dst) and
  // then put in dst's place, so dst is either untouched or the whole copy, a crash leaves no half
  // copy under dst's name, and a symbolic link at dst is replaced, not written through. Returns 0
  // on success. On failure returns a Windows error
  // and leaves dst as it was and nothing beside it: a missing src 2 (3 when its directory is
  // missing too), a directory src or one outside the confinement roots 5, dst existing with
  // failIfExists 80, a read-only dst (no write bit for anyone, also for root) or a directory dst
  // 5, dst the same file as src 32, a name Windows refuses 123, an unmapped drive 3 or share 53,
  // a full disk 112; any other failure as MapErrno maps it.
  virtual DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) = 0;

  // Reads the whole regular file path into *contents. Returns 0 with *contents holding every
  // byte; on failure a Windows error with *contents empty: a missing file 2 (3 when its directory
  // is missing), a directory or a file outside the confinement roots 5, as CopyFile for names.
  virtual DWORD ReadFile(const std::string& path, std::string* contents) = 0;

  // Replaces path with contents atomically: writes a new file (as CopyFile does) and puts it in
  // path's place, so a crashed process never leaves half a file. (No fsync: a package is rewritten
  // file by file, and syncing each one would cost more than the whole copy.) A replaced file keeps
  // its permission bits; a new one gets 0666 less the umask; a symbolic link at path is replaced,
  // not followed. Returns 0 on success; on failure a Windows error, path as it was and no
  // temporary left: a read-only target or a directory 5, a missing directory 3, a full disk 112.
  virtual DWORD WriteFileAtomic(const std::string& path, const std::string& contents) = 0;

  // WriteFileAtomic with the contents taken from source as it produces them; a source error is
  // returned as it is, path left as it was. This default collects the pieces and calls
  // WriteFileAtomic; the default Env writes each piece as it comes. source is not owned.
  virtual DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source);

  // Creates the directory path and its missing parents. Returns 0 when it exists afterwards (also
  // when it existed, in any letter case); else a Windows error: a file in the way 80 (or 3 when it
  // stands where a parent should be), no permission 5, an unmapped drive 3.
  virtual DWORD CreateDirectories(const std::string& path) = 0;

  // Stores in *bytes the free bytes this process may use in the file system holding directory
  // dir (one still to be created: that of its nearest existing parent). Returns 0 on success;
  // on failure a Windows error with *bytes 0. This default asks the file system (FreeBytes in
  // paths.h).
  virtual DWORD FreeBytes(const std::string& dir, uint64_t* bytes);

  // Stores the variable's value in *value and returns true when it is set (an empty value
  // included); returns false with *value empty when it is unset. The log, the code page and the
  // path maps read their settings through it, so it must answer from the environment alone: not
  // log, map paths or convert text.
  virtual bool GetEnvironmentVariable(const std::string& name, std::string* value) = 0;

  // The process-wide default, over POSIX calls. Never null; never destroyed, so that it serves
  // until the process ends.
  static Env* Default();
};

// The size of the file at the target of the calling thread's last successful CopyFile through
// the default Env (made, or found current and not made again): what a caller counting copied
// bytes would otherwise look up. -1 when there was none since ForgetLastCopySize, which a caller
// calls before the copy (an Env in between may answer without reaching the default one).
NOM_API int64_t LastCopySize();
NOM_API void ForgetLastCopySize();

// Copies the regular file at native path from to a new file at native path to, made in place
// under its name: for a directory of the process's own that nobody reads before its copies are
// done (a staging directory); a copy that fails removes what it made. Keeps from's modification
// time and permission bits (plus owner write, never more), as CopyFile does, and is remembered
// by the default Env as its copies are, so that a CopyFile of the same files finds it current.
// Returns 0, or the Windows error: 80 when something stands at to, else as CopyFile.
NOM_API DWORD CopyToNewFile(const std::string& from, const std::string& to);

// What a copy's bytes become: true with the new bytes in *out, false to keep the bytes as they
// are.
using CopyRewrite = std::function<bool(const std::string& bytes, std::string* out)>;

// CopyToNewFile of a file that a later save will replace with rewrite's result: when from is a
// regular file of at most 1 MiB that does not change while it is read and rewrite gives bytes,
// to is made with those bytes, from's permission bits (plus owner write, never more) and the
// time it is made, which is what the save would leave; the default Env remembers it as a
// current copy of from (a CopyFile of the same files does nothing) whose contents are its own
// (a read gets them, and a save of the same bytes writes nothing). Otherwise as CopyToNewFile.
// Returns 0, or the Windows error as CopyToNewFile; *rewritten (may be null) tells which was
// made.
NOM_API DWORD CopyToNewFileRewritten(const std::string& from, const std::string& to,
                                     const CopyRewrite& rewrite, bool* rewritten);

// The default Env's CopyFile(src, dst, failIfExists: true) of a file that a later save will
// replace with rewrite's result: the rewritten bytes are made as CopyToNewFileRewritten makes
// them (and remembered so), but through the Env's own placing of a new file (an unnamed file
// linked in when complete, never over a file that stands: 80). *rewritten (may be null) tells
// whether the file holds rewritten bytes.
NOM_API DWORD CopyFileRewritten(const std::string& src, const std::string& dst,
                                const CopyRewrite& rewrite, bool* rewritten);

// Gives the directory at native path from the native path to, where nothing may stand yet (the
// kernel decides, at the rename): what the default Env remembers of the files inside goes with
// them. Returns 0, or the Windows error: 80 when something stands at to, 3 when from or to's
// parent is missing; any other failure as MapErrno maps it.
NOM_API DWORD MoveNewDirectory(const std::string& from, const std::string& to);

// The Env in force: the one SetCurrentEnv installed, else Env::Default(). Never null.
NOM_API Env* CurrentEnv();
// Installs env (null: the default again) and returns the one it replaces (the default rather
// than null). env is not owned and must outlive its installation. Not to be called while another
// thread uses the Env.
NOM_API Env* SetCurrentEnv(Env* env);

// Forwards every call to target; subclasses override what they want to observe or break.
class NOM_API EnvWrapper : public Env {
 public:
  // target must outlive the wrapper; it is not owned.
  explicit EnvWrapper(Env* target) : target_(target) {}
  bool CanOpenForReading(const std::string& path) override;
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override;
  DWORD ReadFile(const std::string& path, std::string* contents) override;
  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override;
  DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source) override;
  DWORD CreateDirectories(const std::string& path) override;
  DWORD FreeBytes(const std::string& dir, uint64_t* bytes) override;
  bool GetEnvironmentVariable(const std::string& name, std::string* value) override;

 private:
  Env* target_;
};

// Installs an Env for the lifetime of this object and restores the previous one.
class ScopedEnv {
 public:
  // env: as SetCurrentEnv; not owned.
  explicit ScopedEnv(Env* env) : previous_(SetCurrentEnv(env)) {}
  ~ScopedEnv() { SetCurrentEnv(previous_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  Env* previous_;
};

}  // namespace nomplat

#endif  // NOM_PLATFORM_ENV_H_
