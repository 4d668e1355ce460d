// The case-insensitive look-up of path components that Windows-authored packages rely on, and the
// directory listings it keeps. Internal to libNOMZUBBase.
#ifndef NOM_PLATFORM_CASE_LOOKUP_H_
#define NOM_PLATFORM_CASE_LOOKUP_H_

#include <sys/stat.h>

#include <string>
#include <string_view>
#include <vector>

#include "win_types.h"

namespace nomplat {

// A name (UTF-8) with every character case-folded as Windows compares file names (simple
// one-to-one upper-case mappings), as a key: equal for names Windows would take as one. A folded
// ASCII character is its own byte; any other is 0xFF and its code point's three bytes, most
// significant first, so keys sort as their characters do. A byte that starts no well-formed UTF-8
// sequence stands for itself, beyond every character, and equals no character.
std::string FoldedName(std::string_view name);

// What a look-up learnt of the entry a path names, so that its caller need not ask again.
struct FoundEntry {
  bool known = false;    // st holds the lstat of the path returned (which then exists)
  bool missing = false;  // the path returned was looked at: nothing stands there (ENOENT)
  struct stat st {};
};

// root joined with names, each name that does not exist as written replaced by its unique
// case-insensitive match in its directory; from the first name without one, the rest stays as
// written. Linear in the path's length, with at most one lstat per component and no directory
// looked at twice. When found is not null it receives what the look-up learnt: the lstat of the
// path when it exists as written, or that nothing stands at the path returned.
std::string ResolveCase(const std::string& root, const std::vector<std::string_view>& names,
                        FoundEntry* found = nullptr);

// ToNativePath (paths.h) that also hands over, in *found, what the look-up learnt of the entry.
NOM_API bool ToNativePathFound(const std::string& modulePath, std::string* nativePath, DWORD* error,
                               FoundEntry* found);

// Keeps the listings current; the POSIX Env calls it after it created a native file or directory.
void NoteFileCreated(const std::string& nativePath);
// Keeps the listings current; the POSIX Env calls it after it removed a native file.
void NoteFileRemoved(const std::string& nativePath);
// Forgets every listing.
void ClearListings();

}  // namespace nomplat

#endif  // NOM_PLATFORM_CASE_LOOKUP_H_
