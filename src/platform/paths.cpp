// Module paths (Windows-style, in the process's code page) to native UTF-8 paths.
#include "platform/paths.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <time.h>
#include <wctype.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/codepage.h"
#include "platform/winerror.h"
#include "services/NOMZUBLog.h"

namespace nomplat {
namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

// Case mappings of ASCII letters alone, whatever the process's locale.
char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char32_t AsciiUpper(char32_t c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; }
bool IsDriveLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// A native directory as the maps keep it: no trailing "/" except for the root itself.
std::string TrimDirectory(std::string dir) {
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

// Splits "\\server\share[\]" (UTF-8, either separator) into the share map's key
// "\\server\share" in lower case. Returns false for anything else.
bool ShareKey(const std::string& unc, std::string* key) {
  if (unc.size() < 2 || !IsSeparator(unc[0]) || !IsSeparator(unc[1])) return false;
  size_t serverEnd = 2;
  while (serverEnd < unc.size() && !IsSeparator(unc[serverEnd])) ++serverEnd;
  size_t shareEnd = serverEnd + 1;
  while (shareEnd < unc.size() && !IsSeparator(unc[shareEnd])) ++shareEnd;
  if (serverEnd == 2 || serverEnd >= unc.size() || shareEnd == serverEnd + 1) return false;
  for (size_t i = shareEnd; i < unc.size(); ++i) {
    if (!IsSeparator(unc[i])) return false;
  }
  key->assign("\\\\");
  for (size_t i = 2; i < shareEnd; ++i) *key += i == serverEnd ? '\\' : AsciiLower(unc[i]);
  return true;
}

// The drive and share maps. The environment's mappings are read on first use and again after
// ResetPathMaps, so that a reset returns to the state the process started with.
class PathMaps {
 public:
  // The native root of a drive letter; "" when unmapped.
  std::string Drive(char letter) {
    std::vector<std::string> problems;
    std::string root;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      LoadLocked(&problems);
      root = drives_[DriveIndex(letter)];
    }
    Report(problems);
    return root;
  }

  // The native root of a share key (ShareKey); "" when unmapped.
  std::string Share(const std::string& key) {
    std::vector<std::string> problems;
    std::string root;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      LoadLocked(&problems);
      for (const auto& share : shares_) {
        if (share.first == key) root = share.second;
      }
    }
    Report(problems);
    return root;
  }

  void MapDrive(char letter, const std::string& nativeDir) {
    std::vector<std::string> problems;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      LoadLocked(&problems);
      if (!MapDriveLocked(letter, nativeDir)) {
        problems.push_back(std::string("Cannot map drive \"") + letter + "\": not a letter");
      }
    }
    Report(problems);
  }

  void MapShare(const std::string& uncPrefix, const std::string& nativeDir) {
    std::vector<std::string> problems;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      LoadLocked(&problems);
      if (!MapShareLocked(uncPrefix, nativeDir)) {
        problems.push_back("Cannot map share \"" + uncPrefix + "\": expected \\\\server\\share");
      }
    }
    Report(problems);
  }

  void Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (std::string& root : drives_) root.clear();
    shares_.clear();
    loaded_ = false;
  }

 private:
  static int DriveIndex(char letter) {
    return static_cast<int>(AsciiUpper(static_cast<char32_t>(letter)) - 'A');
  }

  bool MapDriveLocked(char letter, const std::string& nativeDir) {
    if (!IsDriveLetter(letter)) return false;
    drives_[DriveIndex(letter)] = TrimDirectory(nativeDir);
    return true;
  }

  bool MapShareLocked(const std::string& uncPrefix, const std::string& nativeDir) {
    std::string key;
    if (!ShareKey(AcpToUtf8(uncPrefix), &key)) return false;
    for (auto& share : shares_) {
      if (share.first == key) {
        share.second = TrimDirectory(nativeDir);
        return true;
      }
    }
    shares_.emplace_back(key, TrimDirectory(nativeDir));
    return true;
  }

  // Z: is "/"; then NOMZUB_DRIVES ("C=/mnt/c;D=/srv/d") and NOMZUB_SHARES
  // ("\\srv\pub=/mnt/pub;..."). Entries that do not parse are described in *problems.
  void LoadLocked(std::vector<std::string>* problems) {
    if (loaded_) return;
    loaded_ = true;
    drives_['Z' - 'A'] = "/";
    ForEachEntry("NOMZUB_DRIVES", "L=/directory", problems,
                 [this](const std::string& name, const std::string& dir) {
                   return name.size() == 1 && MapDriveLocked(name[0], dir);
                 });
    ForEachEntry("NOMZUB_SHARES", "\\\\server\\share=/directory", problems,
                 [this](const std::string& name, const std::string& dir) {
                   return MapShareLocked(name, dir);
                 });
  }

  // Calls map(name, dir) for each "name=dir" entry of a ";"-separated variable; an entry without
  // "=", with an empty directory or that map refuses is described in *problems with the form
  // expected.
  template <typename MapFn>
  static void ForEachEntry(const char* variable, const char* expected,
                           std::vector<std::string>* problems, MapFn map) {
    const char* value = std::getenv(variable);
    if (value == nullptr) return;
    const std::string list = value;
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

  // Logs outside the lock: the log may itself look at the environment.
  static void Report(const std::vector<std::string>& problems) {
    for (const std::string& problem : problems) nomzub::LogServiceError(problem);
  }

  std::mutex mutex_;
  bool loaded_ = false;
  std::string drives_[26];
  std::vector<std::pair<std::string, std::string>> shares_;
};

