// Resolving the directories of a package both ways through the platform's path maps.
#include "NOMZUBProxy/package_paths.h"

#include <cctype>

#include "platform/env.h"
#include "platform/paths.h"

namespace fs = std::filesystem;

namespace nomzub::proxy {
namespace {

bool Fail(std::string* error, const std::string& text) {
  *error = text;
  return false;
}

// The absolute, normalised native directory of a module path.
bool NativeDirectory(const std::string& modulePath, fs::path* dir, std::string* error) {
  std::string native;
  DWORD code = 0;
  std::error_code ec;
  if (modulePath.empty() || !nomplat::ToNativePath(modulePath, &native, &code)) {
    return Fail(error,
                "cannot use directory '" + modulePath + "' (error " + std::to_string(code) + ")");
  }
  fs::path p = fs::absolute(native, ec).lexically_normal();
  if (ec) return Fail(error, "cannot use directory '" + modulePath + "': " + ec.message());
  *dir = p.has_filename() ? p : p.parent_path();
  return true;
}

// Names dir->native as a module path.
bool NameDirectory(PackageDirectory* dir, std::string* error) {
  if (nomplat::ToModulePath(dir->native.string(), &dir->module)) return true;
  return Fail(error, "directory " + dir->native.string() +
                         " lies on no mapped drive or share, or holds a name a module path "
                         "cannot carry");
}

}  // namespace

std::string PackageDirectory::ModulePathOf(const std::string& name) const {
  return !module.empty() && module.back() == '\\' ? module + name : module + "\\" + name;
}

bool ResolveDirectory(const std::string& modulePath, PackageDirectory* dir, std::string* error) {
  return NativeDirectory(modulePath, &dir->native, error) && NameDirectory(dir, error);
}

bool ProductCache(const std::string& project, PackageDirectory* dir, std::string* error) {
  nomplat::Env* env = nomplat::CurrentEnv();
  std::string root;
  if (!env->GetEnvironmentVariable("NOMZUB_CACHE", &root) || root.empty()) {
    std::string base;
    if (env->GetEnvironmentVariable("XDG_CACHE_HOME", &base) && !base.empty()) {
      root = base + "/nomzub";
    } else if (env->GetEnvironmentVariable("HOME", &base) && !base.empty()) {
      root = base + "/.cache/nomzub";
    } else {
      return Fail(error, "no product cache: set NOMZUB_CACHE, XDG_CACHE_HOME or HOME");
    }
  }
  std::string safe = project;
  for (char& c : safe) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '_' && c != '-') c = '_';
  }
  if (!NativeDirectory(root, &dir->native, error)) return false;
  dir->native /= safe;
  return NameDirectory(dir, error);
}

}  // namespace nomzub::proxy
