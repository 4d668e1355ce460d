// Path resolution of Pack & Go: GetActualPath turns a reference read from a package document into
// the path of the referenced file and its path in the target directory, then tests that the file
// can be opened; ResolveRelativePath strips the leading "..\" steps of a reference.
//
// Where the referring documents are Windows paths (C:\Pkg\Sub\Doc.vgxXml), the existence test is
// answered by a fake Env that also records the path it was asked about; where the behaviour
// depends on the file system (directories, unreadable files), real files in a temporary directory
// are used.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "platform/codepage.h"
#include "support/driver_fakes.h"
#include "support/packngo_support.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomtest::LogLine;
using pk::ExistenceFake;
using pk::UnableToOpen;

const char kDoc[] = "C:\\Pkg\\Sub\\Doc.vgxXml";
const char kOut[] = "D:\\Out";

// What GetActualPath left in its arguments and returned.
struct Resolution {
  HRESULT rc;
  std::string ref;
  std::string target;
};

class GetActualPath : public ::testing::Test {
 protected:
  // Runs GetActualPath on fresh copies of the arguments.
  Resolution Run(const std::string& docPath, const std::string& ref, const std::string& target) {
    Resolution r{0, ref, target};
    r.rc = peer_.GetActualPath(docPath, r.ref, r.target);
    return r;
  }

  // Resolves ref from kDoc into kOut with only expectedRef said to exist, and checks that the
  // file was found, that exactly the resolved path was tested, and that nothing was logged.
  void ExpectFound(const std::string& ref, const std::string& expectedRef,
                   const std::string& expectedTarget) {
    ExistenceFake fake({expectedRef});
    Resolution r = Run(kDoc, ref, kOut);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.ref, expectedRef);
    EXPECT_EQ(r.target, expectedTarget);
    EXPECT_EQ(fake.probes(), std::vector<std::string>{expectedRef});
    EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
  }

  nomtest::LogCapture log_;
  NOMSOIUtility utility_;
  NOMSOIUtilityTestPeer peer_{utility_};
};

// --- The worked examples: C:\Pkg\Sub\Doc.vgxXml referring, D:\Out as the target directory. ---

