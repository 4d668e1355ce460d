// The drive and share maps, and the two directions through them: module paths to native paths
// (ToNativePath) and back (ToModulePath).
#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/case_lookup.h"
#include "platform/codepage.h"
#include "platform/env_settings.h"
#include "platform/path_syntax.h"
#include "platform/paths.h"
#include "platform/winerror.h"
#include "services/NOMZUBLog.h"

namespace nomplat {
namespace {

struct Share {
  std::string key;       // "\\server\share" in lower case (ShareKey)
  std::string spelling;  // as mapped, with backslashes
  std::string dir;       // native directory (TrimDirectory)
};

// Reads a share mapping ("\\server\share" in the process's code page); false when it is none.
bool ParseShare(const std::string& uncPrefix, const std::string& nativeDir, Share* share) {
  if (!ShareKey(AcpToUtf8(uncPrefix), &share->key, &share->spelling)) return false;
  share->dir = TrimDirectory(nativeDir);
  return true;
}

// Calls map(name, dir) for each "name=dir" entry of a ";"-separated variable; an entry without
// "=", with an empty directory or that map refuses is described in *problems with the form
// expected.
template <typename MapFn>
void ForEachEntry(const char* variable, const char* expected, std::vector<std::string>* problems,
                  MapFn map) {
  const std::optional<std::string> value = EnvironmentValue(variable);
  if (!value) return;
  const std::string& list = *value;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(';', start);
    if (end == std::string::npos) end = list.size();
    const std::string entry = list.substr(start, end - start);
    const size_t eq = entry.find('=');
    if (!entry.empty() && (eq == std::string::npos || eq + 1 == entry.size() ||
                           !map(entry.substr(0, eq), entry.substr(eq + 1)))) {
      problems->push_back(std::string(variable) + ": ignoring \"" + entry + "\" (expected " +
                          expected + ")");
    }
    start = end + 1;
  }
}

// The mappings of NOMZUB_DRIVES ("C=/mnt/c;D=/srv/d") and NOMZUB_SHARES ("\\srv\pub=/mnt/pub;...")
// and the entries that did not parse.
struct EnvironmentMappings {
  std::vector<std::pair<char, std::string>> drives;
  std::vector<Share> shares;
  std::vector<std::string> problems;
};

EnvironmentMappings ReadEnvironmentMappings() {
  EnvironmentMappings read;
  ForEachEntry("NOMZUB_DRIVES", "L=/directory", &read.problems,
               [&read](const std::string& name, const std::string& dir) {
                 if (name.size() != 1 || !IsDriveLetter(name[0])) return false;
                 read.drives.emplace_back(name[0], TrimDirectory(dir));
                 return true;
               });
  ForEachEntry("NOMZUB_SHARES", "\\\\server\\share=/directory", &read.problems,
               [&read](const std::string& name, const std::string& dir) {
                 Share share;
                 if (!ParseShare(name, dir, &share)) return false;
                 read.shares.push_back(std::move(share));
                 return true;
               });
  return read;
}

// Whether plain (LexicalAbsolute) lies in directory dir (also plain): dir itself or below it.
bool Covers(const std::string& dir, const std::string& plain) {
  if (dir == "/") return true;
  return plain.compare(0, dir.size(), dir) == 0 &&
         (plain.size() == dir.size() || plain[dir.size()] == '/');
}

// The drive and share maps. The environment's mappings are read on first use and again after
// Reset, so that a reset returns to the state the process started with; they are read (through
// the current Env) and their problems logged outside the lock, since the log and an Env may
// themselves look at the environment.
class PathMaps {
 public:
  // The native root of a drive letter; "" when unmapped.
  std::string Drive(char letter) {
    std::vector<std::string> problems;
    std::string root;
    {
      const auto lock = Lock(&problems);
      root = drives_[DriveIndex(letter)];
    }
    Report(problems);
    return root;
  }

  // The native root of a share key (ShareKey); "" when unmapped.
  std::string ShareRoot(const std::string& key) {
    std::vector<std::string> problems;
    std::string root;
    {
      const auto lock = Lock(&problems);
      for (const Share& share : shares_) {
        if (share.key == key) root = share.dir;
      }
    }
    Report(problems);
    return root;
  }

  void MapDrive(char letter, const std::string& nativeDir) {
    std::vector<std::string> problems;
    {
      const auto lock = Lock(&problems);
      ++generation_;
      if (IsDriveLetter(letter)) {
        drives_[DriveIndex(letter)] = TrimDirectory(nativeDir);
      } else {
        problems.push_back(std::string("Cannot map drive \"") + letter + "\": not a letter");
      }
    }
    Report(problems);
  }

