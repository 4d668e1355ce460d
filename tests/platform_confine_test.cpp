// Confinement of reads to a set of root directories (SetConfinementRoots, NOMZUB_CONFINE): the
// real path of every file the default Env reads must lie inside a root; links, "..", /proc and
// devices cannot lead out. Also what the preflight learns of a path (StatModulePath) and of a
// file system (FreeBytes).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/win32.h"
#include "support/table_env.h"
#include "support/test_support.h"

namespace nomplat {
namespace {

using nomtest::FileExists;
using nomtest::ListDir;
using nomtest::ReadFile;
using nomtest::TempDir;
using nomtest::WriteFile;
using nomtest::ZPath;

std::string RealPathOf(const std::string& path) {
  char* real = realpath(path.c_str(), nullptr);
  if (real == nullptr) return std::string();
  std::string result = real;
  std::free(real);
  return result;
}

// inside_ is the one root, mapped to drive C:; outside_ is another temporary directory. The
// confinement is lifted after each test.
class ConfineTest : public ::testing::Test {
 protected:
  ConfineTest() : codePage_(65001) {
    ResetPathMaps();
    SetCaseInsensitiveLookup(true);
    MapDrive('C', inside_.path());
    WriteFile(inside_.Sub("Pkg/Part.vgxXml"), "inside");
    WriteFile(outside_.Sub("secret.txt"), "outside");
    SetConfinementRoots({inside_.path()});
  }
  ~ConfineTest() override { SetConfinementRoots({}); }

  std::string In(const std::string& relative) const { return inside_.Sub(relative); }
  std::string Out(const std::string& relative) const { return outside_.Sub(relative); }

  static DWORD Read(const std::string& modulePath, std::string* contents) {
    return CurrentEnv()->ReadFile(modulePath, contents);
  }
  static DWORD Copy(const std::string& src, const std::string& dst) {
    return CurrentEnv()->CopyFile(src, dst, false);
  }

