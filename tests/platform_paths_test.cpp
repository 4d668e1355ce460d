// Module paths to native paths and back: drives, shares, rooted and relative paths, separators,
// dots, the case-insensitive fallback, code-page conversion and the settings the environment
// gives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/case_lookup.h"
#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "support/table_env.h"
#include "support/test_support.h"

namespace nomplat {
namespace {

using nomtest::ScopedEnvVar;
using nomtest::TempDir;
using nomtest::WriteFile;

// Each test starts from the default maps, UTF-8 and the case-insensitive fallback on, with C:
// mapped to a fresh temporary directory; everything is restored after it.
class PathsTest : public ::testing::Test {
 protected:
  PathsTest() : codePage_(65001) {
    ResetPathMaps();
    SetCaseInsensitiveLookup(true);
    MapDrive('C', tmp_.path());
  }

  // The native path of a module path; "<error N>" when it cannot be mapped.
  static std::string Native(const std::string& modulePath) {
    std::string native;
    DWORD error = 0;
    if (!ToNativePath(modulePath, &native, &error)) return "<error " + std::to_string(error) + ">";
    return native;
  }

  // The module path of a native path; "<none>" when there is none.
  static std::string Module(const std::string& nativePath) {
    std::string modulePath = "<untouched>";
    if (!ToModulePath(nativePath, &modulePath)) {
      return modulePath == "<untouched>" ? "<none>" : "<changed on failure>";
    }
    return modulePath;
  }

  std::string T(const std::string& relative) const { return tmp_.Sub(relative); }

