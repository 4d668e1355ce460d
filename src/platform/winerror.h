// The Windows system error numbers the platform layer reports.
#ifndef NOM_PLATFORM_WINERROR_H_
#define NOM_PLATFORM_WINERROR_H_

#include "NOMSOITypes.h"

namespace nomplat {

constexpr DWORD kErrorFileNotFound = 2;
constexpr DWORD kErrorPathNotFound = 3;
constexpr DWORD kErrorAccessDenied = 5;
constexpr DWORD kErrorSharingViolation = 32;
constexpr DWORD kErrorBadNetPath = 53;
constexpr DWORD kErrorFileExists = 80;
constexpr DWORD kErrorInvalidParameter = 87;
constexpr DWORD kErrorDiskFull = 112;
constexpr DWORD kErrorInsufficientBuffer = 122;
constexpr DWORD kErrorInvalidName = 123;
constexpr DWORD kErrorEnvVarNotFound = 203;
constexpr DWORD kErrorFilenameTooLong = 206;
constexpr DWORD kErrorInternal = 1359;

}  // namespace nomplat

#endif  // NOM_PLATFORM_WINERROR_H_
