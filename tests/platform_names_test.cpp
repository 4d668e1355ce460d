// Names Windows refuses (a ":" other than the drive's, <>"|?*, control characters, components
// ending in "." or " "): ToNativePath and every Env operation over it fail with
// ERROR_INVALID_NAME. The file-name key that compares names as Windows does (CaseFoldKey).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/win32.h"
#include "platform/winerror.h"
#include "support/test_support.h"

namespace nomplat {
namespace {

using nomtest::FileExists;
using nomtest::ListDir;
using nomtest::TempDir;
using nomtest::WriteFile;

// Drive C: is a fresh temporary directory; UTF-8, the case-insensitive fallback on.
class NamesTest : public ::testing::Test {
 protected:
  NamesTest() : codePage_(65001) {
    ResetPathMaps();
    SetCaseInsensitiveLookup(true);
    MapDrive('C', tmp_.path());
    SetLastError(0);
  }

  // The native path of a module path; "<error N>" when it cannot be mapped.
  static std::string Native(const std::string& modulePath) {
    std::string native;
    DWORD error = 0;
    if (!ToNativePath(modulePath, &native, &error)) return "<error " + std::to_string(error) + ">";
    return native;
  }

  // The last error after a CopyFileA that must fail; -1 when it succeeded.
  static long CopyError(const std::string& src, const std::string& dst) {
    if (CopyFileA(src.c_str(), dst.c_str(), FALSE)) return -1;
    return static_cast<long>(GetLastError());
  }

  std::string T(const std::string& relative) const { return tmp_.Sub(relative); }

  TempDir tmp_;
  ScopedPathMaps maps_;
  ScopedCodePage codePage_;
};

const std::string kInvalid = "<error 123>";

// --- ":" --------------------------------------------------------------------------------------

TEST_F(NamesTest, Colon_InLastNameIsInvalidName) {
  EXPECT_EQ(kInvalid, Native("Z:\\out\\Y:s.vgxXml"));
  EXPECT_EQ(kInvalid, Native("C:\\Pkg\\a:b"));
}

TEST_F(NamesTest, Colon_InRootedPathIsInvalidName) { EXPECT_EQ(kInvalid, Native("\\out\\a:b")); }

TEST_F(NamesTest, Colon_InDirectoryNameIsInvalidName) {
  EXPECT_EQ(kInvalid, Native("C:\\a:b\\x.vgxXml"));
}

TEST_F(NamesTest, Colon_SecondDriveIsInvalidName) { EXPECT_EQ(kInvalid, Native("C:D:\\x")); }

TEST_F(NamesTest, Colon_AfterDriveLetterIsDriveRelativePath) {
  TempDir y;
  MapDrive('Y', y.path());
  EXPECT_EQ(y.Sub("s.vgxXml"), Native("Y:s.vgxXml"));
}

TEST_F(NamesTest, Colon_DriveRelativePathOfUnmappedDriveIsPathNotFound) {
  EXPECT_EQ("<error 3>", Native("Y:s.vgxXml"));
}

TEST_F(NamesTest, Colon_InNativePosixPathIsInvalidName) { EXPECT_EQ(kInvalid, Native(T("a:b"))); }

// --- <>"|?* -----------------------------------------------------------------------------------

TEST_F(NamesTest, Reserved_EachCharacterIsInvalidName) {
  for (const char c : std::string("<>\"|?*")) {
    EXPECT_EQ(kInvalid, Native(std::string("C:\\Pkg\\a") + c + "b.vgxXml")) << c;
    EXPECT_EQ(kInvalid, Native(std::string("C:\\P") + c + "\\x")) << c;
  }
}

TEST_F(NamesTest, Reserved_WildcardAloneIsInvalidName) { EXPECT_EQ(kInvalid, Native("C:\\*")); }

TEST_F(NamesTest, Reserved_LongPathPrefixIsInvalidName) {
  EXPECT_EQ(kInvalid, Native("\\\\?\\C:\\x"));
}

// --- control characters -----------------------------------------------------------------------

TEST_F(NamesTest, Control_EveryControlCharacterIsInvalidName) {
  for (int c = 1; c < 0x20; ++c) {
    EXPECT_EQ(kInvalid, Native(std::string("C:\\a") + static_cast<char>(c) + "b")) << c;
  }
}

TEST_F(NamesTest, Control_EmbeddedZeroIsInvalidName) {
  EXPECT_EQ(kInvalid, Native(std::string("C:\\a\0b", 6)));
}

TEST_F(NamesTest, Control_DeleteIsAllowed) {
  EXPECT_EQ(T("a\x7F"
              "b"),
            Native("C:\\a\x7F"
                   "b"));
}

// --- trailing "." and " " ---------------------------------------------------------------------

TEST_F(NamesTest, Trailing_DotOnLastNameIsInvalidName) {
  EXPECT_EQ(kInvalid, Native("C:\\Pkg\\Part."));
}

TEST_F(NamesTest, Trailing_DotOnDirectoryNameIsInvalidName) {
  EXPECT_EQ(kInvalid, Native("C:\\Pkg.\\Part.vgxXml"));
}

TEST_F(NamesTest, Trailing_SpaceOnLastNameIsInvalidName) {
  EXPECT_EQ(kInvalid, Native("C:\\Pkg\\Part.vgxXml "));
}

TEST_F(NamesTest, Trailing_SpaceOnDirectoryNameIsInvalidName) {
  EXPECT_EQ(kInvalid, Native("C:\\Pkg \\Part.vgxXml"));
}

TEST_F(NamesTest, Trailing_ThreeDotsIsInvalidName) { EXPECT_EQ(kInvalid, Native("C:\\...\\x")); }

TEST_F(NamesTest, Trailing_DotAndDotDotComponentsAreFine) {
  EXPECT_EQ(T("a/c"), Native("C:\\a\\.\\b\\..\\c"));
  EXPECT_EQ(T("a/c/"), Native("C:/a/./b/../c/"));
}

TEST_F(NamesTest, Trailing_InnerDotsAndSpacesAreFine) {
  EXPECT_EQ(T("a.b c/.hidden/d e.f"), Native("C:\\a.b c\\.hidden\\d e.f"));
}

TEST_F(NamesTest, Trailing_DriveRelativeDotIsTheDrive) {
  EXPECT_EQ(tmp_.path(), Native("C:."));
  EXPECT_EQ(tmp_.path(), Native("C:.\\"));
}

// --- what stays fine --------------------------------------------------------------------------

TEST_F(NamesTest, Fine_UncPrefixIsAccepted) {
  MapShare("\\\\srv\\pub", T("pub"));
  EXPECT_EQ(T("pub/dir/f.vgxGeom"), Native("\\\\srv\\pub\\dir\\f.vgxGeom"));
}

TEST_F(NamesTest, Fine_NativePosixPathIsAccepted) {
  WriteFile(T("Pkg/Part.vgxXml"), "1");
  EXPECT_EQ(T("Pkg/Part.vgxXml"), Native(T("Pkg/Part.vgxXml")));
  EXPECT_TRUE(CanOpenForReading(T("Pkg/Part.vgxXml")));
}

TEST_F(NamesTest, Fine_RelativeNameWithColonAfterNonLetterIsKeptAsWritten) {
  nomtest::ScopedWorkingDirectory cwd(tmp_.path());
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ("1:x", Native("1:x"));
}

TEST_F(NamesTest, Fine_932TrailBytesAreNotReservedCharacters) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  // 0x81 0x7C is U+FF0D FULLWIDTH HYPHEN-MINUS: its trail byte is "|" in ASCII, but it is one
  // character and no "|".
  EXPECT_EQ(T("a\xEF\xBC\x8D"
              "b"),
            Native("C:\\a\x81\x7C"
                   "b"));
}

TEST_F(NamesTest, Fine_1252NonAsciiEndingIsAccepted) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(T("caf\xC3\xA9"), Native("C:\\caf\xE9"));
}