  void MapShare(const std::string& uncPrefix, const std::string& nativeDir) {
    Share share;
    const bool parsed = ParseShare(uncPrefix, nativeDir, &share);
    std::vector<std::string> problems;
    {
      const auto lock = Lock(&problems);
      ++generation_;
      if (parsed) {
        SetShareLocked(std::move(share));
      } else {
        problems.push_back("Cannot map share \"" + uncPrefix + "\": expected \\\\server\\share");
      }
    }
    Report(problems);
  }

  // The module root ("X:" or "\\server\share", UTF-8) of the mapped directory that holds plain
  // (LexicalAbsolute) most closely, and in *restAt where the names below it begin in plain.
  // False when no mapped directory holds it. On a tie a drive wins over a share, an earlier
  // letter over a later one and an earlier share over a later one.
  bool ModuleRootOf(const std::string& plain, std::string* root, size_t* restAt) {
    std::vector<std::string> problems;
    bool found = false;
    size_t best = 0;  // the length of the best directory so far
    const auto consider = [&](const std::string& dir, const std::string& moduleRoot) {
      const std::string dirPlain = LexicalAbsolute(dir);
      if (dirPlain.empty() || !Covers(dirPlain, plain)) return;
      const size_t length = dirPlain == "/" ? 0 : dirPlain.size();
      if (found && length <= best) return;
      found = true;
      best = length;
      *root = moduleRoot;
      *restAt = length + 1;
    };
    {
      const auto lock = Lock(&problems);
      for (int i = 0; i < 26; ++i) {
        if (!drives_[i].empty())
          consider(drives_[i], std::string(1, static_cast<char>('A' + i)) + ":");
      }
      for (const Share& share : shares_) consider(share.dir, share.spelling);
    }
    Report(problems);
    return found;
  }

  // Moves on every change of the maps, loading them included.
  uint64_t Generation() const { return generation_.load(std::memory_order_acquire); }

  void Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++generation_;
    for (std::string& root : drives_) root.clear();
    shares_.clear();
    loaded_.store(false, std::memory_order_release);
  }

 private:
  static int DriveIndex(char letter) {
    return static_cast<int>(AsciiUpper(static_cast<char32_t>(letter)) - 'A');
  }

  void SetShareLocked(Share share) {
    for (Share& mapped : shares_) {
      if (mapped.key == share.key) {
        mapped = std::move(share);
        return;
      }
    }
    shares_.push_back(std::move(share));
  }

  // The lock, with the maps loaded: Z: is "/", then the environment's mappings, whose problems
  // are added to *problems.
  std::unique_lock<std::mutex> Lock(std::vector<std::string>* problems) {
    return LockLoaded(
        mutex_, loaded_, ReadEnvironmentMappings, [this, problems](EnvironmentMappings read) {
          drives_['Z' - 'A'] = "/";
          for (auto& drive : read.drives) {
            drives_[DriveIndex(drive.first)] = std::move(drive.second);
          }
          for (Share& share : read.shares) SetShareLocked(std::move(share));
          ++generation_;
          problems->insert(problems->end(), read.problems.begin(), read.problems.end());
          loaded_.store(true, std::memory_order_release);
        });
  }

  // Logs outside the lock: the log may itself look at the environment.
  static void Report(const std::vector<std::string>& problems) {
    for (const std::string& problem : problems) nomzub::LogServiceError(problem);
  }

  std::mutex mutex_;
  std::atomic<bool> loaded_{false};
  std::atomic<uint64_t> generation_{0};
  std::string drives_[26];
  std::vector<Share> shares_;
};

PathMaps& Maps() {
  static PathMaps maps;
  return maps;
}

// Module paths whose every component existed as written when they were last mapped, with the
// native path they named: while that path still exists (one lstat) it is the answer again, and
// the conversion, the checks of the names and the splitting are not repeated. An entry holds
// only under the maps, code page and look-up mode it was made with.
class MappedPaths {
 public:
  struct Context {
    uint64_t generation;
    UINT codePage;
    bool caseInsensitive;
    bool operator==(const Context& o) const {
      return generation == o.generation && codePage == o.codePage &&
             caseInsensitive == o.caseInsensitive;
    }
  };

  // True with *native set when modulePath was noted under context.
  bool Find(const std::string& modulePath, const Context& context, std::string* native) {
    std::lock_guard<std::mutex> lock(mu_);
    if (!(context == context_)) return false;
    const auto it = paths_.find(modulePath);
    if (it == paths_.end()) return false;
    *native = it->second;
    return true;
  }

  void Note(const std::string& modulePath, const Context& context, const std::string& native) {
    std::lock_guard<std::mutex> lock(mu_);
    if (!(context == context_) || paths_.size() >= kMaxPaths) {
      paths_.clear();
      context_ = context;
    }
    paths_.emplace(modulePath, native);
  }

 private:
  static constexpr size_t kMaxPaths = 4096;
  std::mutex mu_;
  Context context_{~uint64_t{0}, 0, false};
  std::unordered_map<std::string, std::string> paths_;
};