TEST_F(GetActualPath, WorkedExample_ClimbingIntoSiblingDirectory) {
  ExpectFound("..\\Geo\\Part.vgxXml", "C:\\Pkg\\Geo\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_ClimbingTwoLevels) {
  ExpectFound("..\\..\\Part.vgxXml", "C:\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_DotThenClimbing) {
  ExpectFound(".\\..\\Part.vgxXml", "C:\\Pkg\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_ClimbDotClimb_ClimbsOneLevelOnly) {
  ExpectFound("..\\.\\..\\Part.vgxXml", "C:\\Pkg\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_ClimbingPastTheRoot_BaseBecomesEmpty) {
  ExpectFound("..\\..\\..\\..\\Part.vgxXml", "\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_DotRelative) {
  ExpectFound(".\\Geo\\Part.vgxXml", "C:\\Pkg\\Sub\\Geo\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_DriveAbsolute_Unchanged) {
  ExpectFound("E:\\Lib\\Part.vgxXml", "E:\\Lib\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_NetworkPath_Unchanged) {
  ExpectFound("\\\\Server\\Share\\Part.vgxXml", "\\\\Server\\Share\\Part.vgxXml",
              "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_PlainRelativeWithDirectory) {
  ExpectFound("Geo\\Part.vgxXml", "C:\\Pkg\\Sub\\Geo\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_PlainRelativeBareName) {
  ExpectFound("Part.vgxXml", "C:\\Pkg\\Sub\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, WorkedExample_ForwardSlashNotNormalised_KeptInBothPaths) {
  ExpectFound("Geo/Part.vgxXml", "C:\\Pkg\\Sub\\Geo/Part.vgxXml", "D:\\Out\\Geo/Part.vgxXml");
}

// --- Edge cases. ---

TEST_F(GetActualPath, ReferringPathWithoutBackslash_PlainReferenceGetsLoneBackslash) {
  ExistenceFake fake({"\\Part.vgxXml"});
  Resolution r = Run("Doc.vgxXml", "Part.vgxXml", kOut);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, "\\Part.vgxXml");
  EXPECT_EQ(r.target, "D:\\Out\\Part.vgxXml");
  EXPECT_EQ(fake.probes(), std::vector<std::string>{"\\Part.vgxXml"});
}

TEST_F(GetActualPath, MoreClimbingStepsThanLevels_ResultStartsWithLoneBackslash) {
  ExistenceFake fake({"\\Part.vgxXml"});
  Resolution r = Run("C:\\Doc.vgxXml", "..\\..\\..\\Part.vgxXml", kOut);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, "\\Part.vgxXml");
  EXPECT_EQ(r.target, "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPath, DriveLetterWithoutBackslash_WholeReferenceAppendedToTarget) {
  ExistenceFake fake({"D:Part.vgxXml"});
  Resolution r = Run(kDoc, "D:Part.vgxXml", kOut);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, "D:Part.vgxXml");
  EXPECT_EQ(r.target, "D:\\OutD:Part.vgxXml");
  EXPECT_EQ(fake.probes(), std::vector<std::string>{"D:Part.vgxXml"});
}

TEST_F(GetActualPath, LeadingColon_IsPlainRelative) {
  ExpectFound(":Part.vgxXml", "C:\\Pkg\\Sub\\:Part.vgxXml", "D:\\Out\\:Part.vgxXml");
}

TEST_F(GetActualPath, MissingFile_ReturnsOneAndLogsResolvedPath) {
  ExistenceFake fake({});
  Resolution r = Run(kDoc, "..\\Geo\\Part.vgxXml", kOut);
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.ref, "C:\\Pkg\\Geo\\Part.vgxXml");
  EXPECT_EQ(r.target, "D:\\Out\\Part.vgxXml");
  EXPECT_EQ(nomtest::ModuleLines(log_),
            std::vector<LogLine>{UnableToOpen("C:\\Pkg\\Geo\\Part.vgxXml")});
}

TEST_F(GetActualPath, DirectoryPath_ReturnsOneAndLogsResolvedPath) {
  nomtest::TempDir dir;
  nomtest::WriteFile(dir.Sub("sub/Doc.vgxXml"), pk::LeafDocument());
  nomtest::WriteFile(dir.Sub("Geo/Part.vgxXml"), pk::LeafDocument());
  const std::string root = nomtest::ZPath(dir.path());
  Resolution r = Run(root + "\\sub\\Doc.vgxXml", "..\\Geo", root + "\\out");
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.ref, root + "\\Geo");
  EXPECT_EQ(r.target, root + "\\out\\Geo");
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{UnableToOpen(root + "\\Geo")});
}

TEST_F(GetActualPath, UnreadableFile_ReturnsOneAndLogsResolvedPath) {
  nomtest::TempDir dir;
  nomtest::WriteFile(dir.Sub("sub/Doc.vgxXml"), pk::LeafDocument());
  nomtest::WriteFile(dir.Sub("sub/Locked.vgxXml"), pk::LeafDocument());
  const std::string root = nomtest::ZPath(dir.path());
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCanOpenForReading, 1, 5, true);
  Resolution r = Run(root + "\\sub\\Doc.vgxXml", ".\\Locked.vgxXml", root + "\\out");
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.ref, root + "\\sub\\Locked.vgxXml");
  EXPECT_EQ(r.target, root + "\\out\\Locked.vgxXml");
  EXPECT_EQ(nomtest::ModuleLines(log_),
            std::vector<LogLine>{UnableToOpen(root + "\\sub\\Locked.vgxXml")});
}

TEST_F(GetActualPath, ExistingRealFile_ReturnsZeroWithoutLogging) {
  nomtest::TempDir dir;
  nomtest::WriteFile(dir.Sub("pkg/SOI.vgxXml"), pk::MainDocument({}));
  nomtest::WriteFile(dir.Sub("lib/Part.vgxXml"), pk::LeafDocument());
  const std::string root = nomtest::ZPath(dir.path());
  Resolution r = Run(root + "\\pkg\\SOI.vgxXml", "..\\lib\\Part.vgxXml", root + "\\out");
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, root + "\\lib\\Part.vgxXml");
  EXPECT_EQ(r.target, root + "\\out\\Part.vgxXml");
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(GetActualPath, EmptyReference_ResolvesToDirectoryAndFails) {
  nomtest::TempDir dir;
  nomtest::WriteFile(dir.Sub("pkg/SOI.vgxXml"), pk::MainDocument({}));
  const std::string root = nomtest::ZPath(dir.path());
  Resolution r = Run(root + "\\pkg\\SOI.vgxXml", "", root + "\\out");
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.ref, root + "\\pkg\\");
  EXPECT_EQ(r.target, root + "\\out\\");
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{UnableToOpen(root + "\\pkg\\")});
}

TEST_F(GetActualPath, EmptyReference_WindowsPaths_DirectoryWithBackslash) {
  ExistenceFake fake({});
  Resolution r = Run(kDoc, "", kOut);
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.ref, "C:\\Pkg\\Sub\\");
  EXPECT_EQ(r.target, "D:\\Out\\");
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{UnableToOpen("C:\\Pkg\\Sub\\")});
}

