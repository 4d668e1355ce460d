// File operations of the default Env and the Windows calls over it, on real files: CopyFileA and
// its error numbers, the existence test, reading, atomic writing, directory creation, and writing
// whole buffers to descriptors (WriteAll).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/fd.h"
#include "platform/paths.h"
#include "platform/win32.h"
#include "support/fault_injection_env.h"
#include "support/test_support.h"

namespace nomplat {
namespace {

using nomtest::FileExists;
using nomtest::ListDir;
using nomtest::ReadFile;
using nomtest::TempDir;
using nomtest::WriteFile;

// Drive C: is a fresh temporary directory; UTF-8, the case-insensitive fallback on and the
// default Env in force; the last error starts at 0.
class FilesTest : public ::testing::Test {
 protected:
  FilesTest() : codePage_(65001), env_(nullptr) {
    ResetPathMaps();
    SetCaseInsensitiveLookup(true);
    MapDrive('C', tmp_.path());
    SetLastError(0);
  }

  std::string T(const std::string& relative) const { return tmp_.Sub(relative); }

  // The last error after a CopyFileA that must fail; -1 when it succeeded.
  static long CopyError(const std::string& src, const std::string& dst, BOOL failIfExists = FALSE) {
    if (CopyFileA(src.c_str(), dst.c_str(), failIfExists)) return -1;
    return static_cast<long>(GetLastError());
  }

  static struct timespec ModificationTime(const std::string& native) {
    struct stat st {};
    stat(native.c_str(), &st);
    return st.st_mtim;
  }

  // The permission bits of native path p (links not followed); 0 when it does not exist.
  static mode_t Mode(const std::string& native) {
    struct stat st {};
    if (lstat(native.c_str(), &st) != 0) return 0;
    return st.st_mode & 07777;
  }

  static bool IsLink(const std::string& native) {
    struct stat st {};
    return lstat(native.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
  }

  // The names in dir that start with ".nomtmp.".
  static std::vector<std::string> Temporaries(const std::string& dir) {
    std::vector<std::string> found;
    for (const std::string& name : ListDir(dir)) {
      if (name.rfind(".nomtmp.", 0) == 0) found.push_back(name);
    }
    return found;
  }

  // A file of size bytes at native path p, with varied contents.
  static std::string WriteLarge(const std::string& p, size_t size) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 131 % 251);
    WriteFile(p, data);
    return data;
  }

