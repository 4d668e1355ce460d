// Path strings, without touching the file system (RealPath aside): the syntax of module paths
// (separators, drive letters, share names, components, names Windows refuses) and native path
// strings (trimmed directories, parents, lexical form). Internal to libNOMZUBBase.
#ifndef NOM_PLATFORM_PATH_SYNTAX_H_
#define NOM_PLATFORM_PATH_SYNTAX_H_

#include <string>
#include <string_view>
#include <vector>

namespace nomplat {

// "\" and "/" both separate the components of a module path.
inline bool IsSeparator(char c) { return c == '\\' || c == '/'; }
// An ASCII letter, as drive letters are.
inline bool IsDriveLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
// Case mappings of ASCII letters alone, whatever the process's locale.
inline char AsciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
inline char32_t AsciiUpper(char32_t c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; }

// Splits "\\server\share[\]" (UTF-8, either separator) into the share map's key "\\server\share"
// in lower case and, when spelling is not null, the same as written with backslashes. Returns
// false (outputs untouched) for anything else.
bool ShareKey(const std::string& unc, std::string* key, std::string* spelling = nullptr);

// The components of rest, with "." dropped and ".." taking away the previous component as
// Windows does before it touches the disk. Above the root, ".." is dropped for an absolute path
// and kept for a relative one. "\" separates too unless backslashSeparates is false (native
// paths). The views point into rest.
std::vector<std::string_view> Components(std::string_view rest, bool absolute,
                                         bool backslashSeparates = true);

// Whether Windows would refuse path (UTF-8) as a file name: a ":" other than at index 1 (a
// drive's), one of <>"|?*, a control character, or a component ending in "." or " " other than
// "." and "..". Checked byte by byte (no byte of a UTF-8 multibyte character is ASCII).
bool IsRefusedName(std::string_view path);

// Appends name to *path with one "/" between them (none after a trailing "/" or into "", the
// working directory).
void AppendName(std::string* path, std::string_view name);
// Appends names[from..] to *path, each as AppendName does.
void AppendNames(std::string* path, const std::vector<std::string_view>& names, size_t from);

// A native directory as the maps keep it: no trailing "/" except for the root itself.
std::string TrimDirectory(std::string dir);
// The directory holding native path p, a trailing "/" ignored: "." for a bare name (and for "."),
// "/" for "/" and for a name directly under it.
std::string ParentDirectory(std::string p);
// The absolute native path p written plainly: "/" and the components joined by "/", with "//",
// "." and ".." resolved as Components does (no link followed); "" when p is not absolute.
std::string LexicalAbsolute(std::string_view p);
// The real path of native path p (links, "." and ".." resolved): true with *real set; false (errno
// set, *real untouched) when it cannot be resolved.
bool RealPath(const std::string& p, std::string* real);

}  // namespace nomplat

#endif  // NOM_PLATFORM_PATH_SYNTAX_H_