// --- the Env over refused names ---------------------------------------------------------------

TEST_F(NamesTest, CopyFile_ToRefusedNameIsInvalidNameAndWritesNothing) {
  WriteFile(T("a.vgxXml"), "data");
  WriteFile(T("out/seed"), "");
  EXPECT_EQ(123, CopyError("C:\\a.vgxXml", "C:\\out\\Y:s.vgxXml"));
  EXPECT_EQ(123u, GetLastError());
  EXPECT_EQ((std::vector<std::string>{"seed"}), ListDir(T("out")));
}

TEST_F(NamesTest, CopyFile_FromRefusedNameIsInvalidName) {
  WriteFile(T("a:b"), "data");  // POSIX allows the name; Windows does not
  EXPECT_EQ(123, CopyError("C:\\a:b", "C:\\out.vgxXml"));
  EXPECT_FALSE(FileExists(T("out.vgxXml")));
}

TEST_F(NamesTest, CanOpenForReading_RefusedNameIsFalseEvenWhenFileExists) {
  WriteFile(T("a:b"), "data");
  WriteFile(T("Part. "), "data");
  EXPECT_FALSE(CanOpenForReading("C:\\a:b"));
  EXPECT_FALSE(CanOpenForReading("C:\\Part. "));
  EXPECT_FALSE(CanOpenForReading(T("a:b")));
}

TEST_F(NamesTest, ReadFile_RefusedNameIsInvalidName) {
  WriteFile(T("a?b"), "data");
  std::string contents = "stale";
  EXPECT_EQ(123u, CurrentEnv()->ReadFile("C:\\a?b", &contents));
  EXPECT_EQ("", contents);
}

