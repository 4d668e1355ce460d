// Windows error numbers from errno values, and their texts.
#include "platform/winerror.h"

#include <cerrno>

namespace nomplat {

DWORD MapErrno(int err) {
  switch (err) {
    case 0:
      return 0;
    case ENOENT:
      return kErrorFileNotFound;
    case ENOTDIR:
      return kErrorPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return kErrorAccessDenied;
    case EBUSY:
    case ETXTBSY:
      return kErrorSharingViolation;
    case EEXIST:
      return kErrorFileExists;
    case ENOSPC:
    case EDQUOT:
      return kErrorDiskFull;
    case ENAMETOOLONG:
      return kErrorFilenameTooLong;
    default:
      return kErrorInternal;
  }
}

std::string DescribeWindowsError(DWORD error) {
  static const struct {
    DWORD error;
    const char* text;
  } kTexts[] = {
      {kErrorFileNotFound, "file not found"},       {kErrorPathNotFound, "path not found"},
      {kErrorAccessDenied, "access denied"},        {kErrorSharingViolation, "file in use"},
      {kErrorBadNetPath, "network path not found"}, {kErrorDiskFull, "disk full"},
      {kErrorInvalidName, "invalid file name"},     {kErrorFilenameTooLong, "file name too long"},
      {kErrorInternal, "internal error"},
  };
  std::string description = "Windows error " + std::to_string(error);
  for (const auto& known : kTexts) {
    if (known.error == error) return description + " (" + known.text + ")";
  }
  return description;
}

}  // namespace nomplat
