// Where a package goes: the SOI directory and the product cache as absolute native directories,
// and the module paths it is registered, logged and referred to under. Module paths come from
// the platform's drive and share maps (nomplat::ToNativePath, nomplat::ToModulePath) alone.
#ifndef NOM_NOMZUBPROXY_PACKAGE_PATHS_H_
#define NOM_NOMZUBPROXY_PACKAGE_PATHS_H_

#include <filesystem>
#include <string>

namespace nomzub::proxy {

// A directory of the package: where it lies natively and the module path that names it.
struct PackageDirectory {
  std::filesystem::path native;  // absolute and normalised
  std::string module;            // through the drive and share maps in force

  // The module path of the file called name in the directory.
  std::string ModulePathOf(const std::string& name) const;
};

// The directory a module path names (a full native path is taken as a rooted one). False with
// *error naming the path and the cause when the path cannot be mapped, or when no module path
// names the native directory (it lies on no mapped drive or share, or a name in it is one a
// module path cannot carry), so that nothing could refer to it.
bool ResolveDirectory(const std::string& modulePath, PackageDirectory* dir, std::string* error);

// The product cache of a project: NOMZUB_CACHE, else $XDG_CACHE_HOME/nomzub, else
// $HOME/.cache/nomzub; one directory per project below it, the project's name made safe for a
// file name. False with *error when none of them is set or as ResolveDirectory.
bool ProductCache(const std::string& project, PackageDirectory* dir, std::string* error);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PACKAGE_PATHS_H_