TEST_F(NamesTest, WriteFileAtomic_RefusedNameIsInvalidNameAndWritesNothing) {
  EXPECT_EQ(123u, CurrentEnv()->WriteFileAtomic("C:\\doc<1>.xml", "<a/>"));
  EXPECT_EQ(std::vector<std::string>{}, ListDir(tmp_.path()));
}

TEST_F(NamesTest, CreateDirectories_RefusedNameIsInvalidName) {
  EXPECT_EQ(123u, CurrentEnv()->CreateDirectories("C:\\out\\sub."));
  EXPECT_EQ(std::vector<std::string>{}, ListDir(tmp_.path()));
}

// --- CaseFoldKey ------------------------------------------------------------------------------

TEST_F(NamesTest, CaseFoldKey_AsciiNamesDifferingInCaseAreEqual) {
  EXPECT_EQ(CaseFoldKey("Part.vgxXml"), CaseFoldKey("PART.VGXXML"));
  EXPECT_EQ(CaseFoldKey("part.vgxxml"), CaseFoldKey("PART.VGXXML"));
}

TEST_F(NamesTest, CaseFoldKey_DifferentNamesDiffer) {
  EXPECT_NE(CaseFoldKey("Part1.vgxXml"), CaseFoldKey("Part2.vgxXml"));
  EXPECT_NE(CaseFoldKey("Part.vgxXml"), CaseFoldKey("Part.vgxXml "));
}

TEST_F(NamesTest, CaseFoldKey_EmptyNameIsEmptyKey) { EXPECT_EQ("", CaseFoldKey("")); }

// Key bytes: a folded ASCII character as itself, any other as 0xFF and its code point's 3 bytes.
std::string KeyBytes(const char* bytes, size_t size) { return std::string(bytes, size); }

TEST_F(NamesTest, CaseFoldKey_AsciiIsItsUpperCaseBytes) {
  EXPECT_EQ("PART_1.VGXXML", CaseFoldKey("Part_1.vgxXml"));
}

TEST_F(NamesTest, CaseFoldKey_KeysSortAsTheirCharacters) {
  const std::string ascii = CaseFoldKey("z");                  // U+005A
  const std::string latin = CaseFoldKey("\xC3\xA9");           // U+00C9
  const std::string cjk = CaseFoldKey("\xE8\xA1\xA8");         // U+8868
  const std::string astral = CaseFoldKey("\xF0\x9F\x98\x80");  // U+1F600
  const std::string malformed = CaseFoldKey("\xC3");           // a lead byte alone
  EXPECT_LT(ascii, latin);
  EXPECT_LT(latin, cjk);
  EXPECT_LT(cjk, astral);
  EXPECT_LT(astral, malformed);
  EXPECT_EQ(KeyBytes("\xFF\x01\xF6\x00", 4), astral);
  EXPECT_EQ(KeyBytes("\xFF\x11\x00\xC3", 4), malformed);
}

TEST_F(NamesTest, CaseFoldKey_NonAsciiLettersFoldInUtf8) {
  EXPECT_EQ(CaseFoldKey("Caf\xC3\xA9"), CaseFoldKey("CAF\xC3\x89"));
  EXPECT_EQ(KeyBytes("CAF\xFF\x00\x00\xC9", 7), CaseFoldKey("caf\xC3\xA9"));
}

TEST_F(NamesTest, CaseFoldKey_NameIsReadInTheProcessCodePage) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(KeyBytes("CAF\xFF\x00\x00\xC9", 7), CaseFoldKey("caf\xE9"));
  EXPECT_EQ(CaseFoldKey("caf\xE9"), CaseFoldKey("CAF\xC9"));
}

TEST_F(NamesTest, CaseFoldKey_932DoubleByteNameIsOneCharacter) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(KeyBytes("\xFF\x00\x88\x68.VGXXML", 11), CaseFoldKey("\x95\x5C.vgxXml"));
}

TEST_F(NamesTest, CaseFoldKey_EqualKeysAreWhatTheLookupMatches) {
  WriteFile(T("Stra\xC3\x9F"
              "e.x"),
            "1");
  WriteFile(T("\xC3\x89t\xC3\xA9.x"), "1");
  // Equal keys: the case-insensitive look-up finds the file.
  ASSERT_EQ(CaseFoldKey("\xC3\xA9T\xC3\x89.X"), CaseFoldKey("\xC3\x89t\xC3\xA9.x"));
  EXPECT_EQ(T("\xC3\x89t\xC3\xA9.x"), Native("C:\\\xC3\xA9T\xC3\x89.X"));
  // Different keys (no one-to-one upper case of sharp s): the look-up does not.
  ASSERT_NE(CaseFoldKey("STRASSE.X"), CaseFoldKey("Stra\xC3\x9F"
                                                  "e.x"));
  EXPECT_EQ(T("STRASSE.X"), Native("C:\\STRASSE.X"));
}

}  // namespace
}  // namespace nomplat
