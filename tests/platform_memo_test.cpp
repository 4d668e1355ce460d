// What the default Env remembers of files: a file read, a copy made or a file written is not read,
// copied or written again while the files stay as they were, and everything is done again once
// one of them changes. "Not done again" is observed in a child process that can open no file at
// all (RLIMIT_NOFILE at its open descriptors): only work served from memory succeeds there.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/file_memo.h"
#include "platform/paths.h"
#include "support/test_support.h"

namespace {

using nomplat::CurrentEnv;
using nomplat::FileBytes;
using nomplat::FileIdentity;
using nomplat::FileMemo;
using nomplat::ScopedCodePage;
using nomplat::ScopedPathMaps;
using nomtest::ListDir;
using nomtest::ReadFile;
using nomtest::TempDir;
using nomtest::WriteFile;

FileIdentity Identity(ino_t inode, off_t size, long modified) {
  FileIdentity id;
  id.device = 1;
  id.inode = inode;
  id.size = size;
  id.modified.tv_sec = modified;
  id.changed.tv_sec = modified;
  return id;
}

FileBytes Bytes(const std::string& text) { return std::make_shared<const std::string>(text); }

// --- the memo itself ---------------------------------------------------------------------------

TEST(FileMemo, Contents_ServedWhileIdentityMatches) {
  FileMemo memo;
  memo.NoteContents("/p/a", Identity(7, 3, 100), Bytes("abc"));
  const FileBytes kept = memo.Contents("/p/a", Identity(7, 3, 100));
  ASSERT_NE(nullptr, kept);
  EXPECT_EQ("abc", *kept);
}

TEST(FileMemo, Contents_NullOnceModificationTimeMoved) {
  FileMemo memo;
  memo.NoteContents("/p/a", Identity(7, 3, 100), Bytes("abc"));
  EXPECT_EQ(nullptr, memo.Contents("/p/a", Identity(7, 3, 101)));
}

TEST(FileMemo, Contents_NullForAnotherInodeOrSize) {
  FileMemo memo;
  memo.NoteContents("/p/a", Identity(7, 3, 100), Bytes("abc"));
  EXPECT_EQ(nullptr, memo.Contents("/p/a", Identity(8, 3, 100)));
  EXPECT_EQ(nullptr, memo.Contents("/p/a", Identity(7, 4, 100)));
}

TEST(FileMemo, Contents_NullForStatusChangeAlone) {
  FileMemo memo;
  memo.NoteContents("/p/a", Identity(7, 3, 100), Bytes("abc"));
  FileIdentity chmodded = Identity(7, 3, 100);
  chmodded.changed.tv_nsec = 1;
  EXPECT_EQ(nullptr, memo.Contents("/p/a", chmodded));
}

TEST(FileMemo, Contents_OfCopyAreItsSourcesAsCopied) {
  FileMemo memo;
  memo.NoteContents("/p/src", Identity(7, 3, 100), Bytes("abc"));
  memo.NoteCopy("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100));
  const FileBytes kept = memo.Contents("/q/dst", Identity(9, 3, 100));
  ASSERT_NE(nullptr, kept);
  EXPECT_EQ("abc", *kept);
}

TEST(FileMemo, Contents_OfCopyWithItsOwnBytesNeverTheSources) {
  FileMemo memo;
  memo.NoteContents("/p/src", Identity(7, 3, 100), Bytes("abc"));
  memo.NoteCopy("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 5, 100), true, false);
  EXPECT_EQ(nullptr, memo.Contents("/q/dst", Identity(9, 5, 100)));
  EXPECT_TRUE(memo.CopyIsCurrent("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 5, 100)));
}

TEST(FileMemo, Contents_OfCopyNullWhenSourceKnownOnlyAsOtherVersion) {
  FileMemo memo;
  memo.NoteContents("/p/src", Identity(7, 4, 200), Bytes("abcd"));
  memo.NoteCopy("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100));
  EXPECT_EQ(nullptr, memo.Contents("/q/dst", Identity(9, 3, 100)));
}

TEST(FileMemo, Contents_OfCopyNullOnceCopyChanged) {
  FileMemo memo;
  memo.NoteContents("/p/src", Identity(7, 3, 100), Bytes("abc"));
  memo.NoteCopy("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100));
  EXPECT_EQ(nullptr, memo.Contents("/q/dst", Identity(9, 3, 101)));
}

TEST(FileMemo, NoteContents_LargerThanLimitNotKept) {
  FileMemo memo;
  const std::string large(nomplat::kMemoFileLimit + 1, 'x');
  memo.NoteContents("/p/a", Identity(7, static_cast<off_t>(large.size()), 100), Bytes(large));
  EXPECT_EQ(nullptr, memo.Contents("/p/a", Identity(7, static_cast<off_t>(large.size()), 100)));
}

TEST(FileMemo, NoteContents_OldestForgottenBeyondBudget) {
  FileMemo memo;
  const std::string megabyte(1 << 20, 'x');
  for (ino_t i = 1; i <= 40; ++i) {
    memo.NoteContents("/p/" + std::to_string(i), Identity(i, 1 << 20, 100), Bytes(megabyte));
  }
  EXPECT_EQ(nullptr, memo.Contents("/p/1", Identity(1, 1 << 20, 100)));
  EXPECT_NE(nullptr, memo.Contents("/p/40", Identity(40, 1 << 20, 100)));
}

TEST(FileMemo, NoteContents_NewerVersionReplacesOlder) {
  FileMemo memo;
  memo.NoteContents("/p/a", Identity(7, 3, 100), Bytes("abc"));
  memo.NoteContents("/p/a", Identity(8, 4, 101), Bytes("abcd"));
  EXPECT_EQ(nullptr, memo.Contents("/p/a", Identity(7, 3, 100)));
  EXPECT_EQ("abcd", *memo.Contents("/p/a", Identity(8, 4, 101)));
}

TEST(FileMemo, CopyIsCurrent_OnlyForSameSourceAndBothIdentities) {
  FileMemo memo;
  memo.NoteCopy("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100));
  EXPECT_TRUE(memo.CopyIsCurrent("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100)));
  EXPECT_FALSE(memo.CopyIsCurrent("/p/other", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100)));
  EXPECT_FALSE(memo.CopyIsCurrent("/p/src", "/q/dst", Identity(7, 3, 101), Identity(9, 3, 100)));
  EXPECT_FALSE(memo.CopyIsCurrent("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 101)));
}

TEST(FileMemo, KnownReadable_CopyMadeReadableWhileAsLeft) {
  FileMemo memo;
  memo.NoteCopy("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100), true);
  EXPECT_TRUE(memo.KnownReadable("/q/dst", Identity(9, 3, 100)));
  EXPECT_FALSE(memo.KnownReadable("/q/dst", Identity(9, 3, 101)));
}

TEST(FileMemo, KnownReadable_CopyOwnerMayNotReadIsNot) {
  FileMemo memo;
  memo.NoteCopy("/p/src", "/q/dst", Identity(7, 3, 100), Identity(9, 3, 100), false);
  EXPECT_FALSE(memo.KnownReadable("/q/dst", Identity(9, 3, 100)));
}

TEST(FileMemo, KnownReadable_OnlyForTheIdentityOpened) {
  FileMemo memo;
  memo.NoteReadable("/p/a", Identity(7, 3, 100));
  EXPECT_TRUE(memo.KnownReadable("/p/a", Identity(7, 3, 100)));
  EXPECT_FALSE(memo.KnownReadable("/p/a", Identity(7, 3, 101)));
  EXPECT_FALSE(memo.KnownReadable("/p/b", Identity(7, 3, 100)));
}

TEST(FileMemo, Clear_ForgetsEverything) {
  FileMemo memo;
  memo.NoteContents("/p/a", Identity(7, 3, 100), Bytes("abc"));
  memo.NoteReadable("/p/a", Identity(7, 3, 100));
  memo.NoteCopy("/p/a", "/q/a", Identity(7, 3, 100), Identity(9, 3, 100));
  memo.Clear();
  EXPECT_EQ(nullptr, memo.Contents("/p/a", Identity(7, 3, 100)));
  EXPECT_FALSE(memo.KnownReadable("/p/a", Identity(7, 3, 100)));
  EXPECT_FALSE(memo.CopyIsCurrent("/p/a", "/q/a", Identity(7, 3, 100), Identity(9, 3, 100)));
}

TEST(FileMemo, MoveDirectory_FactsFollowFilesInside) {
  FileMemo memo;
  memo.NoteContents("/p/stage/a", Identity(7, 3, 100), Bytes("abc"));
  memo.NoteReadable("/p/stage/a", Identity(7, 3, 100));
  memo.NoteCopy("/lib/a", "/p/stage/a", Identity(5, 3, 100), Identity(7, 3, 100), true);
  memo.MoveDirectory("/p/stage", "/p/out");
  ASSERT_NE(nullptr, memo.Contents("/p/out/a", Identity(7, 3, 100)));
  EXPECT_EQ("abc", *memo.Contents("/p/out/a", Identity(7, 3, 100)));
  EXPECT_TRUE(memo.KnownReadable("/p/out/a", Identity(7, 3, 100)));
  EXPECT_TRUE(memo.CopyIsCurrent("/lib/a", "/p/out/a", Identity(5, 3, 100), Identity(7, 3, 100)));
  EXPECT_EQ(nullptr, memo.Contents("/p/stage/a", Identity(7, 3, 100)));
  EXPECT_FALSE(memo.KnownReadable("/p/stage/a", Identity(7, 3, 100)));
  EXPECT_FALSE(
      memo.CopyIsCurrent("/lib/a", "/p/stage/a", Identity(5, 3, 100), Identity(7, 3, 100)));
}

TEST(FileMemo, MoveDirectory_LeavesOtherPathsAlone) {
  FileMemo memo;
  memo.NoteReadable("/p/stagehand", Identity(7, 3, 100));  // a name beginning like the directory
  memo.NoteReadable("/p/stage", Identity(8, 3, 100));      // the directory's own path
  memo.NoteReadable("/q/stage/a", Identity(9, 3, 100));
  memo.MoveDirectory("/p/stage", "/p/out");
  EXPECT_TRUE(memo.KnownReadable("/p/stagehand", Identity(7, 3, 100)));
  EXPECT_TRUE(memo.KnownReadable("/p/stage", Identity(8, 3, 100)));
  EXPECT_TRUE(memo.KnownReadable("/q/stage/a", Identity(9, 3, 100)));
}

TEST(FileMemo, MoveDirectory_CopySourceInsideFollows) {
  FileMemo memo;
  memo.NoteContents("/p/stage/a", Identity(7, 3, 100), Bytes("abc"));
  memo.NoteCopy("/p/stage/a", "/q/b", Identity(7, 3, 100), Identity(9, 3, 100));
  memo.MoveDirectory("/p/stage", "/p/out");
  EXPECT_TRUE(memo.CopyIsCurrent("/p/out/a", "/q/b", Identity(7, 3, 100), Identity(9, 3, 100)));
  ASSERT_NE(nullptr, memo.Contents("/q/b", Identity(9, 3, 100)));
}

// --- the default Env -----------------------------------------------------------------------------

// Drive C: is a fresh temporary directory; UTF-8, the default Env, nothing remembered.
class RememberedFiles : public ::testing::Test {
 protected:
  RememberedFiles() : codePage_(65001) {
    nomplat::ResetPathMaps();
    nomplat::MapDrive('C', tmp_.path());
    nomplat::ForgetRememberedFiles();
  }
  ~RememberedFiles() override { nomplat::SetConfinementRoots({}); }

  std::string T(const std::string& relative) const { return tmp_.Sub(relative); }

  static ino_t Inode(const std::string& native) {
    struct stat st {};
    return lstat(native.c_str(), &st) == 0 ? st.st_ino : 0;
  }

  // Runs body in a child process that cannot open any further file, and returns body's result
  // (-1 when the child did not exit normally).
  static int WithoutOpening(const std::function<int()>& body) {
    WarmUp();
    const pid_t pid = fork();
    if (pid == 0) {
      int highest = 0;
      for (int fd = 0; fd < 1024; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) highest = fd;
      }
      const struct rlimit none = {static_cast<rlim_t>(highest + 1),
                                  static_cast<rlim_t>(highest + 1)};
      setrlimit(RLIMIT_NOFILE, &none);
      while (dup(0) >= 0) {
      }  // the free numbers below the limit taken too
      _exit(body());
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
  }

  // Calls each Env operation once in this process, so that a sanitizer's first check of a
  // class's dynamic type (which needs a descriptor of its own) is behind the child.
  static void WarmUp() {
    static const bool done = [] {
      TempDir scratch;
      std::string dir = "Z:" + scratch.path();
      for (char& c : dir) c = c == '/' ? '\\' : c;
      std::string contents;
      nomplat::Env* env = CurrentEnv();
      env->WriteFileAtomic(dir + "\\w", "w");
      env->CopyFile(dir + "\\w", dir + "\\c", false);
      env->ReadFile(dir + "\\c", &contents);
      return env->CanOpenForReading(dir + "\\c");
    }();
    (void)done;
  }

  static int Read(const std::string& path, const std::string& expected) {
    std::string contents;
    const DWORD error = CurrentEnv()->ReadFile(path, &contents);
    return error != 0 ? 1 : contents == expected ? 0 : 2;
  }

  TempDir tmp_;
  ScopedPathMaps maps_;
  ScopedCodePage codePage_;
};

TEST_F(RememberedFiles, WithoutOpening_ReadOfUnknownFileFails) {
  // The observation the other tests rely on: a read that must open the file fails there.
  WriteFile(T("a.vgxXml"), "<a/>");
  EXPECT_EQ(1, WithoutOpening([] { return Read("C:\\a.vgxXml", "<a/>"); }));
}

TEST_F(RememberedFiles, ReadFile_UnchangedFileServedFromMemory) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ(0, WithoutOpening([] { return Read("C:\\a.vgxXml", "<a/>"); }));
}

TEST_F(RememberedFiles, ReadFile_ChangedFileReadAgain) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  WriteFile(T("a.vgxXml"), "<b/>");  // same size, same inode: the times tell
  EXPECT_EQ(1, WithoutOpening([] { return Read("C:\\a.vgxXml", "<b/>"); }));
  EXPECT_EQ(0, Read("C:\\a.vgxXml", "<b/>"));
}

TEST_F(RememberedFiles, ReadFile_ReplacedFileReadAgain) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  WriteFile(T("b.vgxXml"), "<b/>");
  ASSERT_EQ(0, rename(T("b.vgxXml").c_str(), T("a.vgxXml").c_str()));
  EXPECT_EQ(0, Read("C:\\a.vgxXml", "<b/>"));
}

TEST_F(RememberedFiles, ReadFile_RemovedFileIsMissing) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  ASSERT_EQ(0, unlink(T("a.vgxXml").c_str()));
  std::string contents;
  EXPECT_EQ(2u, CurrentEnv()->ReadFile("C:\\a.vgxXml", &contents));
  EXPECT_EQ("", contents);
}

TEST_F(RememberedFiles, ReadFile_CopyOfReadFileServedFromMemory) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ(0, WithoutOpening([] { return Read("C:\\b.vgxXml", "<a/>"); }));
}

TEST_F(RememberedFiles, ReadFile_UnderConfinementAlwaysOpens) {
  WriteFile(T("a.vgxXml"), "<a/>");
  nomplat::SetConfinementRoots({tmp_.path()});
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ(1, WithoutOpening([] { return Read("C:\\a.vgxXml", "<a/>"); }));
}

TEST_F(RememberedFiles, CanOpenForReading_UnchangedFileAnsweredFromMemory) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_TRUE(CurrentEnv()->CanOpenForReading("C:\\a.vgxXml"));
  EXPECT_EQ(0,
            WithoutOpening([] { return CurrentEnv()->CanOpenForReading("C:\\a.vgxXml") ? 0 : 1; }));
}

TEST_F(RememberedFiles, CanOpenForReading_FileReplacedByDirectoryIsFalse) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_TRUE(CurrentEnv()->CanOpenForReading("C:\\a.vgxXml"));
  ASSERT_EQ(0, unlink(T("a.vgxXml").c_str()));
  ASSERT_EQ(0, mkdir(T("a.vgxXml").c_str(), 0755));
  EXPECT_FALSE(CurrentEnv()->CanOpenForReading("C:\\a.vgxXml"));
}

TEST_F(RememberedFiles, CanOpenForReading_FileWrittenHereAnsweredFromMemory) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ(0,
            WithoutOpening([] { return CurrentEnv()->CanOpenForReading("C:\\a.vgxXml") ? 0 : 1; }));
}

TEST_F(RememberedFiles, CanOpenForReading_CopyMadeHereAnsweredFromMemory) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ(0,
            WithoutOpening([] { return CurrentEnv()->CanOpenForReading("C:\\b.vgxXml") ? 0 : 1; }));
}

TEST_F(RememberedFiles, CanOpenForReading_FileWrittenWithoutOwnerReadIsOpened) {
  // Made without read permission for its owner (umask): not taken as readable from memory.
  const mode_t previous = umask(0477);
  const DWORD written = CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>");
  umask(previous);
  ASSERT_EQ(0u, written);
  EXPECT_EQ(1,
            WithoutOpening([] { return CurrentEnv()->CanOpenForReading("C:\\a.vgxXml") ? 0 : 1; }));
}

TEST_F(RememberedFiles, CopyFile_RepeatedCopyMakesNoNewFile) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\out\\..\\b.vgxXml", false));
  const ino_t first = Inode(T("b.vgxXml"));
  EXPECT_EQ(
      0, WithoutOpening([] {
        return static_cast<int>(CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
      }));
  EXPECT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ(first, Inode(T("b.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml", "b.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(RememberedFiles, CopyFile_ChangedSourceCopiedAgain) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  WriteFile(T("a.vgxXml"), "<b/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ("<b/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyFile_ChangedTargetCopiedAgain) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  WriteFile(T("b.vgxXml"), "<rewritten/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ("<a/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyFile_OtherSourceToSameTargetCopied) {
  WriteFile(T("a.vgxXml"), "<a/>");
  WriteFile(T("c.vgxXml"), "<c/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\c.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ("<c/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyFile_FailIfExistsStillRefusedAfterCopy) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ(80u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", true));
}

TEST_F(RememberedFiles, CopyFile_RemovedSourceIsMissing) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  ASSERT_EQ(0, unlink(T("a.vgxXml").c_str()));
  EXPECT_EQ(2u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
}

TEST_F(RememberedFiles, WriteFileAtomic_SameBytesAgainWritesNothing) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  const ino_t first = Inode(T("a.vgxXml"));
  EXPECT_EQ(0, WithoutOpening([] {
              return static_cast<int>(CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
            }));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ(first, Inode(T("a.vgxXml")));
}

TEST_F(RememberedFiles, WriteFileAtomic_SameBytesAsReadWritesNothing) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ(0, WithoutOpening([] {
              return static_cast<int>(CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
            }));
}

TEST_F(RememberedFiles, WriteFileAtomic_DifferentBytesReplaceFile) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a b=\"1\"/>"));
  EXPECT_EQ("<a b=\"1\"/>", ReadFile(T("a.vgxXml")));
}

TEST_F(RememberedFiles, WriteFileAtomic_PrefixOfKnownBytesIsWrittenWhole) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/><!-- tail -->"));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ("<a/>", ReadFile(T("a.vgxXml")));
}

TEST_F(RememberedFiles, WriteFileAtomic_EmptyAfterKnownBytesLeavesEmptyFile) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", ""));
  EXPECT_EQ("", ReadFile(T("a.vgxXml")));
}

TEST_F(RememberedFiles, WriteFileAtomic_TargetChangedBehindItsBackIsWritten) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  WriteFile(T("a.vgxXml"), "<other/>");
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ("<a/>", ReadFile(T("a.vgxXml")));
}

TEST_F(RememberedFiles, WriteFileAtomic_ReadBackServedFromMemory) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  EXPECT_EQ(0, WithoutOpening([] { return Read("C:\\a.vgxXml", "<a/>"); }));
}

TEST_F(RememberedFiles, WriteFileAtomic_NewFileLeavesNoTemporary) {
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<a/>"));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "<b/>"));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml"}), ListDir(tmp_.path()));
}

