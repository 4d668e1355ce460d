// The case-insensitive look-up of path components, over listings of directories kept while the
// directories do not change.
#include "platform/case_lookup.h"

#include <dirent.h>
#include <sys/stat.h>
#include <time.h>
#include <wctype.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <utility>

#include "platform/codepage.h"
#include "platform/env_settings.h"
#include "platform/path_syntax.h"
#include "platform/paths.h"
#include "platform/utf8.h"
#include "platform/win32.h"

namespace nomplat {
namespace {

// -1 until NOMZUB_CASE_SENSITIVE has been read; then 1 (fallback on) or 0.
std::atomic<int> g_caseInsensitive{-1};

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
  // How many entries of dir equal folded ignoring case (0, 1, or 2 for several); the one in
  // *entry. dirStat: the directory's lstat when the caller just took it (null: looked at here).
  int Find(const std::string& dir, const std::string& folded, std::string* entry,
           const struct stat* dirStat) {
    struct stat st;
    if (dirStat != nullptr && S_ISDIR(dirStat->st_mode)) {
      st = *dirStat;
    } else if (stat(dir.empty() ? "." : dir.c_str(), &st) != 0) {
      return 0;
    }
    std::lock_guard<std::mutex> lock(mu_);
    auto it = listings_.find(dir);
    // A look taken before another thread created a file there and noted it is out of date, not
    // the listing: looked at again before the directory is scanned again.
    if (it != listings_.end() && !it->second.Matches(st) && dirStat != nullptr &&
        stat(dir.empty() ? "." : dir.c_str(), &st) != 0) {
      return 0;
    }
    if (it == listings_.end() || !it->second.Matches(st)) {
      if (listings_.size() >= kMaxListings) listings_.clear();
      Listing listing;
      if (!listing.Scan(dir, st)) return 0;
      it = listings_.insert_or_assign(dir, std::move(listing)).first;
    }
    return it->second.Find(folded, entry);
  }

