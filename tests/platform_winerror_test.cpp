// Windows error numbers: from errno values, and as messages name them.
#include <gtest/gtest.h>

#include <cerrno>

#include "NOMZUBVGXTranslator/error_text.h"
#include "platform/winerror.h"

namespace nomplat {
namespace {

TEST(WinError, MapErrno_WindowsNumbers) {
  EXPECT_EQ(0u, MapErrno(0));
  EXPECT_EQ(2u, MapErrno(ENOENT));
  EXPECT_EQ(3u, MapErrno(ENOTDIR));
  EXPECT_EQ(5u, MapErrno(EACCES));
  EXPECT_EQ(5u, MapErrno(EPERM));
  EXPECT_EQ(5u, MapErrno(EROFS));
  EXPECT_EQ(5u, MapErrno(EISDIR));
  EXPECT_EQ(32u, MapErrno(EBUSY));
  EXPECT_EQ(32u, MapErrno(ETXTBSY));
  EXPECT_EQ(80u, MapErrno(EEXIST));
  EXPECT_EQ(112u, MapErrno(ENOSPC));
  EXPECT_EQ(112u, MapErrno(EDQUOT));
  EXPECT_EQ(206u, MapErrno(ENAMETOOLONG));
  EXPECT_EQ(1359u, MapErrno(EIO));
  EXPECT_EQ(1359u, MapErrno(EINVAL));
}

TEST(WinError, Describe_KnownNumbersHaveTheirText) {
  EXPECT_EQ("Windows error 2 (file not found)", DescribeWindowsError(2));
  EXPECT_EQ("Windows error 3 (path not found)", DescribeWindowsError(3));
  EXPECT_EQ("Windows error 5 (access denied)", DescribeWindowsError(5));
  EXPECT_EQ("Windows error 32 (file in use)", DescribeWindowsError(32));
  EXPECT_EQ("Windows error 53 (network path not found)", DescribeWindowsError(53));
  EXPECT_EQ("Windows error 112 (disk full)", DescribeWindowsError(112));
  EXPECT_EQ("Windows error 123 (invalid file name)", DescribeWindowsError(123));
  EXPECT_EQ("Windows error 206 (file name too long)", DescribeWindowsError(206));
  EXPECT_EQ("Windows error 1359 (internal error)", DescribeWindowsError(1359));
}

TEST(WinError, Describe_OtherNumbersHaveNumberAlone) {
  EXPECT_EQ("Windows error 80", DescribeWindowsError(80));
  EXPECT_EQ("Windows error 0", DescribeWindowsError(0));
  EXPECT_EQ("Windows error 4294967295", DescribeWindowsError(0xFFFFFFFFu));
}

TEST(WinError, Describe_OldNameIsTheSameFunction) {
  EXPECT_EQ(DescribeWindowsError(5), nomzub::DescribeWindowsError(5));
  EXPECT_EQ(&DescribeWindowsError, &nomzub::DescribeWindowsError);
}

}  // namespace
}  // namespace nomplat