PathMaps& Maps() {
  static PathMaps maps;
  return maps;
}

// -1 until NOMZUB_CASE_SENSITIVE has been read; then 1 (fallback on) or 0.
std::atomic<int> g_caseInsensitive{-1};

// --- case-insensitive look-up -----------------------------------------------------------------

// The next code point of a UTF-8 name at *i; a byte that starts no valid sequence stands for
// itself (offset so it never equals a real character).
char32_t NextCodePoint(std::string_view s, size_t* i) {
  const unsigned char b = static_cast<unsigned char>(s[*i]);
  const int length = b < 0x80           ? 1
                     : (b >> 5) == 0x6  ? 2
                     : (b >> 4) == 0xE  ? 3
                     : (b >> 3) == 0x1E ? 4
                                        : 0;
  if (length == 0 || *i + length > s.size()) {
    ++*i;
    return 0x110000 + b;
  }
  char32_t cp = length == 1 ? b : b & (0x7F >> length);
  for (int k = 1; k < length; ++k) {
    const unsigned char c = static_cast<unsigned char>(s[*i + k]);
    if ((c & 0xC0) != 0x80) {
      ++*i;
      return 0x110000 + b;
    }
    cp = (cp << 6) | (c & 0x3F);
  }
  *i += length;
  return cp;
}

// Upper case as Windows compares file names: simple one-to-one mappings.
char32_t FoldCase(char32_t c) {
  if (c < 0x80) return AsciiUpper(c);
  static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  if (c >= 0x110000 || unicode == static_cast<locale_t>(0)) return c;
  return static_cast<char32_t>(towupper_l(static_cast<wint_t>(c), unicode));
}

bool Exists(const std::string& native) {
  struct stat st;
  return lstat(native.c_str(), &st) == 0;
}

// Appends name to *path with one "/" between them (none after a trailing "/" or into "", the
// working directory).
void Append(std::string* path, std::string_view name) {
  if (!path->empty() && path->back() != '/') *path += '/';
  path->append(name.data(), name.size());
}

// root joined with names[from..], built in one buffer.
void AppendAll(std::string* path, const std::vector<std::string_view>& names, size_t from) {
  for (size_t k = from; k < names.size(); ++k) Append(path, names[k]);
}

// A name with every character case-folded: equal for names Windows would take as one.
std::u32string FoldedName(std::string_view name) {
  std::u32string folded;
  for (size_t i = 0; i < name.size();) folded += FoldCase(NextCodePoint(name, &i));
  return folded;
}

std::string DirectoryPart(const std::string& native) {
  const size_t slash = native.find_last_of('/');
  if (slash == std::string::npos) return std::string();
  return slash == 0 ? std::string("/") : native.substr(0, slash);
}

