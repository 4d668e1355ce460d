// Windows-style module paths on a POSIX file system: drive and share maps, rooted and relative
// paths, and the case-insensitive look-up of components that Windows-authored packages rely on.
#ifndef NOM_PLATFORM_PATHS_H_
#define NOM_PLATFORM_PATHS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "win_types.h"

namespace nomplat {

// The environment variables named below are read through the current Env (env.h) on first use;
// an entry that does not parse is logged at level 2 and skipped.

// Maps drive letter (either case) to a native directory; replaces an earlier mapping. A
// character that is not a letter is logged and ignored. Z: maps to "/" unless remapped.
// NOMZUB_DRIVES ("C=/mnt/c;D=/srv/d") is read on first use.
NOM_API void MapDrive(char letter, const std::string& nativeDir);
// Maps "\\server\share" (case-insensitive; in the process's code page) to a native directory;
// anything else is logged and ignored. NOMZUB_SHARES ("\\srv\pub=/mnt/pub;...") is read on first
// use.
NOM_API void MapShare(const std::string& uncPrefix, const std::string& nativeDir);
// Forgets every mapping made by MapDrive/MapShare and the environment, and the directory listings
// of the case-insensitive look-up; the next use reads the environment again (Z: maps to "/").
NOM_API void ResetPathMaps();
// Turns the case-insensitive fallback on or off (NOMZUB_CASE_SENSITIVE=1 turns it off).
NOM_API void SetCaseInsensitiveLookup(bool on);
// Whether the case-insensitive fallback is on (the environment's choice until set).
NOM_API bool CaseInsensitiveLookup();

// For tests: on destruction forgets every drive and share mapping (as ResetPathMaps) and restores
// the case-insensitive fallback as it was at construction.
class ScopedPathMaps {
 public:
  ScopedPathMaps() : caseInsensitive_(CaseInsensitiveLookup()) {}
  ~ScopedPathMaps() {
    ResetPathMaps();
    SetCaseInsensitiveLookup(caseInsensitive_);
  }
  ScopedPathMaps(const ScopedPathMaps&) = delete;
  ScopedPathMaps& operator=(const ScopedPathMaps&) = delete;

 private:
  bool caseInsensitive_;
};

// Turns a module path into a native UTF-8 path. "\" and "/" both separate components;
// "X:\rest" and "X:rest" start at the drive's directory; "\\server\share\rest" at the share's;
// "\rest" at "/"; anything else is relative to the working directory. Where a component does not
// exist with the exact case, a unique case-insensitive match in its directory is used. Returns
// false and sets *error to 3 (unmapped drive), 53 (unmapped share) or 123 (a name Windows
// refuses: a ":" other than the drive's, one of <>"|?*, a control character, or a component
// ending in "." or " " other than "." and "..") when the path cannot be mapped. Linear in the
// path's length.
NOM_API bool ToNativePath(const std::string& modulePath, std::string* nativePath, DWORD* error);
// ToNativePath without looking at the disk: every name as written, as with the case-insensitive
// look-up off. Enough where paths are compared without letter case anyway.
NOM_API bool ToNativePathAsWritten(const std::string& modulePath, std::string* nativePath,
                                   DWORD* error);

// Turns an absolute native UTF-8 path into the module path that names it through the maps in
// force, the inverse of ToNativePath: under a mapped drive's directory "X:\rest", under a mapped
// share's "\\server\share\rest" (as MapShare spelled it), the directory itself "X:\" or
// "\\server\share\". The mapped directory that holds the path most closely wins; on a tie a
// drive before a share and the earlier letter first (so with the default Z: every path has one).
// "//", "." and ".." are resolved as written (links are not followed); a trailing "/" stays a
// trailing "\". The result is in the process's code page (Utf8ToAcp). Returns true with
// *modulePath set; false, *modulePath untouched, when the path is relative, when no mapped
// directory holds it (Z: remapped), or when a module path cannot name it: a name holding "\" or
// one ToNativePath refuses (123), or a character the code page lacks.
NOM_API bool ToModulePath(const std::string& nativePath, std::string* modulePath);

// Confinement: when roots are set, a file is read (opened, copied from, listed as existing) only
// when its real path, symbolic links resolved, lies inside one of them; any other read fails
// with ERROR_ACCESS_DENIED (5). Roots are native directories, resolved to their real paths when
// set; a root that does not exist is kept as written (it then contains nothing). No roots (the
// default): no confinement. NOMZUB_CONFINE ("/a:/b", colon-separated) is read on first use unless
// roots were set first.
NOM_API void SetConfinementRoots(const std::vector<std::string>& nativeDirs);
// The roots in force, as real paths; empty when there is no confinement.
NOM_API std::vector<std::string> ConfinementRoots();
// True when roots are set: ConfinementRoots() would not be empty.
NOM_API bool ReadsConfined();
// True when there is no confinement or the real path realNative (already resolved) lies inside
// a root (the root itself included).
NOM_API bool IsConfined(const std::string& realNative);

// What the preflight needs to know of the file a module path names, without opening it.
struct FileFacts {
  bool exists = false;   // the path names something (links followed)
  bool regular = false;  // ... and it is a regular file
  uint64_t device = 0;   // identity of the file, for exists
  uint64_t inode = 0;
  uint64_t size = 0;     // bytes, for a regular file
  uint32_t mode = 0;     // permission bits
  std::string native;    // the native path ToNativePath gives
  std::string real;      // the real path (links resolved), only under confinement; else ""
  bool confined = true;  // IsConfined(real) for an existing file under confinement
};
// Fills *facts for modulePath (links followed). Returns 0, or the Windows error that keeps the
// path from being mapped (3, 53, 123); a missing file is not an error (facts->exists false).
NOM_API DWORD StatModulePath(const std::string& modulePath, FileFacts* facts);
// Free bytes available to this process in the file system holding the module directory dir.
// Returns 0 or a Windows error.
NOM_API DWORD FreeBytes(const std::string& moduleDir, uint64_t* bytes);
// A key equal for two file names (module paths' last components, in the process's code page)
// that Windows takes as one name: compared without letter case. Keys sort as the folded names'
// characters do.
NOM_API std::string CaseFoldKey(const std::string& moduleName);
// CaseFoldKey of module path modulePath's file name (its last component; "" after a separator).
NOM_API std::string FileNameKey(const std::string& modulePath);

}  // namespace nomplat

#endif  // NOM_PLATFORM_PATHS_H_
