// The case-insensitive look-up of path components that Windows-authored packages rely on, and the
// directory listings it keeps. Internal to libNOMZUBBase.
#ifndef NOM_PLATFORM_CASE_LOOKUP_H_
#define NOM_PLATFORM_CASE_LOOKUP_H_

#include <string>
#include <string_view>
#include <vector>

namespace nomplat {

// A name (UTF-8) with every character case-folded as Windows compares file names (simple
// one-to-one upper-case mappings): equal for names Windows would take as one. A byte that starts
// no well-formed UTF-8 sequence stands for itself and equals no character.
std::u32string FoldedName(std::string_view name);

// root joined with names, each name that does not exist as written replaced by its unique
// case-insensitive match in its directory; from the first name without one, the rest stays as
// written. Linear in the path's length, with at most one lstat per component.
std::string ResolveCase(const std::string& root, const std::vector<std::string_view>& names);

// Keeps the listings current; the POSIX Env calls it after it created a native file or directory.
void NoteFileCreated(const std::string& nativePath);
// Keeps the listings current; the POSIX Env calls it after it removed a native file.
void NoteFileRemoved(const std::string& nativePath);
// Forgets every listing.
void ClearListings();

}  // namespace nomplat

#endif  // NOM_PLATFORM_CASE_LOOKUP_H_