std::string NamePart(const std::string& native) {
  const size_t slash = native.find_last_of('/');
  return slash == std::string::npos ? native : native.substr(slash + 1);
}

// Case-insensitive listings of directories. A directory is scanned once and its listing reused
// while the directory keeps its inode and modification time, so that copying thousands of new
// files into one directory does not scan it once per file. Files this process creates are added
// to the listing as they are made (NoteFileCreated). A listing made within a clock tick of the
// directory's last change is not trusted, since a change in that tick would not move the time.
class ListingCache {
 public:
  // How many entries of dir equal folded ignoring case (0, 1 or more); the one in *entry.
  int Find(const std::string& dir, const std::u32string& folded, std::string* entry) {
    struct stat st;
    if (stat(dir.empty() ? "." : dir.c_str(), &st) != 0) return 0;
    std::lock_guard<std::mutex> lock(mu_);
    auto it = listings_.find(dir);
    if (it == listings_.end() || !it->second.Matches(st)) {
      if (listings_.size() >= kMaxListings) listings_.clear();
      Listing listing;
      if (!listing.Scan(dir, st)) return 0;
      it = listings_.insert_or_assign(dir, std::move(listing)).first;
    }
    return it->second.Find(folded, entry);
  }

  // native was just created by this process: its directory's listing, if kept, takes it in.
  void NoteCreated(const std::string& native) {
    const std::string dir = DirectoryPart(native);
    std::lock_guard<std::mutex> lock(mu_);
    auto it = listings_.find(dir);
    if (it == listings_.end()) return;
    struct stat st;
    if (stat(dir.empty() ? "." : dir.c_str(), &st) != 0) {
      listings_.erase(it);
      return;
    }
    it->second.Add(NamePart(native), st);
  }

  // Something in native's directory went away: its listing is dropped.
  void NoteRemoved(const std::string& native) {
    std::lock_guard<std::mutex> lock(mu_);
    listings_.erase(DirectoryPart(native));
  }

  void Clear() {
    std::lock_guard<std::mutex> lock(mu_);
    listings_.clear();
  }

 private:
  static constexpr size_t kMaxListings = 64;

  struct Listing {
    dev_t dev = 0;
    ino_t ino = 0;
    timespec mtime{};
    bool trusted = false;
    // Folded name -> how many entries fold to it, and the last one seen.
    std::unordered_map<std::u32string, std::pair<int, std::string>> names;
    std::unordered_set<std::string> exact;

    bool Matches(const struct stat& st) const {
      return trusted && st.st_dev == dev && st.st_ino == ino && st.st_mtim.tv_sec == mtime.tv_sec &&
             st.st_mtim.tv_nsec == mtime.tv_nsec;
    }
    void Stamp(const struct stat& st) {
      dev = st.st_dev;
      ino = st.st_ino;
      mtime = st.st_mtim;
    }
    bool Scan(const std::string& dir, const struct stat& st) {
      DIR* d = opendir(dir.empty() ? "." : dir.c_str());
      if (d == nullptr) return false;
      timespec now{};
      clock_gettime(CLOCK_REALTIME, &now);
      while (const dirent* e = readdir(d)) Insert(e->d_name);
      closedir(d);
      Stamp(st);
      // Trusted only when the directory's last change is clearly older than the scan.
      const long long ageNs =
          (now.tv_sec - st.st_mtim.tv_sec) * 1000000000LL + (now.tv_nsec - st.st_mtim.tv_nsec);
      trusted = ageNs > kTickNs;
      return true;
    }
    void Add(const std::string& name, const struct stat& st) {
      Insert(name);
      Stamp(st);
      trusted = true;
    }
    void Insert(const std::string& name) {
      if (!exact.insert(name).second) return;
      auto& slot = names[FoldedName(name)];
      ++slot.first;
      slot.second = name;
    }
    int Find(const std::u32string& folded, std::string* entry) const {
      const auto it = names.find(folded);
      if (it == names.end()) return 0;
      *entry = it->second.second;
      return it->second.first;
    }
  };
  static constexpr long long kTickNs = 50LL * 1000 * 1000;

