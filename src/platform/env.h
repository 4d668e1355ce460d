// The operating-system seam. Every file and environment access of the module and of the services
// goes through the current Env, so a test can replace it (EnvWrapper subclasses) to record calls or
// inject failures. Paths handed to an Env are module paths: Windows-style, in the process's code
// page; the default Env maps them to native paths (paths.h).
#ifndef NOM_PLATFORM_ENV_H_
#define NOM_PLATFORM_ENV_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "NOMSOITypes.h"

namespace nomplat {

// A file's contents produced piece by piece, so that a large file need not be held whole.
class NOM_API ContentSource {
 public:
  // Receives one piece; returns 0, or the Windows error that ends the writing.
  using Sink = std::function<DWORD(const char* data, size_t size)>;
  virtual ~ContentSource();
  // Hands every piece to sink, in order. Returns 0, or the first error sink returned.
  virtual DWORD WriteTo(const Sink& sink) = 0;
};

class NOM_API Env {
 public:
  virtual ~Env();

  // True only when path names a regular file that can be opened for reading; opened and closed at
  // once. A directory, a missing file, one without read permission, a name Windows refuses or
  // (under confinement, paths.h) a file whose real path lies outside every root gives false.
  virtual bool CanOpenForReading(const std::string& path) = 0;

  // Copies src to dst, keeping src's modification time and permission bits (plus owner write);
  // replaces an existing dst unless failIfExists. The copy is written beside dst and renamed over
  // it, so dst is either untouched or the whole copy, and a symbolic link at dst is replaced, not
  // written through. Returns 0 on success, else a Windows error number (see MapErrno): a
  // read-only dst (no write bit for anyone) 5, also for root; a directory dst 5; dst the same
  // file as src 32; a name Windows refuses 123; src outside the confinement roots 5.
  virtual DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) = 0;

  // Reads the whole file into *contents. Returns 0 or a Windows error number (*contents cleared);
  // a file outside the confinement roots fails with 5.
  virtual DWORD ReadFile(const std::string& path, std::string* contents) = 0;

  // Replaces path with contents atomically: writes a temporary file beside it and renames it over
  // the target, so a crashed process never leaves half a file. (No fsync: a package is rewritten
  // file by file, and syncing each one would cost more than the whole copy.) A read-only target
  // fails with 5 and is left as it was; a symbolic link at path is replaced, not followed.
  // Returns 0 or an error.
  virtual DWORD WriteFileAtomic(const std::string& path, const std::string& contents) = 0;

  // WriteFileAtomic with the contents taken from source as it produces them. This default
  // collects them and calls WriteFileAtomic; the POSIX Env writes each piece as it comes.
  virtual DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source);

  // Creates the directory and its missing parents. Returns 0 (also when it exists) or an error.
  virtual DWORD CreateDirectories(const std::string& path) = 0;

  // Stores in *bytes the free bytes this process may use in the file system holding directory
  // dir (one still to be created: that of its nearest existing parent). Returns 0 or a Windows
  // error (*bytes 0). This default asks the file system (FreeBytes in paths.h).
  virtual DWORD FreeBytes(const std::string& dir, uint64_t* bytes);

  // Stores the variable's value in *value and returns true when it is set; false (value cleared)
  // when unset.
  virtual bool GetEnvironmentVariable(const std::string& name, std::string* value) = 0;

  // The process-wide default, mapping module paths to the POSIX file system. Never null.
  static Env* Default();
};

// The Env in force; Env::Default() unless a test installed another.
NOM_API Env* CurrentEnv();
// Installs env (null: the default) and returns the one it replaces. Not thread-safe; tests
// install before they run the code under test and restore after.
NOM_API Env* SetCurrentEnv(Env* env);

// Forwards every call to target; subclasses override what they want to observe or break.
class NOM_API EnvWrapper : public Env {
 public:
  // target must outlive the wrapper; it is not owned.
  explicit EnvWrapper(Env* target) : target_(target) {}
  Env* target() const { return target_; }
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

// Counts calls per operation and fails the chosen ones: the nth call (1-based) of an operation,
// or every call from the nth on, with a chosen Windows error. Reads fail as unreadable files.
class NOM_API FaultInjectionEnv : public EnvWrapper {
 public:
  enum Op {
    kCanOpenForReading,
    kCopyFile,
    kReadFile,
    kWriteFileAtomic,
    kCreateDirectories,
    kGetEnvironmentVariable,
    kOpCount
  };
  explicit FaultInjectionEnv(Env* target) : EnvWrapper(target) {}
  // Fails call number nth (1-based) of op with error; with sticky, every later call too.
  void FailOn(Op op, int nth, DWORD error, bool sticky = false);
  // How many calls of op were made since construction or Reset.
  int Count(Op op) const;
  // Forgets counts and planned failures.
  void Reset();

  bool CanOpenForReading(const std::string& path) override;
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override;
  DWORD ReadFile(const std::string& path, std::string* contents) override;
  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override;
  // Counts and fails as WriteFileAtomic does.
  DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source) override;
  DWORD CreateDirectories(const std::string& path) override;
  bool GetEnvironmentVariable(const std::string& name, std::string* value) override;

 private:
  struct Plan {
    int nth = 0;
    DWORD error = 0;
    bool sticky = false;
  };
  // Counts a call of op; returns the error to fail it with, or 0.
  DWORD Tick(Op op);
  int counts_[kOpCount] = {};
  std::vector<Plan> plans_[kOpCount];
};

// Installs an Env for the lifetime of this object and restores the previous one.
class ScopedEnv {
 public:
  explicit ScopedEnv(Env* env) : previous_(SetCurrentEnv(env)) {}
  ~ScopedEnv() { SetCurrentEnv(previous_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  Env* previous_;
};

}  // namespace nomplat

#endif  // NOM_PLATFORM_ENV_H_