MappedPaths& Mapped() {
  static MappedPaths paths;
  return paths;
}

// Finds the native root of path (UTF-8) and where the rest begins. Returns false with *error
// for an unmapped drive or share; *root is "" for a path relative to the working directory.
bool SplitRoot(const std::string& path, std::string* root, size_t* restAt, DWORD* error) {
  if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == ':') {
    *root = Maps().Drive(path[0]);
    *restAt = 2;
    if (root->empty()) *error = kErrorPathNotFound;
    return !root->empty();
  }
  if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
    size_t end = 2;
    for (int separators = 0; end < path.size(); ++end) {
      if (IsSeparator(path[end]) && ++separators == 2) break;
    }
    std::string key;
    *root = ShareKey(path.substr(0, end), &key) ? Maps().ShareRoot(key) : std::string();
    *restAt = end;
    if (root->empty()) *error = kErrorBadNetPath;
    return !root->empty();
  }
  *root = !path.empty() && IsSeparator(path[0]) ? "/" : "";
  *restAt = 0;
  return true;
}

}  // namespace

void MapDrive(char letter, const std::string& nativeDir) { Maps().MapDrive(letter, nativeDir); }

void MapShare(const std::string& uncPrefix, const std::string& nativeDir) {
  Maps().MapShare(uncPrefix, nativeDir);
}

void ResetPathMaps() {
  Maps().Reset();
  ClearListings();
}

bool ToNativePath(const std::string& modulePath, std::string* nativePath, DWORD* error) {
  return ToNativePathFound(modulePath, nativePath, error, nullptr);
}

namespace {

// The native path modulePath names: converted to UTF-8, refused names and unmapped roots failed
// with *error, "." and ".." taken away, and each name either looked up without letter case
// (ResolveCase, which fills *entry) or taken as written. "" becomes "."; a trailing separator
// stays, so that "file\\" cannot open a file.
bool MapPath(const std::string& modulePath, bool lookUp, std::string* nativePath, DWORD* error,
             FoundEntry* entry) {
  std::string converted;  // only where the code page needs it: most paths are used as they are
  const bool asIs = AcpTextIsUtf8(modulePath);
  if (!asIs) converted = AcpToUtf8(modulePath);
  const std::string& path = asIs ? modulePath : converted;
  if (IsRefusedName(path)) {
    *error = kErrorInvalidName;
    return false;
  }
  std::string root;
  size_t restAt = 0;
  if (!SplitRoot(path, &root, &restAt, error)) return false;
  const std::vector<std::string_view> names =
      Components(std::string_view(path).substr(restAt), !root.empty());
  if (lookUp) {
    *nativePath = ResolveCase(root, names, entry);
  } else {
    *nativePath = root;
    AppendNames(nativePath, names, 0);
  }
  if (nativePath->empty()) {
    *nativePath = ".";
  } else if (!names.empty() && IsSeparator(path.back())) {
    *nativePath += '/';  // "dir\\" names a directory: "file\\" must still fail
    entry->known = false;
    entry->missing = false;
  }
  return true;
}

}  // namespace

bool ToNativePathAsWritten(const std::string& modulePath, std::string* nativePath, DWORD* error) {
  FoundEntry ignored;
  return MapPath(modulePath, false, nativePath, error, &ignored);
}

bool ToNativePathFound(const std::string& modulePath, std::string* nativePath, DWORD* error,
                       FoundEntry* found) {
  FoundEntry ignored;
  FoundEntry& entry = found != nullptr ? *found : ignored;
  entry.known = false;
  entry.missing = false;
  const MappedPaths::Context context{Maps().Generation(), GetACP(), CaseInsensitiveLookup()};
  if (Mapped().Find(modulePath, context, nativePath)) {
    entry.known = lstat(nativePath->c_str(), &entry.st) == 0;
    if (entry.known) return true;
  }
  if (!MapPath(modulePath, context.caseInsensitive, nativePath, error, &entry)) return false;
  if (entry.known) Mapped().Note(modulePath, context, *nativePath);
  return true;
}

bool ToModulePath(const std::string& nativePath, std::string* modulePath) {
  const std::string plain = LexicalAbsolute(nativePath);
  std::string root;
  size_t restAt = 0;
  if (plain.empty() || !Maps().ModuleRootOf(plain, &root, &restAt)) return false;
  std::string path = root + "\\";
  for (size_t i = restAt; i < plain.size(); ++i) {
    if (plain[i] == '\\') return false;  // a name holding "\", which would split in two
    path += plain[i] == '/' ? '\\' : plain[i];
  }
  if (restAt < plain.size() && nativePath.back() == '/') path += '\\';
  if (IsRefusedName(path)) return false;
  std::string converted = Utf8ToAcp(path);
  if (AcpToUtf8(converted) != path) return false;  // a character the code page lacks
  *modulePath = std::move(converted);
  return true;
}

}  // namespace nomplat