  std::mutex mu_;
  std::unordered_map<std::string, Listing> listings_;
};

ListingCache& Listings() {
  static ListingCache cache;
  return cache;
}

// Looks name up in directory *path (the buffer, "" for the working directory) as it exists
// exactly or else as the one entry equal to it ignoring case; on success appends the entry to
// *path. With exactTried the caller already knows that the exact name does not exist.
bool AppendEntry(std::string* path, std::string_view name, bool exactTried) {
  const size_t dirEnd = path->size();
  if (!exactTried) {
    Append(path, name);
    if (Exists(*path)) return true;
    path->resize(dirEnd);
  }
  std::string entry;
  if (Listings().Find(*path, FoldedName(name), &entry) != 1) return false;
  Append(path, entry);
  return true;
}

// root joined with names, each name that does not exist as written replaced by its unique
// case-insensitive match; from the first name without one, the rest stays as written.
//
// Works on one buffer: the path as written is built once with the end of every prefix noted.
// When it does not exist, the longest prefix that does is found (the parent first, as it
// usually is, else by bisection: a prefix exists only if every shorter one does), and only the
// names after it are looked up one by one. Every step is linear in the path's length, with at
// most one lstat per component.
std::string ResolveCase(const std::string& root, const std::vector<std::string_view>& names) {
  std::string path = root;
  std::vector<size_t> ends;  // ends[k]: length of root joined with names[0..k]
  ends.reserve(names.size());
  for (std::string_view name : names) {
    Append(&path, name);
    ends.push_back(path.size());
  }
  if (names.empty() || Exists(path)) return path;
  // Whether root joined with the first count names exists; the buffer is cut at the "/" that
  // follows them for the call and restored after.
  const auto prefixExists = [&path, &ends](size_t count) {
    const size_t end = ends[count - 1];
    const char separator = path[end];
    path[end] = '\0';
    struct stat st;
    const bool found = lstat(path.c_str(), &st) == 0;
    path[end] = separator;
    return found;
  };
  const size_t n = names.size();
  size_t known = 0;  // how many leading names exist as written (the root is taken as existing)
  if (n > 1 && prefixExists(n - 1)) {
    known = n - 1;
  } else if (n > 2) {
    size_t missing = n - 1;  // a prefix known not to exist
    while (missing - known > 1) {
      const size_t mid = known + (missing - known) / 2;
      (prefixExists(mid) ? known : missing) = mid;
    }
  }
  path.resize(known == 0 ? root.size() : ends[known - 1]);
  for (size_t k = known; k < n; ++k) {
    if (!AppendEntry(&path, names[k], k == known)) {
      AppendAll(&path, names, k);
      return path;
    }
  }
  return path;
}

// The components of rest, with "." dropped and ".." taking away the previous component as
// Windows does before it touches the disk. Above the root, ".." is dropped for an absolute path
// and kept for a relative one. The views point into rest.
std::vector<std::string_view> Components(std::string_view rest, bool absolute) {
  std::vector<std::string_view> names;
  size_t i = 0;
  while (i < rest.size()) {
    size_t end = i;
    while (end < rest.size() && !IsSeparator(rest[end])) ++end;
    const std::string_view name = rest.substr(i, end - i);
    if (name == "..") {
      if (!names.empty() && names.back() != "..") {
        names.pop_back();
      } else if (!absolute) {
        names.push_back(name);
      }
    } else if (!name.empty() && name != ".") {
      names.push_back(name);
    }
    i = end + 1;
  }
  return names;
}