TEST_F(GetActualPath, ClimbingWithFurtherClimbInside_OnlyLeadingStepsClimb) {
  ExpectFound("..\\Geo\\..\\Part.vgxXml", "C:\\Pkg\\Geo\\..\\Part.vgxXml", "D:\\Out\\Part.vgxXml");
}

// --- Code page 932: a double-byte character whose trail byte is 0x5C is never a separator. ---

// U+8868 in code page 932: lead 0x95, trail 0x5C (the backslash byte).
const char kHyo[] = "\x95\x5C";

class GetActualPathCodePage932 : public GetActualPath {
 protected:
  void SetUp() override { ASSERT_TRUE(codePage_.ok()); }
  nomplat::ScopedCodePage codePage_{932};
};

TEST_F(GetActualPathCodePage932, DirectoryEndingInTrailByte_IsNotCutThere) {
  const std::string doc = std::string("C:\\Pkg\\") + kHyo + "\\Doc.vgxXml";
  const std::string expected = std::string("C:\\Pkg\\") + kHyo + "\\Part.vgxXml";
  ExistenceFake fake({expected});
  Resolution r = Run(doc, "Part.vgxXml", kOut);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, expected);
  EXPECT_EQ(r.target, "D:\\Out\\Part.vgxXml");
}

TEST_F(GetActualPathCodePage932, FileNameWithTrailByte_TargetKeepsWholeName) {
  const std::string ref = std::string("Geo\\") + kHyo + ".vgxXml";
  const std::string expected = std::string("C:\\Pkg\\Sub\\Geo\\") + kHyo + ".vgxXml";
  ExistenceFake fake({expected});
  Resolution r = Run(kDoc, ref, kOut);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, expected);
  EXPECT_EQ(r.target, std::string("D:\\Out\\") + kHyo + ".vgxXml");
}

TEST_F(GetActualPathCodePage932, ClimbingOutOfTrailByteDirectory) {
  const std::string doc = std::string("C:\\Pkg\\") + kHyo + "\\Doc.vgxXml";
  const std::string ref = std::string("..\\") + kHyo + ".vgxXml";
  const std::string expected = std::string("C:\\Pkg\\") + kHyo + ".vgxXml";
  ExistenceFake fake({expected});
  Resolution r = Run(doc, ref, kOut);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, expected);
  EXPECT_EQ(r.target, std::string("D:\\Out\\") + kHyo + ".vgxXml");
}