  TempDir tmp_;
  ScopedPathMaps maps_;
  ScopedCodePage codePage_;
};

// --- drives -----------------------------------------------------------------------------------

TEST_F(PathsTest, Drive_UpperCaseLetterStartsAtItsDirectory) {
  EXPECT_EQ(T("Pkg/Part.vgxXml"), Native("C:\\Pkg\\Part.vgxXml"));
}

TEST_F(PathsTest, Drive_LowerCaseLetterIsTheSameDrive) {
  EXPECT_EQ(T("Pkg/Part.vgxXml"), Native("c:\\Pkg\\Part.vgxXml"));
}

TEST_F(PathsTest, Drive_ZIsTheRootByDefault) {
  WriteFile(T("data/x"), "1");
  EXPECT_EQ(T("data/x"), Native(nomtest::ZPath(T("data/x"))));
  EXPECT_EQ("/", Native("Z:\\"));
}

TEST_F(PathsTest, Drive_NoSeparatorAfterColonIsRelativeToDriveRoot) {
  EXPECT_EQ(T("Pkg/x"), Native("C:Pkg\\x"));
}

TEST_F(PathsTest, Drive_AloneIsItsDirectory) {
  EXPECT_EQ(tmp_.path(), Native("C:"));
  EXPECT_EQ(tmp_.path(), Native("C:\\"));
}

TEST_F(PathsTest, Drive_UnmappedIsPathNotFound) {
  EXPECT_EQ("<error 3>", Native("Q:\\Pkg\\x"));
  EXPECT_EQ("<error 3>", Native("q:x"));
}

TEST_F(PathsTest, Drive_RemappingReplacesEarlierMapping) {
  TempDir other;
  MapDrive('c', other.path() + "/");
  EXPECT_EQ(other.Sub("x"), Native("C:\\x"));
}

TEST_F(PathsTest, Drive_ResetForgetsMappings) {
  ResetPathMaps();
  EXPECT_EQ("<error 3>", Native("C:\\x"));
  EXPECT_EQ("/", Native("Z:\\"));
}

TEST_F(PathsTest, Drive_EnvironmentMapsDrivesOnFirstUse) {
  TempDir d;
  ScopedEnvVar drives("NOMZUB_DRIVES", "C=" + T("c") + ";D=" + d.path());
  ResetPathMaps();
  EXPECT_EQ(T("c/x"), Native("C:\\x"));
  EXPECT_EQ(d.Sub("y"), Native("d:\\y"));
  EXPECT_EQ("/", Native("Z:\\"));
}

TEST_F(PathsTest, Drive_MapDriveOverridesEnvironment) {
  ScopedEnvVar drives("NOMZUB_DRIVES", "C=/from/environment");
  ResetPathMaps();
  MapDrive('C', tmp_.path());
  EXPECT_EQ(T("x"), Native("C:\\x"));
}

TEST_F(PathsTest, Drive_BadEnvironmentEntriesAreLoggedAndSkipped) {
  ScopedEnvVar drives("NOMZUB_DRIVES", "1=/x;CD=/y;E;F=;G=" + T("g"));
  ResetPathMaps();
  nomtest::LogCapture log;
  EXPECT_EQ(T("g/x"), Native("G:\\x"));
  EXPECT_EQ((std::vector<std::string>{
                "****** ERROR:\t NOMZUB_DRIVES: ignoring \"1=/x\" (expected L=/directory)",
                "****** ERROR:\t NOMZUB_DRIVES: ignoring \"CD=/y\" (expected L=/directory)",
                "****** ERROR:\t NOMZUB_DRIVES: ignoring \"E\" (expected L=/directory)",
                "****** ERROR:\t NOMZUB_DRIVES: ignoring \"F=\" (expected L=/directory)"}),
            log.messages(2));
  EXPECT_EQ("<error 3>", Native("E:\\x"));
}

TEST_F(PathsTest, Drive_MapDriveRejectsNonLetter) {
  nomtest::LogCapture log;
  MapDrive('1', T("one"));
  EXPECT_EQ((std::vector<std::string>{"****** ERROR:\t Cannot map drive \"1\": not a letter"}),
            log.messages(2));
  nomtest::ScopedWorkingDirectory cwd(tmp_.path());
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ("1:x", Native("1:x"));  // no drive: an ordinary relative name
}

// --- shares -----------------------------------------------------------------------------------

TEST_F(PathsTest, Share_MappedShareStartsAtItsDirectory) {
  MapShare("\\\\srv\\pub", T("pub"));
  EXPECT_EQ(T("pub/dir/f.vgxGeom"), Native("\\\\srv\\pub\\dir\\f.vgxGeom"));
  EXPECT_EQ(T("pub"), Native("\\\\srv\\pub"));
}

TEST_F(PathsTest, Share_NamesAreCaseInsensitive) {
  MapShare("\\\\SRV\\Pub\\", T("pub"));
  EXPECT_EQ(T("pub/f"), Native("\\\\srv\\PUB\\f"));
  EXPECT_EQ(T("pub/f"), Native("//Srv/pub/f"));
}

TEST_F(PathsTest, Share_UnmappedIsBadNetworkPath) {
  MapShare("\\\\srv\\pub", T("pub"));
  EXPECT_EQ("<error 53>", Native("\\\\srv\\other\\f"));
  EXPECT_EQ("<error 53>", Native("\\\\other\\pub\\f"));
  EXPECT_EQ("<error 53>", Native("\\\\srv"));
}

TEST_F(PathsTest, Share_EnvironmentMapsShares) {
  ScopedEnvVar shares("NOMZUB_SHARES", "\\\\srv\\pub=" + T("pub") + ";\\\\srv\\x=" + T("x"));
  ResetPathMaps();
  EXPECT_EQ(T("pub/f"), Native("\\\\srv\\pub\\f"));
  EXPECT_EQ(T("x/g"), Native("\\\\SRV\\X\\g"));
}

TEST_F(PathsTest, Share_BadEnvironmentEntryIsLoggedAndSkipped) {
  ScopedEnvVar shares("NOMZUB_SHARES", "\\\\srv=/x;\\\\srv\\pub\\deep=/y");
  ResetPathMaps();
  nomtest::LogCapture log;
  EXPECT_EQ("<error 53>", Native("\\\\srv\\pub\\f"));
  EXPECT_EQ((std::vector<std::string>{
                "****** ERROR:\t NOMZUB_SHARES: ignoring \"\\\\srv=/x\" (expected "
                "\\\\server\\share=/directory)",
                "****** ERROR:\t NOMZUB_SHARES: ignoring \"\\\\srv\\pub\\deep=/y\" (expected "
                "\\\\server\\share=/directory)"}),
            log.messages(2));
}

TEST_F(PathsTest, Share_MalformedMappingIsLogged) {
  nomtest::LogCapture log;
  MapShare("srv\\pub", T("pub"));
  EXPECT_EQ((std::vector<std::string>{
                "****** ERROR:\t Cannot map share \"srv\\pub\": expected \\\\server\\share"}),
            log.messages(2));
}

// --- rooted and relative ----------------------------------------------------------------------

TEST_F(PathsTest, Rooted_BackslashStartsAtFileSystemRoot) {
  std::string rooted;
  for (char c : T("f.txt")) rooted += c == '/' ? '\\' : c;
  EXPECT_EQ(T("f.txt"), Native(rooted));
}

TEST_F(PathsTest, Relative_StaysRelativeToWorkingDirectory) {
  nomtest::ScopedWorkingDirectory cwd(tmp_.path());
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ("sub/file.txt", Native("sub\\file.txt"));
  EXPECT_EQ("file.txt", Native("file.txt"));
  EXPECT_EQ(".", Native(""));
}

TEST_F(PathsTest, Relative_CaseInsensitiveInWorkingDirectory) {
  WriteFile(T("Sub/File.txt"), "1");
  nomtest::ScopedWorkingDirectory cwd(tmp_.path());
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ("Sub/File.txt", Native("sub\\file.TXT"));
}

TEST_F(PathsTest, Separators_ForwardAndBackslashBothSeparate) {
  EXPECT_EQ(T("Pkg/sub/x"), Native("C:/Pkg\\sub/x"));
  EXPECT_EQ(T("Pkg/x"), Native("C:\\\\Pkg//x"));
}

TEST_F(PathsTest, Separators_TrailingSeparatorIsKept) { EXPECT_EQ(T("Pkg/"), Native("C:\\Pkg\\")); }

TEST_F(PathsTest, Dots_DotAndDotDotAreResolved) {
  EXPECT_EQ(T("a/c"), Native("C:\\a\\.\\b\\..\\c"));
  EXPECT_EQ(T("x"), Native("C:\\..\\x"));  // never above the drive's directory
}

TEST_F(PathsTest, Dots_LeadingDotDotOfRelativePathIsKept) {
  nomtest::ScopedWorkingDirectory cwd(tmp_.path());
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ("../x", Native("..\\x"));
  EXPECT_EQ("b", Native("a\\..\\b"));
}

// --- case-insensitive fallback ----------------------------------------------------------------

TEST_F(PathsTest, Case_UniqueMatchIsUsedPerComponent) {
  WriteFile(T("Pkg/Sub/Part.VGXXML"), "1");
  EXPECT_EQ(T("Pkg/Sub/Part.VGXXML"), Native("C:\\pkg\\SUB\\part.vgxXml"));
}

TEST_F(PathsTest, Case_ExactMatchIsPreferred) {
  WriteFile(T("Part.x"), "1");
  WriteFile(T("PART.x"), "2");
  EXPECT_EQ(T("Part.x"), Native("C:\\Part.x"));
  EXPECT_EQ(T("PART.x"), Native("C:\\PART.x"));
}

TEST_F(PathsTest, Case_AmbiguousMatchKeepsNameAsWritten) {
  WriteFile(T("Part.x"), "1");
  WriteFile(T("PART.x"), "2");
  EXPECT_EQ(T("part.x"), Native("C:\\part.x"));
}

TEST_F(PathsTest, Case_NoMatchKeepsRestAsWritten) {
  WriteFile(T("Pkg/a"), "1");
  EXPECT_EQ(T("Pkg/New/Dir/f"), Native("C:\\PKG\\New\\Dir\\f"));
}

TEST_F(PathsTest, Case_NonAsciiLettersMatch) {
  WriteFile(T("Caf\xC3\xA9.txt"), "1");
  EXPECT_EQ(T("Caf\xC3\xA9.txt"), Native("C:\\CAF\xC3\x89.TXT"));
}

TEST_F(PathsTest, Case_MalformedUtf8NameMatchesNoLetter) {
  WriteFile(T("x\xC1\x81"), "1");  // an overlong form of "A": not a letter
  EXPECT_EQ(T("xa"), Native("C:\\xa"));
  EXPECT_EQ(T("x\xC1\x81"), Native("C:\\X\xC1\x81"));
}

TEST_F(PathsTest, Case_DisabledKeepsNameAsWritten) {
  WriteFile(T("Pkg/Part.vgxXml"), "1");
  SetCaseInsensitiveLookup(false);
  EXPECT_FALSE(CaseInsensitiveLookup());
  EXPECT_EQ(T("pkg/part.vgxxml"), Native("C:\\pkg\\part.vgxxml"));
}

// Sets a directory's modification time far in the past, so that a listing of it is kept.
void AgeDirectory(const std::string& dir) {
  const timespec past[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, dir.c_str(), past, 0));
}

TEST_F(PathsTest, Case_FileCopiedInAfterListingIsFoundInAnotherCase) {
  WriteFile(T("Out/Seed.x"), "1");
  WriteFile(T("Src/Part.x"), "2");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/missing.x"), Native("C:\\Out\\missing.x"));
  ASSERT_EQ(0u, Env::Default()->CopyFile("C:\\Src\\Part.x", "C:\\Out\\Part.x", false));
  EXPECT_EQ(T("Out/Part.x"), Native("C:\\Out\\PART.X"));
}

TEST_F(PathsTest, Case_FileSavedInAfterListingIsFoundInAnotherCase) {
  WriteFile(T("Out/Seed.x"), "1");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/doc.x"), Native("C:\\Out\\doc.x"));
  ASSERT_EQ(0u, Env::Default()->WriteFileAtomic("C:\\Out\\Doc.x", "<a/>"));
  EXPECT_EQ(T("Out/Doc.x"), Native("C:\\Out\\DOC.x"));
}

TEST_F(PathsTest, Case_FileAddedByAnotherProgramAfterListingIsFound) {
  WriteFile(T("Out/Seed.x"), "1");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/new.x"), Native("C:\\Out\\new.x"));
  WriteFile(T("Out/NEW.x"), "2");
  EXPECT_EQ(T("Out/NEW.x"), Native("C:\\Out\\new.x"));
}

// What ToNativePathFound learnt of modulePath's entry: "missing", "known" or "unknown", after
// the native path.
std::string Found(const std::string& modulePath) {
  std::string native;
  DWORD error = 0;
  FoundEntry found;
  if (!ToNativePathFound(modulePath, &native, &error, &found)) return "<error>";
  return native + (found.known ? " known" : found.missing ? " missing" : " unknown");
}

TEST_F(PathsTest, Case_NewNameInListedDirectoryIsMissingAsWritten) {
  WriteFile(T("Out/Seed.x"), "1");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/Seed.x"), Native("C:\\Out\\SEED.X"));  // the directory is listed
  EXPECT_EQ(T("Out/New.x") + " missing", Found("C:\\Out\\New.x"));
  EXPECT_EQ(T("Out/Seed.x") + " unknown", Found("C:\\Out\\seed.x"));
}

TEST_F(PathsTest, Case_FileAddedAsWrittenByAnotherProgramAfterListingIsFound) {
  WriteFile(T("Out/Seed.x"), "1");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/New.x") + " missing", Found("C:\\Out\\New.x"));
  WriteFile(T("Out/New.x"), "2");
  EXPECT_EQ(T("Out/New.x") + " known", Found("C:\\Out\\New.x"));
}

TEST_F(PathsTest, Case_DirectoryReplacedAfterListingIsLookedAtAgain) {
  WriteFile(T("Out/Seed.x"), "1");
  WriteFile(T("Other/Part.x"), "2");
  AgeDirectory(T("Out"));
  AgeDirectory(T("Other"));
  EXPECT_EQ(T("Out/Part.x") + " missing", Found("C:\\Out\\Part.x"));
  ASSERT_EQ(0, std::rename(T("Out").c_str(), T("Gone").c_str()));
  ASSERT_EQ(0, std::rename(T("Other").c_str(), T("Out").c_str()));
  EXPECT_EQ(T("Out/Part.x") + " known", Found("C:\\Out\\Part.x"));
}

TEST_F(PathsTest, Case_FileRemovedByAnotherProgramAfterListingIsNotFound) {
  WriteFile(T("Out/Old.x"), "1");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/Old.x"), Native("C:\\Out\\OLD.X"));
  ASSERT_EQ(0, std::remove(T("Out/Old.x").c_str()));
  EXPECT_EQ(T("Out/OLD.X"), Native("C:\\Out\\OLD.X"));
}

TEST_F(PathsTest, Case_FirstNameInAnotherCaseThenExactNames) {
  WriteFile(T("Pkg/Sub/Deep/f.x"), "1");
  EXPECT_EQ(T("Pkg/Sub/Deep/f.x"), Native("C:\\pkg\\Sub\\Deep\\f.x"));
}

TEST_F(PathsTest, Case_MiddleNameInAnotherCase) {
  WriteFile(T("Pkg/Sub/Deep/More/f.x"), "1");
  EXPECT_EQ(T("Pkg/Sub/Deep/More/f.x"), Native("C:\\Pkg\\Sub\\DEEP\\More\\f.x"));
  EXPECT_EQ(T("Pkg/Sub/Deep/More/f.x"), Native("C:\\Pkg\\SUB\\Deep\\more\\F.X"));
}

TEST_F(PathsTest, Case_EveryNameInAnotherCase) {
  WriteFile(T("Pkg/Sub/Deep/More/f.x"), "1");
  EXPECT_EQ(T("Pkg/Sub/Deep/More/f.x"), Native("C:\\PKG\\SUB\\DEEP\\MORE\\F.X"));
}

TEST_F(PathsTest, Case_NewNamesBelowNameInAnotherCaseStayAsWritten) {
  WriteFile(T("Pkg/Sub/f.x"), "1");
  EXPECT_EQ(T("Pkg/Sub/New/Deeper/g.x"), Native("C:\\pkg\\sub\\New\\Deeper\\g.x"));
}

TEST_F(PathsTest, Case_LinkedDirectoryIsFollowed) {
  WriteFile(T("Real/Part.x"), "1");
  ASSERT_EQ(0, symlink(T("Real").c_str(), T("Link").c_str()));
  EXPECT_EQ(T("Link/Part.x"), Native("C:\\link\\PART.X"));
}

TEST_F(PathsTest, Case_RelativePathWithLeadingDotDot) {
  WriteFile(T("Pkg/Part.x"), "1");
  WriteFile(T("Work/seed"), "");
  nomtest::ScopedWorkingDirectory cwd(T("Work"));
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ("../Pkg/Part.x", Native("..\\PKG\\part.X"));
}

TEST_F(PathsTest, Case_AmbiguousMatchStaysAmbiguousAfterOneSpellingIsCopiedOver) {
  WriteFile(T("Out/Part.x"), "1");
  WriteFile(T("Out/PART.x"), "2");
  WriteFile(T("Src/Part.x"), "new");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/part.x"), Native("C:\\Out\\part.x"));
  ASSERT_EQ(0u, Env::Default()->CopyFile("C:\\Src\\Part.x", "C:\\Out\\Part.x", false));
  EXPECT_EQ(T("Out/part.x"), Native("C:\\Out\\part.x"));
  ASSERT_EQ(0u, Env::Default()->CopyFile("C:\\Src\\Part.x", "C:\\Out\\PART.x", false));
  EXPECT_EQ(T("Out/part.x"), Native("C:\\Out\\part.x"));
}

TEST_F(PathsTest, Case_FileCopiedOverTargetAfterListingKeepsLookupWorking) {
  WriteFile(T("Out/Seed.x"), "1");
  WriteFile(T("Out/Part.x"), "old");
  WriteFile(T("Src/Part.x"), "new");
  AgeDirectory(T("Out"));
  EXPECT_EQ(T("Out/Part.x"), Native("C:\\Out\\PART.X"));
  ASSERT_EQ(0u, Env::Default()->CopyFile("C:\\Src\\Part.x", "C:\\Out\\part.X", false));
  EXPECT_EQ(T("Out/Part.x"), Native("C:\\Out\\PART.x"));
  EXPECT_EQ(T("Out/Seed.x"), Native("C:\\Out\\SEED.X"));
  EXPECT_EQ("new", nomtest::ReadFile(T("Out/Part.x")));
  EXPECT_FALSE(nomtest::FileExists(T("Out/part.X")));  // the file replaced, no second spelling
}

// --- long paths -------------------------------------------------------------------------------

// "C:\a\a\...\a\f.vgxXml" with count components "a", and its native form below prefix.
std::string DeepModulePath(int count) {
  std::string path = "C:\\";
  for (int i = 0; i < count; ++i) path += "a\\";
  return path + "f.vgxXml";
}
std::string DeepNativePath(std::string prefix, int count) {
  for (int i = 0; i < count; ++i) prefix += "/a";
  return prefix + "/f.vgxXml";
}

TEST_F(PathsTest, LongPath_16000MissingComponentsStayAsWritten) {
  EXPECT_EQ(DeepNativePath(tmp_.path(), 16000), Native(DeepModulePath(16000)));
}

TEST_F(PathsTest, LongPath_16000ComponentsFindLeadingNamesInAnotherCase) {
  WriteFile(T("A/A/seed"), "");
  EXPECT_EQ(DeepNativePath(T("A/A"), 15998), Native(DeepModulePath(16000)));
}

TEST_F(PathsTest, LongPath_16000ComponentsWithFallbackOff) {
  SetCaseInsensitiveLookup(false);
  EXPECT_EQ(DeepNativePath(tmp_.path(), 16000), Native(DeepModulePath(16000)));
}

TEST_F(PathsTest, LongPath_16000ComponentsCannotBeOpened) {
  EXPECT_FALSE(Env::Default()->CanOpenForReading(DeepModulePath(16000)));
  std::string contents;
  EXPECT_EQ(206u, Env::Default()->ReadFile(DeepModulePath(16000), &contents));
}

TEST_F(PathsTest, LongPath_DotDotCollapsesLongPath) {
  WriteFile(T("Part.x"), "1");
  std::string path = "C:\\";
  for (int i = 0; i < 8000; ++i) path += "a\\";
  for (int i = 0; i < 8000; ++i) path += "..\\";
  EXPECT_EQ(T("Part.x"), Native(path + "PART.X"));
}

TEST(PathsEnvironment, Case_EnvironmentVariableDisablesFallback) {
  // The setting is read once per process: check it in a fresh one.
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        setenv("NOMZUB_CASE_SENSITIVE", "1", 1);
        std::exit(CaseInsensitiveLookup() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      {
        unsetenv("NOMZUB_CASE_SENSITIVE");
        std::exit(CaseInsensitiveLookup() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// --- code pages -------------------------------------------------------------------------------

TEST_F(PathsTest, CodePage_932BytesBecomeUtf8) {
  WriteFile(T("\xE8\xA1\xA8/x.txt"), "1");
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  // 0x95 0x5C is one character: its trail byte does not separate components.
  EXPECT_EQ(T("\xE8\xA1\xA8/x.txt"), Native("C:\\\x95\x5C\\x.txt"));
  EXPECT_EQ(T("\xE8\xA1\xA8"), Native("C:\\\x95\x5C"));
}

TEST_F(PathsTest, CodePage_1252BytesBecomeUtf8) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(T("caf\xC3\xA9"), Native("C:\\caf\xE9"));
}

// --- back to module paths ---------------------------------------------------------------------

TEST_F(PathsTest, ToModule_PathUnderMappedDriveIsOnThatDrive) {
  EXPECT_EQ("C:\\Pkg\\Part.vgxXml", Module(T("Pkg/Part.vgxXml")));
}

TEST_F(PathsTest, ToModule_PathOutsideEveryMappedDirectoryIsOnZ) {
  EXPECT_EQ("Z:\\usr\\share\\x", Module("/usr/share/x"));
}

TEST_F(PathsTest, ToModule_MappedDirectoryItselfIsDriveRoot) {
  EXPECT_EQ("C:\\", Module(tmp_.path()));
  EXPECT_EQ("C:\\", Module(tmp_.path() + "/"));
  EXPECT_EQ("Z:\\", Module("/"));
}

TEST_F(PathsTest, ToModule_LongestMappedDirectoryWins) {
  MapDrive('D', T("Pkg/Sub"));
  EXPECT_EQ("D:\\x", Module(T("Pkg/Sub/x")));
  EXPECT_EQ("C:\\Pkg\\x", Module(T("Pkg/x")));
  MapDrive('A', T("Pkg"));  // an earlier letter, but a shorter directory
  EXPECT_EQ("D:\\x", Module(T("Pkg/Sub/x")));
}

TEST_F(PathsTest, ToModule_NameThatOnlyStartsLikeMappedDirectoryIsNotInIt) {
  MapDrive('D', T("Pkg"));
  EXPECT_EQ("C:\\PkgX\\y", Module(T("PkgX/y")));
}

TEST_F(PathsTest, ToModule_TieGoesToEarlierLetterThenDriveBeforeShare) {
  MapShare("\\\\srv\\pub", T("Same"));
  MapDrive('E', T("Same"));
  MapDrive('D', T("Same"));
  EXPECT_EQ("D:\\x", Module(T("Same/x")));
}

TEST_F(PathsTest, ToModule_ShareDirectoryKeepsShareSpelling) {
  MapShare("\\\\Srv\\Pub\\", T("pub"));
  EXPECT_EQ("\\\\Srv\\Pub\\a\\b.vgxGeom", Module(T("pub/a/b.vgxGeom")));
  EXPECT_EQ("\\\\Srv\\Pub\\", Module(T("pub")));
}

TEST_F(PathsTest, ToModule_RemappedShareTakesNewSpellingAndDirectory) {
  MapShare("\\\\srv\\pub", T("old"));
  MapShare("\\\\SRV\\PUB", T("new"));
  EXPECT_EQ("\\\\SRV\\PUB\\f", Module(T("new/f")));
  EXPECT_EQ("C:\\old\\f", Module(T("old/f")));
}

TEST_F(PathsTest, ToModule_RemappedZLeavesOtherPathsWithoutModulePath) {
  MapDrive('Z', T("z"));
  EXPECT_EQ("Z:\\f", Module(T("z/f")));
  EXPECT_EQ("<none>", Module("/usr/share/x"));
  EXPECT_EQ("<none>", Module("/"));
}

TEST_F(PathsTest, ToModule_RelativePathHasNone) {
  EXPECT_EQ("<none>", Module("Pkg/x"));
  EXPECT_EQ("<none>", Module(""));
}

TEST_F(PathsTest, ToModule_DotsAndRepeatedSlashesAreResolved) {
  EXPECT_EQ("C:\\Pkg\\b", Module(tmp_.path() + "//Pkg/./a/../b"));
  MapDrive('D', T("Pkg/./Sub/"));  // the mapped directory is compared the same way
  EXPECT_EQ("D:\\x", Module(T("Pkg/Sub/x")));
}

TEST_F(PathsTest, ToModule_TrailingSlashStaysTrailingBackslash) {
  EXPECT_EQ("C:\\Pkg\\", Module(T("Pkg/")));
}

TEST_F(PathsTest, ToModule_NameAModulePathCannotHoldHasNone) {
  EXPECT_EQ("<none>", Module(T("a\\b")));  // would split in two
  EXPECT_EQ("<none>", Module(T("a:b")));
  EXPECT_EQ("<none>", Module(T("what?")));
  EXPECT_EQ("<none>", Module(T("trailing.")));
}

TEST_F(PathsTest, ToModule_IsInTheCodePage) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("C:\\\x95\x5C\\x.txt", Module(T("\xE8\xA1\xA8/x.txt")));
}

TEST_F(PathsTest, ToModule_CharacterTheCodePageLacksHasNone) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("<none>", Module(T("\xE3\x81\x82.txt")));
  EXPECT_EQ("C:\\caf\xE9", Module(T("caf\xC3\xA9")));
}

TEST_F(PathsTest, ToModule_RoundTripsThroughToNativePath) {
  MapShare("\\\\srv\\pub", T("pub"));
  MapDrive('D', T("d"));
  for (const std::string& file : {T("pub/Dir/a.vgxXml"), T("d/B.vgxGeom"), T("Pkg/c d.txt")}) {
    WriteFile(file, "1");
    const std::string modulePath = Module(file);
    EXPECT_EQ(file, Native(modulePath)) << modulePath;
  }
  EXPECT_EQ("\\\\srv\\pub\\Dir\\a.vgxXml", Module(T("pub/Dir/a.vgxXml")));
}

// --- settings through the Env -----------------------------------------------------------------

TEST_F(PathsTest, Environment_DrivesAndSharesAreReadThroughCurrentEnv) {
  ScopedEnvVar drives("NOMZUB_DRIVES", std::nullopt);
  ScopedEnvVar shares("NOMZUB_SHARES", std::nullopt);
  nomtest::TableEnv env(
      {{"NOMZUB_DRIVES", "D=" + T("d")}, {"NOMZUB_SHARES", "\\\\srv\\pub=" + T("pub")}});
  ResetPathMaps();
  EXPECT_EQ(T("d/x"), Native("D:\\x"));
  EXPECT_EQ(T("pub/y"), Native("\\\\srv\\pub\\y"));
  EXPECT_EQ("D:\\x", Module(T("d/x")));
}

TEST_F(PathsTest, Environment_ProblemsAreLoggedOnceAfterEachReset) {
  nomtest::TableEnv env({{"NOMZUB_DRIVES", "CD=/y"}});
  ResetPathMaps();
  nomtest::LogCapture log;
  EXPECT_EQ("<error 3>", Native("D:\\x"));
  EXPECT_EQ("<error 3>", Native("D:\\x"));
  EXPECT_EQ(1u, log.messages(2).size());
  ResetPathMaps();
  EXPECT_EQ("<error 3>", Native("D:\\x"));
  EXPECT_EQ(2u, log.messages(2).size());
}

TEST(PathsEnvironment, Case_SettingIsReadThroughCurrentEnv) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        unsetenv("NOMZUB_CASE_SENSITIVE");
        nomtest::TableEnv env({{"NOMZUB_CASE_SENSITIVE", "1"}});
        std::exit(CaseInsensitiveLookup() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

// --- what a look-up learns of the entry, and mapping a path again --------------------------------

TEST_F(PathsTest, ToNativePathFound_ExistingPathCarriesItsStatus) {
  WriteFile(T("Part.vgxXml"), "12345");
  std::string native;
  DWORD error = 0;
  FoundEntry found;
  ASSERT_TRUE(ToNativePathFound("C:\\Part.vgxXml", &native, &error, &found));
  EXPECT_EQ(T("Part.vgxXml"), native);
  EXPECT_TRUE(found.known);
  EXPECT_FALSE(found.missing);
  EXPECT_EQ(5, found.st.st_size);
}

TEST_F(PathsTest, ToNativePathFound_NewNameInExistingDirectoryIsMissing) {
  std::string native;
  DWORD error = 0;
  FoundEntry found;
  ASSERT_TRUE(ToNativePathFound("C:\\New.vgxXml", &native, &error, &found));
  EXPECT_EQ(T("New.vgxXml"), native);
  EXPECT_FALSE(found.known);
  EXPECT_TRUE(found.missing);
}

TEST_F(PathsTest, ToNativePathFound_CaseVariantIsNeitherKnownNorMissing) {
  WriteFile(T("Part.vgxXml"), "12345");
  std::string native;
  DWORD error = 0;
  FoundEntry found;
  ASSERT_TRUE(ToNativePathFound("C:\\PART.VGXXML", &native, &error, &found));
  EXPECT_EQ(T("Part.vgxXml"), native);
  EXPECT_FALSE(found.known);
  EXPECT_FALSE(found.missing);
}

TEST_F(PathsTest, ToNativePathFound_MissingDirectoryIsNotClaimedMissing) {
  // Only a name looked for in a directory that exists is known to be absent.
  std::string native;
  DWORD error = 0;
  FoundEntry found;
  ASSERT_TRUE(ToNativePathFound("C:\\NoDir\\New.vgxXml", &native, &error, &found));
  EXPECT_EQ(T("NoDir/New.vgxXml"), native);
  EXPECT_FALSE(found.known);
  EXPECT_FALSE(found.missing);
}

TEST_F(PathsTest, ToNativePathFound_DirectoryWithTrailingSeparatorIsNeither) {
  ASSERT_EQ(0, mkdir(T("Dir").c_str(), 0755));
  std::string native;
  DWORD error = 0;
  FoundEntry found;
  ASSERT_TRUE(ToNativePathFound("C:\\Dir\\", &native, &error, &found));
  EXPECT_EQ(T("Dir") + "/", native);
  EXPECT_FALSE(found.known);
  EXPECT_FALSE(found.missing);
}

TEST_F(PathsTest, ToNativePathAsWritten_KeepsLetterCaseAsWritten) {
  WriteFile(T("Part.vgxXml"), "a");
  std::string native;
  DWORD error = 0;
  ASSERT_TRUE(ToNativePathAsWritten("C:\\sub\\..\\PART.VGXXML", &native, &error));
  EXPECT_EQ(T("PART.VGXXML"), native);
}

TEST_F(PathsTest, ToNativePathAsWritten_RefusesWhatToNativePathRefuses) {
  std::string native = "untouched";
  DWORD error = 0;
  EXPECT_FALSE(ToNativePathAsWritten("C:\\bad|name.vgxXml", &native, &error));
  EXPECT_EQ(123u, error);
  EXPECT_FALSE(ToNativePathAsWritten("Q:\\Part.vgxXml", &native, &error));
  EXPECT_EQ(3u, error);
}

TEST_F(PathsTest, ToNativePath_AgainAfterRemapFollowsNewDrive) {
  TempDir other;
  WriteFile(T("Part.vgxXml"), "a");
  WriteFile(other.Sub("Part.vgxXml"), "b");
  ASSERT_EQ(T("Part.vgxXml"), Native("C:\\Part.vgxXml"));
  MapDrive('C', other.path());
  EXPECT_EQ(other.Sub("Part.vgxXml"), Native("C:\\Part.vgxXml"));
}

TEST_F(PathsTest, ToNativePath_AgainAfterRemovalFindsCaseVariant) {
  WriteFile(T("Part.vgxXml"), "a");
  ASSERT_EQ(T("Part.vgxXml"), Native("C:\\Part.vgxXml"));
  ASSERT_EQ(0, rename(T("Part.vgxXml").c_str(), T("PART.vgxXml").c_str()));
  EXPECT_EQ(T("PART.vgxXml"), Native("C:\\Part.vgxXml"));
}

TEST_F(PathsTest, ToNativePath_AgainAfterCodePageChangeConvertsAgain) {
  WriteFile(T("\xC3\xA9.vgxXml"), "a");  // "é" in UTF-8
  ASSERT_EQ(T("\xC3\xA9.vgxXml"), Native("C:\\\xC3\xA9.vgxXml"));
  ScopedCodePage latin1(1252);
  ASSERT_TRUE(latin1.ok());
  // The same bytes now read as two Windows-1252 characters, which name another file.
  EXPECT_EQ(T("\xC3\x83\xC2\xA9.vgxXml"), Native("C:\\\xC3\xA9.vgxXml"));
}

}  // namespace
}  // namespace nomplat