// Whether Windows would refuse path (UTF-8) as a file name: a ":" other than at index 1 (a
// drive's; a relative name such as "1:x" has always been taken as written), one of <>"|?*, a
// control character, or a component ending in "." or " " other than "." and "..". In UTF-8 no
// byte of a multibyte character is ASCII, so the bytes can be checked one by one.
bool IsRefusedName(std::string_view path) {
  const size_t start = path.size() >= 2 && path[1] == ':' ? 2 : 0;
  size_t componentStart = start;
  for (size_t i = start; i <= path.size(); ++i) {
    if (i == path.size() || IsSeparator(path[i])) {
      const std::string_view name = path.substr(componentStart, i - componentStart);
      if (!name.empty() && name != "." && name != ".." &&
          (name.back() == '.' || name.back() == ' ')) {
        return true;
      }
      componentStart = i + 1;
      continue;
    }
    const unsigned char c = static_cast<unsigned char>(path[i]);
    if (c < 0x20 || c == ':' || c == '<' || c == '>' || c == '"' || c == '|' || c == '?' ||
        c == '*') {
      return true;
    }
  }
  return false;
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
    *root = ShareKey(path.substr(0, end), &key) ? Maps().Share(key) : std::string();
    *restAt = end;
    if (root->empty()) *error = kErrorBadNetPath;
    return !root->empty();
  }
  *root = !path.empty() && IsSeparator(path[0]) ? "/" : "";
  *restAt = 0;
  return true;
}

// The real path of native (links, "." and ".." resolved); "" when it cannot be resolved.
std::string RealPath(const std::string& native) {
  std::unique_ptr<char, decltype(&std::free)> real(realpath(native.c_str(), nullptr), &std::free);
  return real ? std::string(real.get()) : std::string();
}

// The directory holding native path p ("." for a bare name, "/" for "/").
std::string ParentDirectory(std::string p) {
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  const size_t slash = p.rfind('/');
  if (slash == std::string::npos) return p == "." ? p : ".";
  return slash == 0 ? "/" : p.substr(0, slash);
}

// The confinement roots, as real paths. NOMZUB_CONFINE ("/a:/b") is read on first use unless
// SetConfinementRoots came first; empty entries are skipped.
class ConfinementRootsStore {
 public:
  void Set(const std::vector<std::string>& dirs) {
    std::vector<std::string> roots = Resolve(dirs);
    std::lock_guard<std::mutex> lock(mu_);
    roots_ = std::move(roots);
    loaded_ = true;
  }

  std::vector<std::string> Roots() {
    std::lock_guard<std::mutex> lock(mu_);
    LoadLocked();
    return roots_;
  }

  bool Contains(const std::string& real) {
    std::lock_guard<std::mutex> lock(mu_);
    LoadLocked();
    if (roots_.empty()) return true;
    for (const std::string& root : roots_) {
      if (real.compare(0, root.size(), root) != 0) continue;
      // Equal to the root, or under it: the next character separates ("/" itself ends in one).
      if (real.size() == root.size() || root.back() == '/' || real[root.size()] == '/') {
        return true;
      }
    }
    return false;
  }

 private:
  // Each non-empty directory as its real path, or as written without trailing "/" when it
  // cannot be resolved.
  static std::vector<std::string> Resolve(const std::vector<std::string>& dirs) {
    std::vector<std::string> roots;
    for (const std::string& dir : dirs) {
      if (dir.empty()) continue;
      std::string real = RealPath(dir);
      roots.push_back(real.empty() ? TrimDirectory(dir) : std::move(real));
    }
    return roots;
  }

  void LoadLocked() {
    if (loaded_) return;
    loaded_ = true;
    const char* value = std::getenv("NOMZUB_CONFINE");
    if (value == nullptr) return;
    std::vector<std::string> dirs;
    const std::string list = value;
    size_t start = 0;
    while (start <= list.size()) {
      size_t end = list.find(':', start);
      if (end == std::string::npos) end = list.size();
      dirs.push_back(list.substr(start, end - start));
      start = end + 1;
    }
    roots_ = Resolve(dirs);
  }

  std::mutex mu_;
  bool loaded_ = false;
  std::vector<std::string> roots_;
};

ConfinementRootsStore& Confinement() {
  static ConfinementRootsStore store;
  return store;
}

}  // namespace

void MapDrive(char letter, const std::string& nativeDir) { Maps().MapDrive(letter, nativeDir); }

void MapShare(const std::string& uncPrefix, const std::string& nativeDir) {
  Maps().MapShare(uncPrefix, nativeDir);
}

void ResetPathMaps() {
  Maps().Reset();
  Listings().Clear();
}

void NoteFileCreated(const std::string& nativePath) { Listings().NoteCreated(nativePath); }

void NoteFileRemoved(const std::string& nativePath) { Listings().NoteRemoved(nativePath); }