TEST_F(GetActualPathCodePage932, DotRelativeFileNameWithTrailByte) {
  const std::string ref = std::string(".\\") + kHyo + ".vgxXml";
  const std::string expected = std::string("C:\\Pkg\\Sub\\") + kHyo + ".vgxXml";
  ExistenceFake fake({expected});
  Resolution r = Run(kDoc, ref, kOut);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.ref, expected);
  EXPECT_EQ(r.target, std::string("D:\\Out\\") + kHyo + ".vgxXml");
}

// --- ResolveRelativePath. ---

class ResolveRelativePath : public ::testing::Test {
 protected:
  // Runs ResolveRelativePath on copies; returns the code and leaves the results in base_/rel_.
  HRESULT Run(const std::string& base, const std::string& rel) {
    base_ = base;
    rel_ = rel;
    return peer_.ResolveRelativePath(base_, rel_);
  }

  nomtest::LogCapture log_;
  NOMSOIUtility utility_;
  NOMSOIUtilityTestPeer peer_{utility_};
  std::string base_;
  std::string rel_;
};

TEST_F(ResolveRelativePath, OneStep_RemovesOneLevel) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", "..\\Geo\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:\\Pkg");
  EXPECT_EQ(rel_, "Geo\\Part.vgxXml");
}

TEST_F(ResolveRelativePath, TwoSteps_RecursesOnce) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", "..\\..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:");
  EXPECT_EQ(rel_, "Part.vgxXml");
}

TEST_F(ResolveRelativePath, DotThenClimb_RemovesOneLevel) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", ".\\..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:\\Pkg");
  EXPECT_EQ(rel_, "Part.vgxXml");
}

TEST_F(ResolveRelativePath, ClimbDotClimb_RemovesOneLevelOnly) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", "..\\.\\..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:\\Pkg");
  EXPECT_EQ(rel_, "Part.vgxXml");
}

TEST_F(ResolveRelativePath, ClimbDotClimbClimb_RecursesForTheLastStep) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", "..\\.\\..\\..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:");
  EXPECT_EQ(rel_, "Part.vgxXml");
}

TEST_F(ResolveRelativePath, LevelsRunOut_BaseBecomesEmpty) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", "..\\..\\..\\..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "");
  EXPECT_EQ(rel_, "Part.vgxXml");
}

TEST_F(ResolveRelativePath, NoClimbingStep_StillTakesTheDirectoryOfBase) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", "Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:\\Pkg");
  EXPECT_EQ(rel_, "Part.vgxXml");
}

TEST_F(ResolveRelativePath, ClimbingStepNotAtStart_IsKept) {
  EXPECT_EQ(Run("C:\\Pkg\\Sub", "Geo\\..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:\\Pkg");
  EXPECT_EQ(rel_, "Geo\\..\\Part.vgxXml");
}

TEST_F(ResolveRelativePath, NothingChanged_StillReturnsEFail) {
  EXPECT_EQ(Run("", "Part.vgxXml"), static_cast<HRESULT>(0x80004005u));
  EXPECT_EQ(base_, "");
  EXPECT_EQ(rel_, "Part.vgxXml");
}

TEST_F(ResolveRelativePath, LogsNothing) {
  Run("C:\\Pkg\\Sub", "..\\..\\..\\..\\Part.vgxXml");
  EXPECT_EQ(log_.lines(), std::vector<LogLine>{});
}

TEST_F(ResolveRelativePath, CodePage932_TrailByteIsNotASeparator) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  EXPECT_EQ(Run(std::string("C:\\") + kHyo + "\\Sub", "..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, std::string("C:\\") + kHyo);
  EXPECT_EQ(rel_, "Part.vgxXml");
  EXPECT_EQ(Run(std::string("C:\\Pkg\\") + kHyo, "..\\Part.vgxXml"), E_FAIL);
  EXPECT_EQ(base_, "C:\\Pkg");
}

}  // namespace