  TempDir inside_;
  TempDir outside_;
  ScopedPathMaps maps_;
  ScopedCodePage codePage_;
};

// --- inside -----------------------------------------------------------------------------------

TEST_F(ConfineTest, Inside_FileIsReadCopiedAndFound) {
  std::string contents;
  EXPECT_TRUE(CanOpenForReading("C:\\Pkg\\Part.vgxXml"));
  EXPECT_EQ(0u, Read("C:\\pkg\\PART.vgxXml", &contents));
  EXPECT_EQ("inside", contents);
  EXPECT_EQ(0u, Copy("C:\\Pkg\\Part.vgxXml", "C:\\copy.vgxXml"));
  EXPECT_EQ("inside", ReadFile(In("copy.vgxXml")));
}

TEST_F(ConfineTest, Inside_LinkInsidePointingInsideIsRead) {
  ASSERT_EQ(0, symlink(In("Pkg/Part.vgxXml").c_str(), In("link.vgxXml").c_str()));
  std::string contents;
  EXPECT_EQ(0u, Read("C:\\link.vgxXml", &contents));
  EXPECT_EQ("inside", contents);
}

TEST_F(ConfineTest, Inside_MissingFileIsStillFileNotFound) {
  std::string contents;
  EXPECT_EQ(2u, Read("C:\\Pkg\\missing.vgxXml", &contents));
  EXPECT_EQ(3u, Read("C:\\NoDir\\missing.vgxXml", &contents));
}

TEST_F(ConfineTest, Inside_DirectoryIsStillAccessDenied) {
  std::string contents;
  EXPECT_EQ(5u, Read("C:\\Pkg", &contents));
  EXPECT_FALSE(CanOpenForReading("C:\\Pkg"));
}

// --- outside ----------------------------------------------------------------------------------

TEST_F(ConfineTest, Outside_FileIsAccessDenied) {
  std::string contents = "stale";
  EXPECT_FALSE(CanOpenForReading(ZPath(Out("secret.txt"))));
  EXPECT_EQ(5u, Read(ZPath(Out("secret.txt")), &contents));
  EXPECT_EQ("", contents);
  EXPECT_EQ(5u, Copy(ZPath(Out("secret.txt")), "C:\\copy.txt"));
  EXPECT_FALSE(FileExists(In("copy.txt")));
}

TEST_F(ConfineTest, Outside_LinkInsidePointingOutsideIsAccessDenied) {
  ASSERT_EQ(0, symlink(Out("secret.txt").c_str(), In("Pkg/leak.vgxXml").c_str()));
  std::string contents;
  EXPECT_FALSE(CanOpenForReading("C:\\Pkg\\leak.vgxXml"));
  EXPECT_EQ(5u, Read("C:\\Pkg\\leak.vgxXml", &contents));
  EXPECT_EQ(5u, Copy("C:\\Pkg\\leak.vgxXml", "C:\\copy.vgxXml"));
  EXPECT_FALSE(FileExists(In("copy.vgxXml")));
}

TEST_F(ConfineTest, Outside_DirectoryLinkInsidePointingOutsideIsAccessDenied) {
  ASSERT_EQ(0, symlink(outside_.path().c_str(), In("Pkg/elsewhere").c_str()));
  std::string contents;
  EXPECT_EQ(5u, Read("C:\\Pkg\\elsewhere\\secret.txt", &contents));
}

TEST_F(ConfineTest, Outside_RelativeClimbOutIsAccessDenied) {
  nomtest::ScopedWorkingDirectory cwd(In("Pkg"));
  ASSERT_TRUE(cwd.ok());
  const std::string name = outside_.path().substr(outside_.path().rfind('/') + 1);
  const std::string climb = "..\\..\\" + name + "\\secret.txt";
  std::string contents;
  EXPECT_EQ(5u, Read(climb, &contents));
  EXPECT_FALSE(CanOpenForReading(climb));
  EXPECT_EQ(0u, Read("..\\Pkg\\Part.vgxXml", &contents));  // climbing within the root is fine
}

TEST_F(ConfineTest, Outside_RelativeClimbToEtcPasswdIsAccessDenied) {
  nomtest::ScopedWorkingDirectory cwd(In("Pkg"));
  ASSERT_TRUE(cwd.ok());
  std::string climb;
  for (int i = 0; i < 16; ++i) climb += "..\\";  // more than enough: ".." of "/" is "/"
  climb += "etc\\passwd";
  std::string contents;
  SetConfinementRoots({});
  ASSERT_EQ(0u, Read(climb, &contents));  // readable without confinement
  SetConfinementRoots({inside_.path()});
  EXPECT_EQ(5u, Read(climb, &contents));
  EXPECT_EQ("", contents);
  EXPECT_FALSE(CanOpenForReading(climb));
}

TEST_F(ConfineTest, Outside_DotDotThroughTheRootIsAccessDenied) {
  const std::string name = outside_.path().substr(outside_.path().rfind('/') + 1);
  std::string contents;
  EXPECT_EQ(5u, Read(ZPath(In("Pkg")) + "\\..\\..\\" + name + "\\secret.txt", &contents));
}

TEST_F(ConfineTest, Outside_SiblingWhoseNameStartsWithTheRootIsAccessDenied) {
  const std::string sibling = inside_.path() + "-sibling";
  WriteFile(sibling + "/f.txt", "x");
  std::string contents;
  EXPECT_EQ(5u, Read(ZPath(sibling + "/f.txt"), &contents));
  std::remove((sibling + "/f.txt").c_str());
  rmdir(sibling.c_str());
}

TEST_F(ConfineTest, Outside_ProcSelfEnvironIsAccessDenied) {
  std::string contents;
  SetConfinementRoots({});
  ASSERT_EQ(0u, Read("/proc/self/environ", &contents));  // readable without confinement
  SetConfinementRoots({inside_.path()});
  EXPECT_EQ(5u, Read("/proc/self/environ", &contents));
  EXPECT_EQ("", contents);
  EXPECT_FALSE(CanOpenForReading("/proc/self/environ"));
}

TEST_F(ConfineTest, Outside_LinkToProcSelfEnvironIsAccessDenied) {
  ASSERT_EQ(0, symlink("/proc/self/environ", In("env.txt").c_str()));
  std::string contents;
  EXPECT_EQ(5u, Read("C:\\env.txt", &contents));
}

TEST_F(ConfineTest, Outside_DevNullIsAccessDenied) {
  EXPECT_FALSE(CanOpenForReading("/dev/null"));
  EXPECT_EQ(5u, Copy("/dev/null", "C:\\null.vgxXml"));
  EXPECT_FALSE(FileExists(In("null.vgxXml")));
  FileFacts facts;
  EXPECT_EQ(0u, StatModulePath("/dev/null", &facts));
  EXPECT_TRUE(facts.exists);
  EXPECT_FALSE(facts.confined);
}

TEST_F(ConfineTest, Outside_WritesAreNotConfined) {
  EXPECT_EQ(0u, Copy("C:\\Pkg\\Part.vgxXml", ZPath(Out("copy.vgxXml"))));
  EXPECT_EQ("inside", ReadFile(Out("copy.vgxXml")));
}

// --- roots ------------------------------------------------------------------------------------

TEST_F(ConfineTest, Roots_AreKeptAsRealPaths) {
  EXPECT_EQ((std::vector<std::string>{RealPathOf(inside_.path())}), ConfinementRoots());
}

TEST_F(ConfineTest, Roots_TrailingSlashIsTheSameRoot) {
  SetConfinementRoots({inside_.path() + "/"});
  EXPECT_EQ((std::vector<std::string>{RealPathOf(inside_.path())}), ConfinementRoots());
  std::string contents;
  EXPECT_EQ(0u, Read("C:\\Pkg\\Part.vgxXml", &contents));
  EXPECT_EQ(5u, Read(ZPath(Out("secret.txt")), &contents));
}

TEST_F(ConfineTest, Roots_GivenThroughLinkIsResolved) {
  const std::string link = Out("to-inside");
  ASSERT_EQ(0, symlink(inside_.path().c_str(), link.c_str()));
  SetConfinementRoots({link});
  EXPECT_EQ((std::vector<std::string>{RealPathOf(inside_.path())}), ConfinementRoots());
  std::string contents;
  EXPECT_EQ(0u, Read("C:\\Pkg\\Part.vgxXml", &contents));
  EXPECT_EQ(0u, Read(ZPath(link + "/Pkg/Part.vgxXml"), &contents));
  EXPECT_EQ(5u, Read(ZPath(Out("secret.txt")), &contents));
}

TEST_F(ConfineTest, Roots_SeveralRootsEachAllowRead) {
  SetConfinementRoots({inside_.path(), outside_.path()});
  std::string contents;
  EXPECT_EQ(0u, Read("C:\\Pkg\\Part.vgxXml", &contents));
  EXPECT_EQ(0u, Read(ZPath(Out("secret.txt")), &contents));
  EXPECT_EQ("outside", contents);
}

TEST_F(ConfineTest, Roots_MissingRootIsKeptAsWrittenAndHoldsNothing) {
  SetConfinementRoots({In("missing/")});
  EXPECT_EQ((std::vector<std::string>{In("missing")}), ConfinementRoots());
  std::string contents;
  EXPECT_EQ(5u, Read("C:\\Pkg\\Part.vgxXml", &contents));
}

TEST_F(ConfineTest, Roots_NoneAllowsEverything) {
  SetConfinementRoots({});
  EXPECT_TRUE(ConfinementRoots().empty());
  EXPECT_TRUE(IsConfined("/etc/passwd"));
  std::string contents;
  EXPECT_EQ(0u, Read(ZPath(Out("secret.txt")), &contents));
  EXPECT_EQ("outside", contents);
}

TEST_F(ConfineTest, Roots_EmptyEntriesAreSkipped) {
  SetConfinementRoots({"", inside_.path(), ""});
  EXPECT_EQ((std::vector<std::string>{RealPathOf(inside_.path())}), ConfinementRoots());
}

TEST_F(ConfineTest, IsConfined_RootItselfAndBelowAreInside) {
  const std::string root = RealPathOf(inside_.path());
  EXPECT_TRUE(IsConfined(root));
  EXPECT_TRUE(IsConfined(root + "/a/b"));
  EXPECT_FALSE(IsConfined(root + "x"));
  EXPECT_FALSE(IsConfined(root.substr(0, root.rfind('/'))));
  EXPECT_FALSE(IsConfined(""));
}

TEST_F(ConfineTest, IsConfined_FileSystemRootHoldsEverything) {
  SetConfinementRoots({"/"});
  EXPECT_TRUE(IsConfined("/"));
  EXPECT_TRUE(IsConfined("/etc/passwd"));
  std::string contents;
  EXPECT_EQ(0u, Read(ZPath(Out("secret.txt")), &contents));
}

TEST(ConfineEnvironment, Roots_EnvironmentVariableIsReadOnFirstUse) {
  // The variable is read once per process: check it in a fresh one.
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  TempDir a, b, other;
  WriteFile(a.Sub("f"), "a");
  WriteFile(other.Sub("f"), "o");
  const std::string expected = RealPathOf(a.path()) + "|" + RealPathOf(b.path());
  EXPECT_EXIT(
      {
        setenv("NOMZUB_CONFINE", (a.path() + "::" + b.path() + "/").c_str(), 1);
        const std::vector<std::string> roots = ConfinementRoots();
        std::string contents;
        const bool ok = roots.size() == 2 && roots[0] + "|" + roots[1] == expected &&
                        CurrentEnv()->ReadFile(ZPath(a.Sub("f")), &contents) == 0 &&
                        CurrentEnv()->ReadFile(ZPath(other.Sub("f")), &contents) == 5;
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      {
        setenv("NOMZUB_CONFINE", a.path().c_str(), 1);
        SetConfinementRoots({});  // an explicit setting wins over the environment
        std::string contents;
        std::exit(ConfinementRoots().empty() &&
                          CurrentEnv()->ReadFile(ZPath(other.Sub("f")), &contents) == 0
                      ? 0
                      : 1);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      {
        unsetenv("NOMZUB_CONFINE");
        std::exit(ConfinementRoots().empty() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(ConfineEnvironment, Roots_EnvironmentVariableIsReadThroughCurrentEnv) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  TempDir a;
  const std::string expected = RealPathOf(a.path());
  EXPECT_EXIT(
      {
        unsetenv("NOMZUB_CONFINE");
        nomtest::TableEnv env({{"NOMZUB_CONFINE", a.path()}});
        const std::vector<std::string> roots = ConfinementRoots();
        std::exit(roots.size() == 1 && roots[0] == expected ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// --- StatModulePath ---------------------------------------------------------------------------

TEST_F(ConfineTest, StatModulePath_RegularFileInside) {
  ASSERT_EQ(0, chmod(In("Pkg/Part.vgxXml").c_str(), 0640));
  struct stat st {};
  ASSERT_EQ(0, stat(In("Pkg/Part.vgxXml").c_str(), &st));
  FileFacts facts;
  EXPECT_EQ(0u, StatModulePath("C:\\pkg\\part.VGXXML", &facts));
  EXPECT_TRUE(facts.exists);
  EXPECT_TRUE(facts.regular);
  EXPECT_EQ(static_cast<uint64_t>(st.st_dev), facts.device);
  EXPECT_EQ(static_cast<uint64_t>(st.st_ino), facts.inode);
  EXPECT_EQ(6u, facts.size);
  EXPECT_EQ(0640u, facts.mode);
  EXPECT_EQ(In("Pkg/Part.vgxXml"), facts.native);
  EXPECT_EQ(RealPathOf(In("Pkg/Part.vgxXml")), facts.real);
  EXPECT_TRUE(facts.confined);
}

TEST_F(ConfineTest, StatModulePath_LinkIsFollowed) {
  ASSERT_EQ(0, symlink(Out("secret.txt").c_str(), In("leak.txt").c_str()));
  FileFacts facts;
  EXPECT_EQ(0u, StatModulePath("C:\\leak.txt", &facts));
  EXPECT_TRUE(facts.exists);
  EXPECT_TRUE(facts.regular);
  EXPECT_EQ(7u, facts.size);
  EXPECT_EQ(In("leak.txt"), facts.native);
  EXPECT_EQ(RealPathOf(Out("secret.txt")), facts.real);
  EXPECT_FALSE(facts.confined);
}

TEST_F(ConfineTest, StatModulePath_DirectoryExistsButIsNotRegular) {
  FileFacts facts;
  EXPECT_EQ(0u, StatModulePath("C:\\Pkg", &facts));
  EXPECT_TRUE(facts.exists);
  EXPECT_FALSE(facts.regular);
  EXPECT_EQ(0u, facts.size);
  EXPECT_TRUE(facts.confined);
}

TEST_F(ConfineTest, StatModulePath_MissingFileIsNoError) {
  FileFacts facts;
  facts.exists = true;
  EXPECT_EQ(0u, StatModulePath("C:\\Pkg\\missing.vgxXml", &facts));
  EXPECT_FALSE(facts.exists);
  EXPECT_FALSE(facts.regular);
  EXPECT_EQ(In("Pkg/missing.vgxXml"), facts.native);
  EXPECT_EQ("", facts.real);
  EXPECT_TRUE(facts.confined);
}

TEST_F(ConfineTest, StatModulePath_UnmappableAndRefusedPathsAreErrors) {
  FileFacts facts;
  EXPECT_EQ(3u, StatModulePath("Q:\\x", &facts));
  EXPECT_EQ(53u, StatModulePath("\\\\srv\\pub\\x", &facts));
  EXPECT_EQ(123u, StatModulePath("C:\\a|b", &facts));
  EXPECT_FALSE(facts.exists);
}

TEST_F(ConfineTest, StatModulePath_WithoutRootsEverythingIsConfined) {
  SetConfinementRoots({});
  FileFacts facts;
  EXPECT_EQ(0u, StatModulePath(ZPath(Out("secret.txt")), &facts));
  EXPECT_TRUE(facts.exists);
  EXPECT_TRUE(facts.confined);
}

// --- FreeBytes --------------------------------------------------------------------------------

// Free bytes as statvfs reports them for native path p; 0 when it fails.
uint64_t Available(const std::string& p) {
  struct statvfs fs {};
  if (statvfs(p.c_str(), &fs) != 0) return 0;
  return static_cast<uint64_t>(fs.f_bavail) * fs.f_frsize;
}

// a and b differ by at most 64 MiB (other programs write while the test runs).
::testing::AssertionResult Near(uint64_t a, uint64_t b) {
  const uint64_t d = a > b ? a - b : b - a;
  if (d <= (64u << 20)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << a << " and " << b << " differ by " << d;
}

TEST_F(ConfineTest, FreeBytes_OfExistingDirectory) {
  uint64_t bytes = 0;
  EXPECT_EQ(0u, FreeBytes("C:\\Pkg", &bytes));
  EXPECT_GT(bytes, 0u);
  EXPECT_TRUE(Near(Available(In("Pkg")), bytes));
}

TEST_F(ConfineTest, FreeBytes_OfDirectoryStillToBeCreatedIsItsParents) {
  uint64_t bytes = 0;
  EXPECT_EQ(0u, FreeBytes("C:\\Out\\Deeper\\", &bytes));
  EXPECT_TRUE(Near(Available(inside_.path()), bytes));
  EXPECT_FALSE(FileExists(In("Out")));
}

TEST_F(ConfineTest, FreeBytes_OfOtherFileSystem) {
  const uint64_t shm = Available("/dev/shm");
  if (shm == 0) GTEST_SKIP() << "no /dev/shm";
  uint64_t bytes = 0;
  EXPECT_EQ(0u, FreeBytes("/dev/shm", &bytes));
  EXPECT_TRUE(Near(shm, bytes));
}

TEST_F(ConfineTest, FreeBytes_UnmappableIsError) {
  uint64_t bytes = 7;
  EXPECT_EQ(3u, FreeBytes("Q:\\out", &bytes));
  EXPECT_EQ(0u, bytes);
  EXPECT_EQ(123u, FreeBytes("C:\\out?", &bytes));
}

TEST_F(ConfineTest, FreeBytes_BelowAFileIsPathNotFound) {
  uint64_t bytes = 0;
  EXPECT_EQ(3u, FreeBytes("C:\\Pkg\\Part.vgxXml\\sub", &bytes));
}

}  // namespace
}  // namespace nomplat
