// The Windows system error numbers the platform layer reports: where they come from (errno) and
// how a message names them.
#ifndef NOM_PLATFORM_WINERROR_H_
#define NOM_PLATFORM_WINERROR_H_

#include <string>

#include "win_types.h"

namespace nomplat {

// Files and directories: missing file, missing directory, refused, in use, already there.
constexpr DWORD kErrorFileNotFound = 2, kErrorPathNotFound = 3, kErrorAccessDenied = 5;
constexpr DWORD kErrorSharingViolation = 32, kErrorFileExists = 80;
// Names: an unmapped share, a name Windows refuses, a name too long.
constexpr DWORD kErrorBadNetPath = 53, kErrorInvalidName = 123, kErrorFilenameTooLong = 206;
// Calls: a bad argument, a buffer too small, an unset environment variable.
constexpr DWORD kErrorInvalidParameter = 87, kErrorInsufficientBuffer = 122;
constexpr DWORD kErrorEnvVarNotFound = 203;
// The disk is full; anything else.
constexpr DWORD kErrorDiskFull = 112, kErrorInternal = 1359;

// The Windows error number for an errno value: 0 stays 0; ENOENT 2, ENOTDIR 3,
// EACCES/EPERM/EROFS/EISDIR 5, EBUSY/ETXTBSY 32, EEXIST 80, ENOSPC/EDQUOT 112, ENAMETOOLONG 206,
// anything else 1359. The one place errno becomes a Windows number.
NOM_API DWORD MapErrno(int err);

// A Windows error number as messages name it: "Windows error 2 (file not found)"; a number without
// a known text gives "Windows error N".
NOM_API std::string DescribeWindowsError(DWORD error);

}  // namespace nomplat

#endif  // NOM_PLATFORM_WINERROR_H_
