// Copy error reporting: PrintError writes one error line for a failed copy, naming both paths and
// a text for the thread's last system error, and nothing for a successful copy.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "platform/win32.h"
#include "support/driver_fakes.h"
#include "support/packngo_support.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomtest::LogLine;
using pk::CopyError;

const char kSource[] = "C:\\Pkg\\Part.vgxGeom";
const char kTarget[] = "D:\\Out\\Part.vgxGeom";

class PrintError : public ::testing::Test {
 protected:
  // Sets the last error, then reports a copy with the given flag; returns what was logged.
  std::vector<LogLine> Report(DWORD lastError, int32_t copyResult, int32_t unused = 0,
                              const std::string& source = kSource,
                              const std::string& target = kTarget) {
    log_.clear();
    nomplat::SetLastError(lastError);
    peer_.PrintError(source, target, unused, copyResult);
    return log_.lines();
  }

  // The single line expected for a failed copy of kSource to kTarget.
  static std::vector<LogLine> Expected(const std::string& codeText) {
    return {CopyError(kSource, kTarget, codeText)};
  }

  void TearDown() override { nomplat::SetLastError(0); }

  nomtest::LogCapture log_;
  NOMSOIUtility utility_;
  NOMSOIUtilityTestPeer peer_{utility_};
};

TEST_F(PrintError, CopySucceeded_LogsNothingWhateverTheLastError) {
  for (DWORD lastError : {0u, 1u, 2u, 3u, 5u, 32u, 6000u}) {
    for (int32_t flag : {1, 2, -1}) {
      EXPECT_EQ(Report(lastError, flag), std::vector<LogLine>{})
          << "last error " << lastError << ", flag " << flag;
    }
  }
}

TEST_F(PrintError, Code2_FileNotFound) { EXPECT_EQ(Report(2, 0), Expected("File Not Found")); }

TEST_F(PrintError, Code5_AccessDenied) { EXPECT_EQ(Report(5, 0), Expected("Access Denied")); }

TEST_F(PrintError, Code1_FileAttributeReadOnly) {
  EXPECT_EQ(Report(1, 0), Expected("File Attribute Read Only"));
}

TEST_F(PrintError, Code6000_EncryptionFailed) {
  EXPECT_EQ(Report(6000, 0), Expected("Encryption Failed"));
}

TEST_F(PrintError, Code3_PathNotFound_IsUnknown) { EXPECT_EQ(Report(3, 0), Expected("Unknown")); }

TEST_F(PrintError, Code32_SharingViolation_IsUnknown) {
  EXPECT_EQ(Report(32, 0), Expected("Unknown"));
}

TEST_F(PrintError, Code0_IsUnknown) { EXPECT_EQ(Report(0, 0), Expected("Unknown")); }

TEST_F(PrintError, OtherCodes_AreUnknown) {
  for (DWORD lastError : {4u, 53u, 112u, 206u, 1359u, 5999u, 6001u}) {
    EXPECT_EQ(Report(lastError, 0), Expected("Unknown")) << "last error " << lastError;
  }
}

TEST_F(PrintError, WorkedExample_ExactText) {
  EXPECT_EQ(Report(2, 0),
            (std::vector<LogLine>{{0,
                                   "****** ERROR:\t Copying File. Source Path: "
                                   "'C:\\Pkg\\Part.vgxGeom'. Target Path: 'D:\\Out\\Part.vgxGeom'. "
                                   "Error Code: File Not Found"}}));
}

TEST_F(PrintError, ThirdArgument_HasNoEffect) {
  const std::vector<LogLine> expected = Expected("Access Denied");
  for (int32_t unused : {0, 1, -1, 12345, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(Report(5, 0, unused), expected) << "third argument " << unused;
  }
}

TEST_F(PrintError, EmptyPaths_ShowAsTwoQuotes) {
  EXPECT_EQ(Report(2, 0, 0, "", ""),
            (std::vector<LogLine>{{0,
                                   "****** ERROR:\t Copying File. Source Path: ''. Target Path: "
                                   "''. Error Code: File Not Found"}}));
}

TEST_F(PrintError, PathsWrittenAsPassed) {
  EXPECT_EQ(Report(1, 0, 0, "a/b\\c", " x "),
            std::vector<LogLine>{CopyError("a/b\\c", " x ", "File Attribute Read Only")});
}

TEST_F(PrintError, AfterRealCopyOfMissingFile_ReportsFileNotFound) {
  nomtest::TempDir dir;
  const std::string source = nomtest::ZPath(dir.Sub("Missing.vgxGeom"));
  const std::string target = nomtest::ZPath(dir.Sub("Out.vgxGeom"));
  const int32_t unused = 0;
  const int32_t copied = nomplat::CopyFileA(source.c_str(), target.c_str(), FALSE);
  peer_.PrintError(source, target, unused, copied);
  EXPECT_EQ(copied, 0);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            std::vector<LogLine>{CopyError(source, target, "File Not Found")});
}

TEST_F(PrintError, AfterRealCopyOverReadOnlyTarget_ReportsAccessDenied) {
  nomtest::TempDir dir;
  nomtest::WriteFile(dir.Sub("Part.vgxGeom"), "new");
  nomtest::WriteFile(dir.Sub("out/Part.vgxGeom"), "old");
  pk::MakeReadOnly(dir.Sub("out/Part.vgxGeom"));
  const std::string source = nomtest::ZPath(dir.Sub("Part.vgxGeom"));
  const std::string target = nomtest::ZPath(dir.Sub("out/Part.vgxGeom"));
  const int32_t unused = 0;
  const int32_t copied = nomplat::CopyFileA(source.c_str(), target.c_str(), FALSE);
  peer_.PrintError(source, target, unused, copied);
  EXPECT_EQ(copied, 0);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            std::vector<LogLine>{CopyError(source, target, "Access Denied")});
  EXPECT_EQ(nomtest::ReadFile(dir.Sub("out/Part.vgxGeom")), "old");
}

}  // namespace
