// The Windows file, error and process calls the module makes, over the current Env.
#ifndef NOM_PLATFORM_WIN32_H_
#define NOM_PLATFORM_WIN32_H_

#include <string>

#include "platform/codepage.h"
#include "win_types.h"

namespace nomplat {

// Copies src to dst (module paths); replaces dst unless failIfExists. Nonzero on success; on
// failure 0 and the thread's last error holds the Windows error number.
NOM_API BOOL CopyFileA(const char* src, const char* dst, BOOL failIfExists);
// The calling thread's last error; changed only by calls that fail and by SetLastError.
NOM_API DWORD GetLastError();
NOM_API void SetLastError(DWORD code);
// The file-name part of path: after the last "\", "/" or ":" that is followed by something other
// than a separator. "C:\Pkg\Part.vgxXml" -> "Part.vgxXml", "C:\Pkg\" -> "Pkg\", "C:" -> "C:",
// "" -> "". Multibyte-aware. Returns a pointer into path.
NOM_API const char* PathFindFileNameA(const char* path);
// Copies the variable's value and its terminating zero into buf when size is large enough and
// returns its length; returns the size needed (terminator included) when size is too small; 0
// when unset or empty (buf, if any, then holds "").
NOM_API DWORD GetEnvironmentVariableA(const char* name, char* buf, DWORD size);

// The existence test: opens path for reading with sharing allowed to all and closes it at once.
// True only for a regular, readable file.
NOM_API bool CanOpenForReading(const std::string& path);

}  // namespace nomplat

#endif  // NOM_PLATFORM_WIN32_H_
