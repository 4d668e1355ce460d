// Windows-style module paths on a POSIX file system: drive and share maps, rooted and relative
// paths, and the case-insensitive look-up of components that Windows-authored packages rely on.
#ifndef NOM_PLATFORM_PATHS_H_
#define NOM_PLATFORM_PATHS_H_

#include <string>

#include "NOMSOITypes.h"

namespace nomplat {

// Maps drive letter (either case) to a native directory; replaces an earlier mapping.
// Z: maps to "/" unless remapped. NOMZUB_DRIVES ("C=/mnt/c;D=/srv/d") is read on first use.
NOM_API void MapDrive(char letter, const std::string& nativeDir);
// Maps "\\server\share" (case-insensitive) to a native directory. NOMZUB_SHARES
// ("\\srv\pub=/mnt/pub;...") is read on first use.
NOM_API void MapShare(const std::string& uncPrefix, const std::string& nativeDir);
// Forgets every mapping made by MapDrive/MapShare and the environment; Z: maps to "/" again.
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
// false and sets *error to 3 (unmapped drive) or 53 (unmapped share) when the path cannot be
// mapped.
NOM_API bool ToNativePath(const std::string& modulePath, std::string* nativePath, DWORD* error);

// Keeps the case-insensitive look-up's directory listings current: the Env calls these after it
// created or removed a native file or directory.
void NoteFileCreated(const std::string& nativePath);
void NoteFileRemoved(const std::string& nativePath);

// The Windows error number for an errno value: ENOENT 2, ENOTDIR 3, EACCES/EPERM/EROFS/EISDIR 5,
// EBUSY/ETXTBSY 32, EEXIST 80, ENOSPC/EDQUOT 112, ENAMETOOLONG 206, anything else 1359.
NOM_API DWORD MapErrno(int err);

}  // namespace nomplat

#endif  // NOM_PLATFORM_PATHS_H_