void SetCaseInsensitiveLookup(bool on) { g_caseInsensitive.store(on ? 1 : 0); }

bool CaseInsensitiveLookup() {
  int on = g_caseInsensitive.load();
  if (on < 0) {
    const char* value = std::getenv("NOMZUB_CASE_SENSITIVE");
    const int fromEnvironment = value != nullptr && std::string(value) == "1" ? 0 : 1;
    g_caseInsensitive.compare_exchange_strong(on, fromEnvironment);
    on = g_caseInsensitive.load();
  }
  return on == 1;
}

bool ToNativePath(const std::string& modulePath, std::string* nativePath, DWORD* error) {
  const std::string path = AcpToUtf8(modulePath);
  if (IsRefusedName(path)) {
    *error = kErrorInvalidName;
    return false;
  }
  std::string root;
  size_t restAt = 0;
  if (!SplitRoot(path, &root, &restAt, error)) return false;
  const std::vector<std::string_view> names =
      Components(std::string_view(path).substr(restAt), !root.empty());
  if (CaseInsensitiveLookup()) {
    *nativePath = ResolveCase(root, names);
  } else {
    *nativePath = root;
    AppendAll(nativePath, names, 0);
  }
  if (nativePath->empty()) {
    *nativePath = ".";
  } else if (!names.empty() && IsSeparator(path.back())) {
    *nativePath += '/';  // "dir\" names a directory: "file\" must still fail
  }
  return true;
}

void SetConfinementRoots(const std::vector<std::string>& nativeDirs) {
  Confinement().Set(nativeDirs);
}

std::vector<std::string> ConfinementRoots() { return Confinement().Roots(); }

bool IsConfined(const std::string& realNative) { return Confinement().Contains(realNative); }

DWORD StatModulePath(const std::string& modulePath, FileFacts* facts) {
  *facts = FileFacts();
  DWORD error = 0;
  if (!ToNativePath(modulePath, &facts->native, &error)) return error;
  struct stat st;
  if (stat(facts->native.c_str(), &st) != 0) return 0;  // missing (or unreachable): no facts
  facts->exists = true;
  facts->regular = S_ISREG(st.st_mode);
  facts->device = static_cast<uint64_t>(st.st_dev);
  facts->inode = static_cast<uint64_t>(st.st_ino);
  facts->size = facts->regular ? static_cast<uint64_t>(st.st_size) : 0;
  facts->mode = static_cast<uint32_t>(st.st_mode & 07777);
  // Resolving links costs a call per component: only confinement needs it.
  if (!ConfinementRoots().empty()) {
    facts->real = RealPath(facts->native);
    facts->confined = IsConfined(facts->real);
  }
  return 0;
}

DWORD FreeBytes(const std::string& moduleDir, uint64_t* bytes) {
  *bytes = 0;
  std::string native;
  DWORD error = 0;
  if (!ToNativePath(moduleDir, &native, &error)) return error;
  // A directory still to be created lands in the file system of its nearest existing ancestor.
  struct statvfs fs;
  for (;;) {
    if (statvfs(native.c_str(), &fs) == 0) break;
    const int err = errno;
    const std::string parent = ParentDirectory(native);
    if (err != ENOENT || parent == native) return MapErrno(err);
    native = parent;
  }
  *bytes = static_cast<uint64_t>(fs.f_bavail) * static_cast<uint64_t>(fs.f_frsize);
  return 0;
}

std::u32string CaseFoldKey(const std::string& moduleName) {
  return FoldedName(AcpToUtf8(moduleName));
}

DWORD MapErrno(int err) {
  switch (err) {
    case 0:
      return 0;
    case ENOENT:
      return kErrorFileNotFound;
    case ENOTDIR:
      return kErrorPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return kErrorAccessDenied;
    case EBUSY:
    case ETXTBSY:
      return kErrorSharingViolation;
    case EEXIST:
      return kErrorFileExists;
    case ENOSPC:
    case EDQUOT:
      return kErrorDiskFull;
    case ENAMETOOLONG:
      return kErrorFilenameTooLong;
    default:
      return kErrorInternal;
  }
}

}  // namespace nomplat