TEST_F(RememberedFiles, ForgetRememberedFiles_NextReadOpensFile) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));
  nomplat::ForgetRememberedFiles();
  EXPECT_EQ(1, WithoutOpening([] { return Read("C:\\a.vgxXml", "<a/>"); }));
}

TEST_F(RememberedFiles, MoveNewDirectory_CopiesInsideStayCurrent) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, mkdir(T("stage").c_str(), 0777));
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\stage\\a.vgxXml", true));
  const ino_t copied = Inode(T("stage/a.vgxXml"));
  ASSERT_EQ(0u, nomplat::MoveNewDirectory(T("stage"), T("out")));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml", "out"}), ListDir(tmp_.path()));
  EXPECT_EQ(
      0, WithoutOpening([] {
        return static_cast<int>(CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\out\\a.vgxXml", false));
      }));
  EXPECT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\out\\a.vgxXml", false));
  EXPECT_EQ(copied, Inode(T("out/a.vgxXml")));
  EXPECT_EQ("<a/>", ReadFile(T("out/a.vgxXml")));
}

// Upper-cases the bytes: a rewrite the tests can recognise.
bool UpperCase(const std::string& bytes, std::string* out) {
  *out = bytes;
  for (char& c : *out) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return true;
}

bool Decline(const std::string&, std::string* out) {
  out->clear();
  return false;
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_WritesTheRewrittenBytes) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, chmod(T("a.vgxXml").c_str(), 0640));
  bool rewritten = false;
  ASSERT_EQ(0u,
            nomplat::CopyToNewFileRewritten(T("a.vgxXml"), T("b.vgxXml"), UpperCase, &rewritten));
  EXPECT_TRUE(rewritten);
  EXPECT_EQ("<A/>", ReadFile(T("b.vgxXml")));
  struct stat st {};
  ASSERT_EQ(0, stat(T("b.vgxXml").c_str(), &st));
  EXPECT_EQ(0640u | S_IWUSR, st.st_mode & 07777);
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_DeclinedRewriteCopiesTheBytes) {
  WriteFile(T("a.vgxXml"), "<a/>");
  bool rewritten = true;
  ASSERT_EQ(0u, nomplat::CopyToNewFileRewritten(T("a.vgxXml"), T("b.vgxXml"), Decline, &rewritten));
  EXPECT_FALSE(rewritten);
  EXPECT_EQ("<a/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_ExistingTargetIsFileExists) {
  WriteFile(T("a.vgxXml"), "<a/>");
  WriteFile(T("b.vgxXml"), "<b/>");
  EXPECT_EQ(80u, nomplat::CopyToNewFileRewritten(T("a.vgxXml"), T("b.vgxXml"), UpperCase, nullptr));
  EXPECT_EQ("<b/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_CopyFileFindsItCurrentAndCountsTheSource) {
  WriteFile(T("a.vgxXml"), "<a>text</a>");
  ASSERT_EQ(0u, nomplat::CopyToNewFileRewritten(
                    T("a.vgxXml"), T("b.vgxXml"),
                    [](const std::string&, std::string* out) {
                      *out = "<b/>";
                      return true;
                    },
                    nullptr));
  const ino_t made = Inode(T("b.vgxXml"));
  EXPECT_EQ(
      0, WithoutOpening([] {
        return static_cast<int>(CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
      }));
  nomplat::ForgetLastCopySize();
  ASSERT_EQ(0u, CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
  EXPECT_EQ(11, nomplat::LastCopySize());  // the source's size, as a copy made here reports
  EXPECT_EQ(made, Inode(T("b.vgxXml")));
  EXPECT_EQ("<b/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_ReadGetsTheFilesOwnBytes) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0, Read("C:\\a.vgxXml", "<a/>"));  // the source's bytes are remembered too
  ASSERT_EQ(0u, nomplat::CopyToNewFileRewritten(T("a.vgxXml"), T("b.vgxXml"), UpperCase, nullptr));
  EXPECT_EQ(0, WithoutOpening([] { return Read("C:\\b.vgxXml", "<A/>"); }));
  nomplat::ForgetRememberedFiles();
  EXPECT_EQ(0, Read("C:\\b.vgxXml", "<A/>"));
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_SaveOfTheSameBytesWritesNothing) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, nomplat::CopyToNewFileRewritten(T("a.vgxXml"), T("b.vgxXml"), UpperCase, nullptr));
  const ino_t made = Inode(T("b.vgxXml"));
  EXPECT_EQ(0, WithoutOpening([] {
              return static_cast<int>(CurrentEnv()->WriteFileAtomic("C:\\b.vgxXml", "<A/>"));
            }));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\b.vgxXml", "<A/>"));
  EXPECT_EQ(made, Inode(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_SaveOfOtherBytesReplacesIt) {
  WriteFile(T("a.vgxXml"), "<a/>");
  ASSERT_EQ(0u, nomplat::CopyToNewFileRewritten(T("a.vgxXml"), T("b.vgxXml"), UpperCase, nullptr));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\b.vgxXml", "<a/>"));
  EXPECT_EQ("<a/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyToNewFileRewritten_LargeFileCopiedAsItIs) {
  const std::string large(nomplat::kMemoFileLimit + 1, 'x');
  WriteFile(T("a.bin"), large);
  bool called = false;
  bool rewritten = true;
  ASSERT_EQ(0u, nomplat::CopyToNewFileRewritten(
                    T("a.bin"), T("b.bin"),
                    [&called](const std::string&, std::string* out) {
                      called = true;
                      *out = "small";
                      return true;
                    },
                    &rewritten));
  EXPECT_FALSE(called);
  EXPECT_FALSE(rewritten);
  EXPECT_EQ(large, ReadFile(T("b.bin")));
}

TEST_F(RememberedFiles, CopyFileRewritten_NewTargetHoldsTheRewrittenBytes) {
  WriteFile(T("a.vgxXml"), "<a/>");
  bool rewritten = false;
  ASSERT_EQ(0u, nomplat::CopyFileRewritten("C:\\a.vgxXml", "C:\\out\\..\\b.vgxXml", UpperCase,
                                           &rewritten));
  EXPECT_TRUE(rewritten);
  EXPECT_EQ("<A/>", ReadFile(T("b.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml", "b.vgxXml"}), ListDir(tmp_.path()));
  const ino_t made = Inode(T("b.vgxXml"));
  EXPECT_EQ(
      0, WithoutOpening([] {
        return static_cast<int>(CurrentEnv()->CopyFile("C:\\a.vgxXml", "C:\\b.vgxXml", false));
      }));
  EXPECT_EQ(0, WithoutOpening([] { return Read("C:\\b.vgxXml", "<A/>"); }));
  ASSERT_EQ(0u, CurrentEnv()->WriteFileAtomic("C:\\b.vgxXml", "<A/>"));
  EXPECT_EQ(made, Inode(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyFileRewritten_ExistingTargetIsFileExistsAndKept) {
  WriteFile(T("a.vgxXml"), "<a/>");
  WriteFile(T("b.vgxXml"), "<b/>");
  EXPECT_EQ(80u, nomplat::CopyFileRewritten("C:\\a.vgxXml", "C:\\b.vgxXml", UpperCase, nullptr));
  EXPECT_EQ("<b/>", ReadFile(T("b.vgxXml")));
}

TEST_F(RememberedFiles, CopyFileRewritten_DeclinedRewriteIsAPlainCopy) {
  WriteFile(T("a.vgxXml"), "<a/>");
  struct timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, T("a.vgxXml").c_str(), times, 0));
  bool rewritten = true;
  ASSERT_EQ(0u, nomplat::CopyFileRewritten("C:\\a.vgxXml", "C:\\b.vgxXml", Decline, &rewritten));
  EXPECT_FALSE(rewritten);
  EXPECT_EQ("<a/>", ReadFile(T("b.vgxXml")));
  struct stat st {};
  ASSERT_EQ(0, stat(T("b.vgxXml").c_str(), &st));
  EXPECT_EQ(1000000000, st.st_mtim.tv_sec);  // the source's time, as a copy keeps it
}

TEST_F(RememberedFiles, CopyFileRewritten_MissingSourceIsFileNotFound) {
  EXPECT_EQ(2u, nomplat::CopyFileRewritten("C:\\a.vgxXml", "C:\\b.vgxXml", UpperCase, nullptr));
  EXPECT_FALSE(nomtest::FileExists(T("b.vgxXml")));
}

TEST_F(RememberedFiles, MoveNewDirectory_RefusesWhereSomethingStands) {
  ASSERT_EQ(0, mkdir(T("stage").c_str(), 0777));
  WriteFile(T("stage/a"), "a");
  WriteFile(T("out/b"), "b");
  EXPECT_EQ(80u, nomplat::MoveNewDirectory(T("stage"), T("out")));
  EXPECT_EQ("a", ReadFile(T("stage/a")));
  EXPECT_EQ((std::vector<std::string>{"b"}), ListDir(T("out")));
}

TEST_F(RememberedFiles, MoveNewDirectory_RefusesOverEmptyDirectory) {
  ASSERT_EQ(0, mkdir(T("stage").c_str(), 0777));
  ASSERT_EQ(0, mkdir(T("out").c_str(), 0777));
  EXPECT_EQ(80u, nomplat::MoveNewDirectory(T("stage"), T("out")));
  EXPECT_TRUE(nomtest::FileExists(T("stage")));
}

TEST_F(RememberedFiles, MoveNewDirectory_MissingSourceIsPathNotFound) {
  EXPECT_EQ(3u, nomplat::MoveNewDirectory(T("stage"), T("out")));
}

}  // namespace