  // Whether the listing kept of dir, current by a look at dir taken here, holds no entry equal to
  // name ignoring case. False without a look when no listing of dir is kept (name is then not
  // even folded) or the one kept holds such an entry; false after the look when the listing is
  // out of date.
  bool KnownAbsent(const std::string& dir, std::string_view name) {
    std::string folded;
    {
      std::lock_guard<std::mutex> lock(mu_);
      const auto it = listings_.find(dir);
      if (it == listings_.end()) return false;
      folded = FoldedName(name);
      if (it->second.names.count(folded) != 0) return false;
    }
    struct stat st;
    if (stat(dir.empty() ? "." : dir.c_str(), &st) != 0) return false;
    std::lock_guard<std::mutex> lock(mu_);
    const auto it = listings_.find(dir);
    return it != listings_.end() && it->second.Matches(st) && it->second.names.count(folded) == 0;
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
    // Folded name -> 1 and the one entry that folds to it, or 2 (several) and the last one seen.
    std::unordered_map<std::string, std::pair<int, std::string>> names;

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
      auto& slot = names[FoldedName(name)];
      if (slot.first == 1 && slot.second == name) return;  // already listed
      slot = {slot.first == 0 ? 1 : 2, name};
    }
    int Find(const std::string& folded, std::string* entry) const {
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
// *path. With exactTried the caller already knows that the exact name does not exist; dirStat,
// when not null, is the directory's lstat just taken.
bool AppendEntry(std::string* path, std::string_view name, bool exactTried,
                 const struct stat* dirStat) {
  const size_t dirEnd = path->size();
  if (!exactTried) {
    AppendName(path, name);
    if (Exists(*path)) return true;
    path->resize(dirEnd);
  }
  std::string entry;
  if (Listings().Find(*path, FoldedName(name), &entry, dirStat) != 1) return false;
  AppendName(path, entry);
  return true;
}

}  // namespace

std::string FoldedName(std::string_view name) {
  std::string folded;
  folded.reserve(name.size());
  for (size_t i = 0; i < name.size();) {
    char32_t c = 0;
    const size_t length = Utf8SequenceLength(name, i, &c);
    // A malformed byte stands for itself, offset beyond every character.
    const char32_t key = length == 0 ? 0x110000 + static_cast<unsigned char>(name[i]) : FoldCase(c);
    if (key < 0x80) {
      folded += static_cast<char>(key);
    } else {
      const char bytes[] = {'\xFF', static_cast<char>(key >> 16), static_cast<char>(key >> 8),
                            static_cast<char>(key)};
      folded.append(bytes, sizeof bytes);
    }
    i += length == 0 ? 1 : length;
  }
  return folded;
}

// Works on one buffer: the path as written is built once with the end of every prefix noted.
// When it does not exist, the longest prefix that does is found (the parent first, as it usually
// is, else by bisection: a prefix exists only if every shorter one does), and only the names
// after it are looked up one by one.
std::string ResolveCase(const std::string& root, const std::vector<std::string_view>& names,
                        FoundEntry* found) {
  std::string path = root;
  std::vector<size_t> ends;  // ends[k]: length of root joined with names[0..k]
  ends.reserve(names.size());
  for (std::string_view name : names) {
    AppendName(&path, name);
    ends.push_back(path.size());
  }
  if (names.empty()) return path;
  FoundEntry ignored;
  FoundEntry& entry = found != nullptr ? *found : ignored;
  // A new file in a directory whose listing is kept (a copy into the output directory): the
  // listing, once a look at the directory shows it current, says nothing stands there.
  const size_t n = names.size();
  if (Listings().KnownAbsent(path.substr(0, n > 1 ? ends[n - 2] : root.size()), names[n - 1])) {
    entry.missing = true;
    return path;
  }
  entry.known = lstat(path.c_str(), &entry.st) == 0;
  if (entry.known) return path;
  const bool absent = errno == ENOENT;
  // Whether root joined with the first count names exists; the buffer is cut at the "/" that
  // follows them for the call and restored after. The last prefix found is kept with its lstat.
  struct stat prefixStat;
  size_t prefixCount = 0;
  const auto prefixExists = [&](size_t count) {
    const size_t end = ends[count - 1];
    const char separator = path[end];
    path[end] = '\0';
    struct stat st;
    const bool exists = lstat(path.c_str(), &st) == 0;
    path[end] = separator;
    if (exists) {
      prefixStat = st;
      prefixCount = count;
    }
    return exists;
  };
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
    const struct stat* dirStat =
        k == known && known > 0 && prefixCount == known ? &prefixStat : nullptr;
    if (!AppendEntry(&path, names[k], k == known, dirStat)) {
      AppendNames(&path, names, k);
      // The parent exists as written and holds no match: the path is the one that failed.
      entry.missing = absent && k == known && k == n - 1;
      return path;
    }
  }
  return path;
}

void NoteFileCreated(const std::string& nativePath) { Listings().NoteCreated(nativePath); }

void NoteFileRemoved(const std::string& nativePath) { Listings().NoteRemoved(nativePath); }

void ClearListings() { Listings().Clear(); }

void SetCaseInsensitiveLookup(bool on) { g_caseInsensitive.store(on ? 1 : 0); }

bool CaseInsensitiveLookup() {
  int on = g_caseInsensitive.load();
  if (on < 0) {
    const std::optional<std::string> value = EnvironmentValue("NOMZUB_CASE_SENSITIVE");
    const int fromEnvironment = value && *value == "1" ? 0 : 1;
    g_caseInsensitive.compare_exchange_strong(on, fromEnvironment);
    on = g_caseInsensitive.load();
  }
  return on == 1;
}

std::string CaseFoldKey(const std::string& moduleName) { return FoldedName(AcpToUtf8(moduleName)); }

std::string FileNameKey(const std::string& modulePath) {
  return CaseFoldKey(PathFindFileNameA(modulePath.c_str()));
}

}  // namespace nomplat