  // Runs body in a child process that may write at most limit bytes to a file, and returns the
  // child's wait status (body's result is its exit code). With killAtLimit the child is killed
  // with SIGKILL by the write that passes the limit, as a kill -9 in the middle of a copy would
  // kill it; otherwise that write fails (EFBIG) and body goes on.
  static int RunWithFileSizeLimit(rlim_t limit, bool killAtLimit,
                                  const std::function<int()>& body) {
    const pid_t pid = fork();
    if (pid == 0) {
      const struct rlimit noCore = {0, 0};
      setrlimit(RLIMIT_CORE, &noCore);
      if (killAtLimit) {
        signal(SIGXFSZ, [](int) { kill(getpid(), SIGKILL); });
      } else {
        signal(SIGXFSZ, SIG_IGN);
      }
      const struct rlimit fileSize = {limit, limit};
      setrlimit(RLIMIT_FSIZE, &fileSize);
      _exit(body());
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
    return status;
  }

  TempDir tmp_;
  ScopedPathMaps maps_;
  ScopedCodePage codePage_;
  ScopedEnv env_;
};

// --- LastCopySize ------------------------------------------------------------------------------

TEST_F(FilesTest, LastCopySize_AfterCopyIsTheCopysSize) {
  WriteFile(T("a.bin"), "12345");
  ForgetLastCopySize();
  ASSERT_EQ(CopyError("C:\\a.bin", "C:\\b.bin"), -1);
  EXPECT_EQ(LastCopySize(), 5);
}

TEST_F(FilesTest, LastCopySize_CopyFoundCurrentIsTheTargetsSize) {
  WriteFile(T("a.bin"), "1234567");
  ASSERT_EQ(CopyError("C:\\a.bin", "C:\\b.bin"), -1);
  ForgetLastCopySize();
  ASSERT_EQ(CopyError("C:\\a.bin", "C:\\b.bin"), -1);  // not made again
  EXPECT_EQ(LastCopySize(), 7);
}

TEST_F(FilesTest, LastCopySize_FailedCopyLeavesItUnknown) {
  ForgetLastCopySize();
  ASSERT_EQ(CopyError("C:\\missing.bin", "C:\\b.bin"), 2);
  EXPECT_EQ(LastCopySize(), -1);
}

TEST_F(FilesTest, LastCopySize_IsPerThread) {
  WriteFile(T("a.bin"), "123");
  ForgetLastCopySize();
  std::thread other([this] { EXPECT_EQ(CopyError("C:\\a.bin", "C:\\b.bin"), -1); });
  other.join();
  EXPECT_EQ(LastCopySize(), -1);
}

// --- CopyFileA errors -------------------------------------------------------------------------

TEST_F(FilesTest, CopyFileA_MissingSourceIsFileNotFound) {
  EXPECT_EQ(2, CopyError("C:\\missing.vgxXml", "C:\\out.vgxXml"));
  EXPECT_FALSE(FileExists(T("out.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_MissingSourceDirectoryIsPathNotFound) {
  EXPECT_EQ(3, CopyError("C:\\NoDir\\a.vgxXml", "C:\\out.vgxXml"));
}

TEST_F(FilesTest, CopyFileA_MissingTargetDirectoryIsPathNotFound) {
  WriteFile(T("a.vgxXml"), "data");
  EXPECT_EQ(3, CopyError("C:\\a.vgxXml", "C:\\NoDir\\a.vgxXml"));
}

TEST_F(FilesTest, CopyFileA_TargetParentIsFileIsPathNotFound) {
  WriteFile(T("a.vgxXml"), "data");
  EXPECT_EQ(3, CopyError("C:\\a.vgxXml", "C:\\a.vgxXml\\b.vgxXml"));
}

TEST_F(FilesTest, CopyFileA_SourceDirectoryIsAccessDenied) {
  WriteFile(T("Dir/inside"), "x");
  EXPECT_EQ(5, CopyError("C:\\Dir", "C:\\out"));
  EXPECT_FALSE(FileExists(T("out")));
}

TEST_F(FilesTest, CopyFileA_TargetDirectoryIsAccessDenied) {
  WriteFile(T("a.vgxXml"), "data");
  WriteFile(T("Dir/inside"), "x");
  EXPECT_EQ(5, CopyError("C:\\a.vgxXml", "C:\\Dir"));
  EXPECT_EQ((std::vector<std::string>{"inside"}), ListDir(T("Dir")));
}

TEST_F(FilesTest, CopyFileA_ReadOnlyTargetIsAccessDeniedEvenForRoot) {
  WriteFile(T("a.vgxXml"), "new");
  WriteFile(T("b.vgxXml"), "old");
  ASSERT_EQ(0, chmod(T("b.vgxXml").c_str(), 0444));
  EXPECT_EQ(5, CopyError("C:\\a.vgxXml", "C:\\b.vgxXml"));
  EXPECT_EQ("old", ReadFile(T("b.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_FailIfExistsGivesFileExists) {
  WriteFile(T("a.vgxXml"), "new");
  WriteFile(T("b.vgxXml"), "old");
  EXPECT_EQ(80, CopyError("C:\\a.vgxXml", "C:\\b.vgxXml", TRUE));
  EXPECT_EQ("old", ReadFile(T("b.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_UnmappedDriveIsPathNotFound) {
  WriteFile(T("a.vgxXml"), "data");
  EXPECT_EQ(3, CopyError("Q:\\a.vgxXml", "C:\\b.vgxXml"));
  EXPECT_EQ(3, CopyError("C:\\a.vgxXml", "Q:\\b.vgxXml"));
}

TEST_F(FilesTest, CopyFileA_UnmappedShareIsBadNetworkPath) {
  WriteFile(T("a.vgxXml"), "data");
  EXPECT_EQ(53, CopyError("\\\\srv\\pub\\a.vgxXml", "C:\\b.vgxXml"));
  EXPECT_EQ(53, CopyError("C:\\a.vgxXml", "\\\\srv\\pub\\b.vgxXml"));
}

TEST_F(FilesTest, CopyFileA_OntoItselfIsSharingViolationAndKeepsFile) {
  WriteFile(T("a.vgxXml"), "data");
  EXPECT_EQ(32, CopyError("C:\\a.vgxXml", "C:\\A.VGXXML"));
  EXPECT_EQ("data", ReadFile(T("a.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_NullArgumentIsInvalidParameter) {
  EXPECT_FALSE(CopyFileA(nullptr, "C:\\b", FALSE));
  EXPECT_EQ(87u, GetLastError());
}

// --- CopyFileA success ------------------------------------------------------------------------

TEST_F(FilesTest, CopyFileA_CopiesContentAndKeepsModificationTime) {
  WriteFile(T("Pkg/a.vgxGeom"), std::string("geo\0metry", 9));
  const struct timespec past[2] = {{1000000000, 123456789}, {1500000000, 987654321}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, T("Pkg/a.vgxGeom").c_str(), past, 0));
  EXPECT_TRUE(CopyFileA("C:\\Pkg\\a.vgxGeom", "C:\\b.vgxGeom", FALSE));
  EXPECT_EQ(std::string("geo\0metry", 9), ReadFile(T("b.vgxGeom")));
  const struct timespec copied = ModificationTime(T("b.vgxGeom"));
  EXPECT_EQ(1500000000, copied.tv_sec);
  EXPECT_EQ(987654321, copied.tv_nsec);
}

TEST_F(FilesTest, CopyFileA_ReplacesExistingTarget) {
  WriteFile(T("a.vgxXml"), "short");
  WriteFile(T("b.vgxXml"), "a much longer old content");
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ("short", ReadFile(T("b.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_FailIfExistsCopiesWhenTargetMissing) {
  WriteFile(T("a.vgxXml"), "data");
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", TRUE));
  EXPECT_EQ("data", ReadFile(T("b.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_EmptyAndLargeFilesCopyExactly) {
  std::string large(3 * 1024 * 1024 + 17, '\0');
  for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * 131 % 251);
  WriteFile(T("large"), large);
  WriteFile(T("empty"), "");
  EXPECT_TRUE(CopyFileA("C:\\large", "C:\\large.copy", FALSE));
  EXPECT_TRUE(CopyFileA("C:\\empty", "C:\\empty.copy", FALSE));
  EXPECT_EQ(large, ReadFile(T("large.copy")));
  EXPECT_TRUE(FileExists(T("empty.copy")));
  EXPECT_EQ("", ReadFile(T("empty.copy")));
}

TEST_F(FilesTest, CopyFileA_FindsSourceAndTargetInAnyCase) {
  WriteFile(T("Pkg/Part.vgxXml"), "new");
  WriteFile(T("Out/PART.VGXXML"), "old");
  EXPECT_TRUE(CopyFileA("C:\\PKG\\part.VGXXML", "C:\\out\\Part.vgxXml", FALSE));
  EXPECT_EQ((std::vector<std::string>{"PART.VGXXML"}), ListDir(T("Out")));
  EXPECT_EQ("new", ReadFile(T("Out/PART.VGXXML")));
}

TEST_F(FilesTest, CopyFileA_932NameWithTrailByte5C) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  WriteFile(T("\xE8\xA1\xA8.vgxXml"), "data");
  EXPECT_TRUE(CopyFileA("C:\\\x95\x5C.vgxXml", "C:\\\x95\x5C-copy.vgxXml", FALSE));
  EXPECT_EQ("data", ReadFile(T("\xE8\xA1\xA8-copy.vgxXml")));
}

// --- CopyFileA: links, permissions, interrupted copies -----------------------------------------

TEST_F(FilesTest, CopyFileA_LinkAtTargetIsReplacedNotWrittenThrough) {
  TempDir elsewhere;
  WriteFile(elsewhere.Sub("victim"), "precious");
  WriteFile(T("a.vgxXml"), "new");
  ASSERT_EQ(0, symlink(elsewhere.Sub("victim").c_str(), T("b.vgxXml").c_str()));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_FALSE(IsLink(T("b.vgxXml")));
  EXPECT_EQ("new", ReadFile(T("b.vgxXml")));
  EXPECT_EQ("precious", ReadFile(elsewhere.Sub("victim")));
}

TEST_F(FilesTest, CopyFileA_LinkToReadOnlyFileAtTargetIsReplaced) {
  TempDir elsewhere;
  WriteFile(elsewhere.Sub("victim"), "precious");
  ASSERT_EQ(0, chmod(elsewhere.Sub("victim").c_str(), 0444));
  WriteFile(T("a.vgxXml"), "new");
  ASSERT_EQ(0, symlink(elsewhere.Sub("victim").c_str(), T("b.vgxXml").c_str()));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ("new", ReadFile(T("b.vgxXml")));
  EXPECT_EQ("precious", ReadFile(elsewhere.Sub("victim")));
}

TEST_F(FilesTest, CopyFileA_DanglingLinkAtTargetIsReplaced) {
  TempDir elsewhere;
  WriteFile(T("a.vgxXml"), "new");
  ASSERT_EQ(0, symlink(elsewhere.Sub("created-through-link").c_str(), T("b.vgxXml").c_str()));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ("new", ReadFile(T("b.vgxXml")));
  EXPECT_EQ(std::vector<std::string>{}, ListDir(elsewhere.path()));
}

TEST_F(FilesTest, CopyFileA_LinkToSourceAtTargetIsReplacedBySourceCopy) {
  WriteFile(T("a.vgxXml"), "data");
  ASSERT_EQ(0, symlink(T("a.vgxXml").c_str(), T("b.vgxXml").c_str()));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_FALSE(IsLink(T("b.vgxXml")));
  EXPECT_EQ("data", ReadFile(T("b.vgxXml")));
  EXPECT_EQ("data", ReadFile(T("a.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_LinkAtTargetWithFailIfExistsIsFileExists) {
  WriteFile(T("a.vgxXml"), "new");
  ASSERT_EQ(0, symlink("nowhere", T("b.vgxXml").c_str()));
  EXPECT_EQ(80, CopyError("C:\\a.vgxXml", "C:\\b.vgxXml", TRUE));
  EXPECT_TRUE(IsLink(T("b.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml", "b.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, CopyFileA_LinkToDirectoryAtTargetIsReplaced) {
  WriteFile(T("a.vgxXml"), "new");
  WriteFile(T("Dir/inside"), "x");
  ASSERT_EQ(0, symlink(T("Dir").c_str(), T("b.vgxXml").c_str()));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ("new", ReadFile(T("b.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"inside"}), ListDir(T("Dir")));
}

TEST_F(FilesTest, CopyFileA_OntoHardLinkOfSourceIsSharingViolation) {
  WriteFile(T("a.vgxXml"), "data");
  ASSERT_EQ(0, link(T("a.vgxXml").c_str(), T("b.vgxXml").c_str()));
  EXPECT_EQ(32, CopyError("C:\\a.vgxXml", "C:\\b.vgxXml"));
  EXPECT_EQ("data", ReadFile(T("a.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml", "b.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, CopyFileA_ReadOnlyTargetIsLeftWithNoTemporary) {
  WriteFile(T("a.vgxXml"), "new");
  WriteFile(T("b.vgxXml"), "old");
  ASSERT_EQ(0, chmod(T("b.vgxXml").c_str(), 0444));
  EXPECT_EQ(5, CopyError("C:\\a.vgxXml", "C:\\b.vgxXml"));
  EXPECT_EQ(0444u, Mode(T("b.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml", "b.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, CopyFileA_CopyTakesSourcePermissions) {
  for (const mode_t mode : {0600, 0640, 0604, 0664, 0755, 0700}) {
    WriteFile(T("a.vgxXml"), "data");
    ASSERT_EQ(0, chmod(T("a.vgxXml").c_str(), mode));
    EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
    EXPECT_EQ(mode, Mode(T("b.vgxXml"))) << std::oct << mode;
    ASSERT_EQ(0, unlink(T("b.vgxXml").c_str()));
  }
}

TEST_F(FilesTest, CopyFileA_CopyOfReadOnlySourceIsWritableByOwnerOnly) {
  WriteFile(T("a.vgxXml"), "data");
  ASSERT_EQ(0, chmod(T("a.vgxXml").c_str(), 0444));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ(0644u, Mode(T("b.vgxXml")));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));  // and can be replaced
}

TEST_F(FilesTest, CopyFileA_CopyDropsSpecialModeBits) {
  WriteFile(T("a.vgxXml"), "data");
  ASSERT_EQ(0, chmod(T("a.vgxXml").c_str(), 04755));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ(0755u, Mode(T("b.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_ReplacedTargetTakesSourcePermissions) {
  WriteFile(T("a.vgxXml"), "new");
  ASSERT_EQ(0, chmod(T("a.vgxXml").c_str(), 0640));
  WriteFile(T("b.vgxXml"), "old");
  ASSERT_EQ(0, chmod(T("b.vgxXml").c_str(), 0666));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ(0640u, Mode(T("b.vgxXml")));
  EXPECT_EQ("new", ReadFile(T("b.vgxXml")));
}

TEST_F(FilesTest, CopyFileA_SuccessLeavesNoTemporary) {
  WriteFile(T("a.vgxXml"), "new");
  WriteFile(T("b.vgxXml"), "old");
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\c.vgxXml", TRUE));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml", "b.vgxXml", "c.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, CopyFileA_WriteErrorLeavesNothingUnderTargetName) {
  WriteLarge(T("large"), 3 << 20);
  const int status = RunWithFileSizeLimit(1 << 20, false, [] {
    return !CopyFileA("C:\\large", "C:\\copy", FALSE) && GetLastError() == 1359 ? 0 : 1;
  });
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(0, WEXITSTATUS(status));
  EXPECT_EQ((std::vector<std::string>{"large"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, CopyFileA_WriteErrorKeepsExistingTarget) {
  WriteLarge(T("large"), 3 << 20);
  WriteFile(T("copy"), "old");
  const int status = RunWithFileSizeLimit(1 << 20, false, [] {
    return !CopyFileA("C:\\large", "C:\\copy", FALSE) && GetLastError() == 1359 ? 0 : 1;
  });
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(0, WEXITSTATUS(status));
  EXPECT_EQ("old", ReadFile(T("copy")));
  EXPECT_EQ((std::vector<std::string>{"copy", "large"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, CopyFileA_KilledMidCopyToNewTargetLeavesNothing) {
  // A new target is written as an unnamed file and named only when complete: a process killed
  // half-way leaves no file under any name.
  WriteLarge(T("large"), 3 << 20);
  const int status = RunWithFileSizeLimit(
      1 << 20, true, [] { return CopyFileA("C:\\large", "C:\\copy", FALSE) ? 0 : 1; });
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(SIGKILL, WTERMSIG(status));
  EXPECT_FALSE(FileExists(T("copy")));
  EXPECT_TRUE(Temporaries(tmp_.path()).empty());
  EXPECT_EQ((std::vector<std::string>{"large"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, CopyFileA_KilledMidCopyKeepsExistingTarget) {
  WriteLarge(T("large"), 3 << 20);
  WriteFile(T("copy"), "old");
  const int status = RunWithFileSizeLimit(
      1 << 20, true, [] { return CopyFileA("C:\\large", "C:\\copy", FALSE) ? 0 : 1; });
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(SIGKILL, WTERMSIG(status));
  EXPECT_EQ("old", ReadFile(T("copy")));
  EXPECT_EQ(1u, Temporaries(tmp_.path()).size());
}

TEST_F(FilesTest, CopyFileA_VeryLongTargetIsNameTooLong) {
  WriteFile(T("a.vgxXml"), "data");
  std::string target = "C:\\";
  for (int i = 0; i < 16000; ++i) target += "a\\";
  EXPECT_EQ(206, CopyError("C:\\a.vgxXml", target + "b.vgxXml"));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml"}), ListDir(tmp_.path()));
}

// --- last error -------------------------------------------------------------------------------

TEST_F(FilesTest, LastError_UnchangedBySuccessfulCopy) {
  WriteFile(T("a.vgxXml"), "data");
  SetLastError(1234);
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
  EXPECT_EQ(1234u, GetLastError());
}

TEST_F(FilesTest, LastError_IsPerThread) {
  SetLastError(7);
  DWORD seenAtStart = 99, seenAfterFailure = 99;
  std::thread other([&] {
    seenAtStart = GetLastError();
    CopyFileA("C:\\missing", "C:\\x", FALSE);
    seenAfterFailure = GetLastError();
  });
  other.join();
  EXPECT_EQ(0u, seenAtStart);
  EXPECT_EQ(2u, seenAfterFailure);
  EXPECT_EQ(7u, GetLastError());
}

// --- existence test ---------------------------------------------------------------------------

TEST_F(FilesTest, CanOpenForReading_RegularFileIsTrue) {
  WriteFile(T("Pkg/a.vgxXml"), "data");
  EXPECT_TRUE(CanOpenForReading("C:\\Pkg\\a.vgxXml"));
  EXPECT_TRUE(CanOpenForReading("c:/pkg/A.VGXXML"));
}

TEST_F(FilesTest, CanOpenForReading_DirectoryIsFalse) {
  WriteFile(T("Pkg/a.vgxXml"), "data");
  EXPECT_FALSE(CanOpenForReading("C:\\Pkg"));
  EXPECT_FALSE(CanOpenForReading("C:\\Pkg\\"));
}

TEST_F(FilesTest, CanOpenForReading_MissingOrUnmappedIsFalse) {
  EXPECT_FALSE(CanOpenForReading("C:\\missing"));
  EXPECT_FALSE(CanOpenForReading("Q:\\missing"));
  EXPECT_FALSE(CanOpenForReading("\\\\srv\\pub\\missing"));
}

TEST_F(FilesTest, CanOpenForReading_FifoIsFalseWithoutBlocking) {
  ASSERT_EQ(0, mkfifo(T("pipe").c_str(), 0644));
  EXPECT_FALSE(CanOpenForReading("C:\\pipe"));
}

TEST_F(FilesTest, CanOpenForReading_FileWithTrailingSeparatorIsFalse) {
  WriteFile(T("a.vgxXml"), "data");
  EXPECT_FALSE(CanOpenForReading("C:\\a.vgxXml\\"));
}

// --- ReadFile ---------------------------------------------------------------------------------

TEST_F(FilesTest, ReadFile_ReadsWholeFile) {
  WriteFile(T("Pkg/a.vgxXml"), "<a/>\n");
  std::string contents;
  EXPECT_EQ(0u, CurrentEnv()->ReadFile("C:\\Pkg\\a.vgxXml", &contents));
  EXPECT_EQ("<a/>\n", contents);
}

TEST_F(FilesTest, ReadFile_MissingFileOrDirectoryClearsContents) {
  std::string contents = "stale";
  EXPECT_EQ(2u, CurrentEnv()->ReadFile("C:\\missing", &contents));
  EXPECT_EQ("", contents);
  contents = "stale";
  EXPECT_EQ(3u, CurrentEnv()->ReadFile("C:\\NoDir\\missing", &contents));
  EXPECT_EQ("", contents);
}

TEST_F(FilesTest, ReadFile_DirectoryIsAccessDenied) {
  WriteFile(T("Dir/x"), "1");
  std::string contents;
  EXPECT_EQ(5u, CurrentEnv()->ReadFile("C:\\Dir", &contents));
}

// --- WriteFileAtomic --------------------------------------------------------------------------

TEST_F(FilesTest, WriteFileAtomic_CreatesFileAndLeavesNoTemporary) {
  WriteFile(T("Pkg/other"), "");
  EXPECT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\Pkg\\Mapping.xml", "<Mapping/>"));
  EXPECT_EQ("<Mapping/>", ReadFile(T("Pkg/Mapping.xml")));
  EXPECT_EQ((std::vector<std::string>{"Mapping.xml", "other"}), ListDir(T("Pkg")));
}

TEST_F(FilesTest, WriteFileAtomic_ReplacesAndKeepsPermissions) {
  WriteFile(T("doc.vgxXml"), "old content that is longer");
  ASSERT_EQ(0, chmod(T("doc.vgxXml").c_str(), 0640));
  EXPECT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\DOC.vgxXml", "new"));
  EXPECT_EQ("new", ReadFile(T("doc.vgxXml")));
  struct stat st {};
  ASSERT_EQ(0, stat(T("doc.vgxXml").c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777);
  EXPECT_EQ((std::vector<std::string>{"doc.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, WriteFileAtomic_ReadOnlyTargetIsAccessDeniedAndUnchanged) {
  WriteFile(T("doc.vgxXml"), "old");
  ASSERT_EQ(0, chmod(T("doc.vgxXml").c_str(), 0444));
  EXPECT_EQ(5u, CurrentEnv()->WriteFileAtomic("C:\\doc.vgxXml", "new"));
  EXPECT_EQ("old", ReadFile(T("doc.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"doc.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, WriteFileAtomic_LinkAtTargetIsReplacedNotFollowed) {
  TempDir elsewhere;
  WriteFile(elsewhere.Sub("victim"), "precious");
  ASSERT_EQ(0, chmod(elsewhere.Sub("victim").c_str(), 0604));
  ASSERT_EQ(0, symlink(elsewhere.Sub("victim").c_str(), T("doc.vgxXml").c_str()));
  EXPECT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\doc.vgxXml", "new"));
  EXPECT_FALSE(IsLink(T("doc.vgxXml")));
  EXPECT_EQ("new", ReadFile(T("doc.vgxXml")));
  EXPECT_EQ("precious", ReadFile(elsewhere.Sub("victim")));
  // A new file's permissions, not those of the file the link pointed to.
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(0666u & ~mask, Mode(T("doc.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"doc.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, WriteFileAtomic_LinkToReadOnlyFileIsReplaced) {
  TempDir elsewhere;
  WriteFile(elsewhere.Sub("victim"), "precious");
  ASSERT_EQ(0, chmod(elsewhere.Sub("victim").c_str(), 0444));
  ASSERT_EQ(0, symlink(elsewhere.Sub("victim").c_str(), T("doc.vgxXml").c_str()));
  EXPECT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\doc.vgxXml", "new"));
  EXPECT_EQ("new", ReadFile(T("doc.vgxXml")));
  EXPECT_EQ("precious", ReadFile(elsewhere.Sub("victim")));
}

TEST_F(FilesTest, WriteFileAtomic_DanglingLinkIsReplaced) {
  TempDir elsewhere;
  ASSERT_EQ(0, symlink(elsewhere.Sub("created-through-link").c_str(), T("doc.vgxXml").c_str()));
  EXPECT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\doc.vgxXml", "new"));
  EXPECT_EQ("new", ReadFile(T("doc.vgxXml")));
  EXPECT_EQ(std::vector<std::string>{}, ListDir(elsewhere.path()));
}

TEST_F(FilesTest, WriteFileAtomic_MissingDirectoryIsPathNotFound) {
  EXPECT_EQ(3u, CurrentEnv()->WriteFileAtomic("C:\\NoDir\\doc.vgxXml", "x"));
}

TEST_F(FilesTest, WriteFileAtomic_DirectoryTargetIsAccessDenied) {
  WriteFile(T("Dir/x"), "1");
  EXPECT_EQ(5u, CurrentEnv()->WriteFileAtomic("C:\\Dir", "x"));
  EXPECT_EQ((std::vector<std::string>{"x"}), ListDir(T("Dir")));
}

// --- WriteFileAtomicFrom ----------------------------------------------------------------------

// Hands out its pieces in order; fails with error after failAfter pieces when error is set.
class PiecesSource : public ContentSource {
 public:
  explicit PiecesSource(std::vector<std::string> pieces, DWORD error = 0, size_t failAfter = 0)
      : pieces_(std::move(pieces)), error_(error), failAfter_(failAfter) {}
  DWORD WriteTo(const Sink& sink) override {
    for (size_t i = 0; i < pieces_.size(); ++i) {
      if (error_ != 0 && i == failAfter_) return error_;
      if (const DWORD e = sink(pieces_[i].data(), pieces_[i].size())) return e;
    }
    return 0;
  }

 private:
  std::vector<std::string> pieces_;
  DWORD error_;
  size_t failAfter_;
};

TEST_F(FilesTest, WriteFileAtomicFrom_WritesThePiecesInOrder) {
  PiecesSource source({"<a>", std::string(100000, 'x'), "</a>"});
  EXPECT_EQ(0u, CurrentEnv()->WriteFileAtomicFrom("C:\\doc.xml", source));
  EXPECT_EQ("<a>" + std::string(100000, 'x') + "</a>", ReadFile(T("doc.xml")));
  EXPECT_EQ((std::vector<std::string>{"doc.xml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, WriteFileAtomicFrom_SourceErrorLeavesTargetAsItWas) {
  WriteFile(T("doc.xml"), "old");
  PiecesSource source({"<a>", "</a>"}, 112, 1);
  EXPECT_EQ(112u, CurrentEnv()->WriteFileAtomicFrom("C:\\doc.xml", source));
  EXPECT_EQ("old", ReadFile(T("doc.xml")));
  EXPECT_EQ((std::vector<std::string>{"doc.xml"}), ListDir(tmp_.path()));
}

TEST_F(FilesTest, WriteFileAtomicFrom_ReadOnlyTargetIsAccessDeniedAndUnchanged) {
  WriteFile(T("doc.xml"), "old");
  ASSERT_EQ(0, chmod(T("doc.xml").c_str(), 0444));
  PiecesSource source({"new"});
  EXPECT_EQ(5u, CurrentEnv()->WriteFileAtomicFrom("C:\\doc.xml", source));
  EXPECT_EQ("old", ReadFile(T("doc.xml")));
}

// An Env that only replaces whole files: the default WriteFileAtomicFrom collects the pieces.
class WholeFileEnv : public EnvWrapper {
 public:
  WholeFileEnv() : EnvWrapper(Env::Default()) {}
  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override {
    written.push_back(path + "=" + contents);
    return 0;
  }
  DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source) override {
    return Env::WriteFileAtomicFrom(path, source);
  }
  std::vector<std::string> written;
};

TEST_F(FilesTest, WriteFileAtomicFrom_DefaultCollectsPiecesIntoWriteFileAtomic) {
  WholeFileEnv env;
  PiecesSource source({"ab", "cd"});
  EXPECT_EQ(0u, env.WriteFileAtomicFrom("C:\\doc.xml", source));
  EXPECT_EQ((std::vector<std::string>{"C:\\doc.xml=abcd"}), env.written);
}

TEST_F(FilesTest, WriteFileAtomicFrom_FaultInjectionCountsAndFailsItAsWriteFileAtomic) {
  FaultInjectionEnv faults(Env::Default());
  faults.FailOn(FaultInjectionEnv::kWriteFileAtomic, 2, 112);
  PiecesSource source({"x"});
  EXPECT_EQ(0u, faults.WriteFileAtomicFrom("C:\\a.xml", source));
  EXPECT_EQ(112u, faults.WriteFileAtomicFrom("C:\\b.xml", source));
  EXPECT_EQ(2, faults.Count(FaultInjectionEnv::kWriteFileAtomic));
  EXPECT_EQ((std::vector<std::string>{"a.xml"}), ListDir(tmp_.path()));
}

// --- CreateDirectories ------------------------------------------------------------------------

TEST_F(FilesTest, CreateDirectories_CreatesMissingParents) {
  EXPECT_EQ(0u, CurrentEnv()->CreateDirectories("C:\\a\\b\\c"));
  struct stat st {};
  ASSERT_EQ(0, stat(T("a/b/c").c_str(), &st));
  EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST_F(FilesTest, CreateDirectories_ExistingDirectoryInAnyCaseIsSuccess) {
  WriteFile(T("Out/x"), "1");
  EXPECT_EQ(0u, CurrentEnv()->CreateDirectories("C:\\out\\Sub"));
  EXPECT_EQ((std::vector<std::string>{"Sub", "x"}), ListDir(T("Out")));
  EXPECT_EQ(0u, CurrentEnv()->CreateDirectories("C:\\Out"));
}

TEST_F(FilesTest, CreateDirectories_FileInTheWayFails) {
  WriteFile(T("f"), "1");
  EXPECT_EQ(80u, CurrentEnv()->CreateDirectories("C:\\f"));
  EXPECT_EQ(3u, CurrentEnv()->CreateDirectories("C:\\f\\sub"));
}

TEST_F(FilesTest, CreateDirectories_UnmappedDriveIsPathNotFound) {
  EXPECT_EQ(3u, CurrentEnv()->CreateDirectories("Q:\\a"));
}

// --- WriteAll ---------------------------------------------------------------------------------

// Everything the read end of a pipe yields until every write end is closed.
std::string ReadUntilEnd(int fd) {
  std::string received;
  char buffer[4096];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n > 0) {
      received.append(buffer, static_cast<size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      return received;
    }
  }
}

TEST(WriteAll, WritesEveryByteInOrder) {
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  const std::string data = "one record\n";
  EXPECT_EQ(0u, WriteAll(fds[1], data.data(), data.size()));
  close(fds[1]);
  EXPECT_EQ(data, ReadUntilEnd(fds[0]));
  close(fds[0]);
}

TEST(WriteAll, GoesOnAfterSignalsInterruptIt) {
  struct sigaction interrupt {};
  interrupt.sa_handler = [](int) {};
  sigemptyset(&interrupt.sa_mask);
  interrupt.sa_flags = 0;  // no SA_RESTART: a blocked write() returns early or fails with EINTR
  struct sigaction previous {};
  ASSERT_EQ(0, sigaction(SIGUSR1, &interrupt, &previous));
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  std::string data(1 << 20, '\0');  // far more than the pipe holds: the writer blocks
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 131 % 251);
  const pthread_t writer = pthread_self();
  std::string received;
  std::thread reader([&] {
    // Interrupts the writer while it waits for room, then drains the pipe.
    for (int i = 0; i < 10; ++i) {
      pthread_kill(writer, SIGUSR1);
      usleep(2000);
    }
    received = ReadUntilEnd(fds[0]);
  });
  const DWORD error = WriteAll(fds[1], data.data(), data.size());
  close(fds[1]);
  reader.join();
  close(fds[0]);
  sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_EQ(0u, error);
  EXPECT_TRUE(received == data) << received.size() << " of " << data.size() << " bytes";
}

TEST(WriteAll, FullDeviceIsDiskFull) {
  const int fd = open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (fd < 0) GTEST_SKIP() << "no /dev/full";
  EXPECT_EQ(112u, WriteAll(fd, "x", 1));
  close(fd);
}

TEST(WriteAll, ClosedDescriptorIsInternalError) { EXPECT_EQ(1359u, WriteAll(-1, "x", 1)); }

TEST(WriteAll, EmptyBufferWritesNothing) { EXPECT_EQ(0u, WriteAll(-1, "", 0)); }

}  // namespace
}  // namespace nomplat
