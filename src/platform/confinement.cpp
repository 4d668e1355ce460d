// Confinement of reads to root directories, and what the preflight asks of the file system about
// a module path (StatModulePath, FreeBytes).
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/case_lookup.h"
#include "platform/env_settings.h"
#include "platform/path_syntax.h"
#include "platform/paths.h"
#include "platform/winerror.h"

namespace nomplat {
namespace {

// Each non-empty directory as its real path, or as written without trailing "/" when it cannot
// be resolved.
std::vector<std::string> Resolve(const std::vector<std::string>& dirs) {
  std::vector<std::string> roots;
  for (const std::string& dir : dirs) {
    if (dir.empty()) continue;
    std::string real;
    roots.push_back(RealPath(dir, &real) ? std::move(real) : TrimDirectory(dir));
  }
  return roots;
}

// The roots NOMZUB_CONFINE ("/a:/b", colon-separated) names, resolved; none when it is unset.
std::vector<std::string> RootsFromEnvironment() {
  const std::optional<std::string> value = EnvironmentValue("NOMZUB_CONFINE");
  if (!value) return {};
  std::vector<std::string> dirs;
  const std::string& list = *value;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(':', start);
    if (end == std::string::npos) end = list.size();
    dirs.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  return Resolve(dirs);
}

// The confinement roots, as real paths. NOMZUB_CONFINE is read (outside the lock) on first use
// unless SetConfinementRoots came first.
class ConfinementRootsStore {
 public:
  void Set(const std::vector<std::string>& dirs) {
    std::vector<std::string> roots = Resolve(dirs);
    std::lock_guard<std::mutex> lock(mu_);
    roots_ = std::move(roots);
    loaded_.store(true, std::memory_order_release);
  }

  std::vector<std::string> Roots() {
    const auto lock = Lock();
    return roots_;
  }

  bool Active() {
    const auto lock = Lock();
    return !roots_.empty();
  }

  bool Contains(const std::string& real) {
    const auto lock = Lock();
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
  std::unique_lock<std::mutex> Lock() {
    return LockLoaded(mu_, loaded_, RootsFromEnvironment, [this](std::vector<std::string> roots) {
      roots_ = std::move(roots);
      loaded_.store(true, std::memory_order_release);
    });
  }

  std::mutex mu_;
  std::atomic<bool> loaded_{false};
  std::vector<std::string> roots_;
};

ConfinementRootsStore& Confinement() {
  static ConfinementRootsStore store;
  return store;
}

}  // namespace

void SetConfinementRoots(const std::vector<std::string>& nativeDirs) {
  Confinement().Set(nativeDirs);
}

std::vector<std::string> ConfinementRoots() { return Confinement().Roots(); }

bool ReadsConfined() { return Confinement().Active(); }

bool IsConfined(const std::string& realNative) { return Confinement().Contains(realNative); }

DWORD StatModulePath(const std::string& modulePath, FileFacts* facts) {
  *facts = FileFacts();
  DWORD error = 0;
  FoundEntry found;
  if (!ToNativePathFound(modulePath, &facts->native, &error, &found)) return error;
  if (found.missing) return 0;
  struct stat st;
  if (found.known && !S_ISLNK(found.st.st_mode)) {
    st = found.st;  // what the look-up saw is the file itself: no link to follow
  } else if (stat(facts->native.c_str(), &st) != 0) {
    return 0;  // missing (or unreachable): no facts
  }
  facts->exists = true;
  facts->regular = S_ISREG(st.st_mode);
  facts->device = static_cast<uint64_t>(st.st_dev);
  facts->inode = static_cast<uint64_t>(st.st_ino);
  facts->size = facts->regular ? static_cast<uint64_t>(st.st_size) : 0;
  facts->mode = static_cast<uint32_t>(st.st_mode & 07777);
  // Resolving links costs a call per component: only confinement needs it.
  if (ReadsConfined()) {
    if (!RealPath(facts->native, &facts->real)) facts->real.clear();
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

}  // namespace nomplat
