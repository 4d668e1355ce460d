// Copies made ahead of the module: only new files directly in the output directory, never a
// target the module has claimed or one planned twice, never the name of a file the run looks for
// and cannot find; and a pack with copies made ahead logs and writes what one without does.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands.h"
#include "host/copy_ahead.h"
#include "platform/file_memo.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"
#include "support/driver_package.h"
#include "support/packngo_support.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomsoi::CopyAhead;
using nomsoi::ItemKind;
using nomsoi::PlannedItem;
using nomsoi::PreflightResult;
using nomtest::FileExists;
using nomtest::ReadFile;
using nomtest::WriteFile;

class CopyAheadTest : public ::testing::Test {
 protected:
  CopyAheadTest() { WriteFile(dir_.Sub("out/.keep"), ""); }
  ~CopyAheadTest() override { nomplat::ForgetRememberedFiles(); }

  // Plans a copy of lib/<name> to out\<name>; the source is written unless missing.
  void Plan(const std::string& name, ItemKind kind = ItemKind::kDocument, bool missing = false) {
    PlannedItem item;
    item.kind = kind;
    item.source = dir_.Sub("lib/" + name);
    item.target = dir_.Sub("out") + "\\" + name;
    item.present = !missing;
    if (!missing) WriteFile(item.source, "bytes of " + name);
    plan_.items.push_back(item);
  }

  std::string Out(const std::string& name) const { return dir_.Sub("out/" + name); }

  nomtest::TempDir dir_;
  PreflightResult plan_;
};

TEST_F(CopyAheadTest, Finish_CopiesEveryPlannedFile) {
  Plan("A.vgxXml");
  Plan("A.vgxGeom", ItemKind::kGeometry);
  Plan("B.vgxXml");
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 3u);
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), "bytes of A.vgxXml");
  EXPECT_EQ(ReadFile(Out("A.vgxGeom")), "bytes of A.vgxGeom");
  EXPECT_EQ(ReadFile(Out("B.vgxXml")), "bytes of B.vgxXml");
}

TEST_F(CopyAheadTest, Finish_LeavesExistingTargetAsItWas) {
  Plan("A.vgxXml");
  WriteFile(Out("A.vgxXml"), "older");
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 0u);
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), "older");
}

TEST_F(CopyAheadTest, Finish_LeavesExistingTargetOtherCaseAsItWas) {
  Plan("A.vgxXml");
  WriteFile(Out("a.VGXXML"), "older");
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 0u);
  EXPECT_EQ(ReadFile(Out("a.VGXXML")), "older");
  EXPECT_FALSE(FileExists(Out("A.vgxXml")));
}

TEST_F(CopyAheadTest, Claim_BeforeTheThreadLeavesTargetToModule) {
  Plan("A.vgxXml");
  Plan("B.vgxXml");
  CopyAhead ahead(plan_, dir_.Sub("out"), /*start=*/false);
  ahead.Claim(plan_.items[0].target);
  ahead.Start();
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 1u);
  EXPECT_FALSE(FileExists(Out("A.vgxXml")));
  EXPECT_EQ(ReadFile(Out("B.vgxXml")), "bytes of B.vgxXml");
}

TEST_F(CopyAheadTest, Claim_TargetNotPlannedReturns) {
  Plan("A.vgxXml");
  CopyAhead ahead(plan_, dir_.Sub("out"), /*start=*/false);
  ahead.Claim(dir_.Sub("out") + "\\Other.vgxXml");
  ahead.Start();
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 1u);
}

TEST_F(CopyAheadTest, Finish_TargetPlannedTwiceLeftToModule) {
  Plan("A.vgxXml");
  Plan("B.vgxXml");
  PlannedItem second = plan_.items[1];
  second.source = plan_.items[0].source;
  second.target = plan_.items[1].target;
  plan_.items.push_back(second);  // two sources for out\B.vgxXml, as --force allows
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 1u);
  EXPECT_TRUE(FileExists(Out("A.vgxXml")));
  EXPECT_FALSE(FileExists(Out("B.vgxXml")));
}

TEST_F(CopyAheadTest, Finish_TargetsSharingANameWithoutCaseLeftToModule) {
  Plan("A.vgxXml");
  Plan("Rail.vgxXml");
  Plan("RAIL.VGXXML");  // the same name on Windows: the module's order picks the spelling
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 1u);
  EXPECT_TRUE(FileExists(Out("A.vgxXml")));
  EXPECT_FALSE(FileExists(Out("Rail.vgxXml")));
  EXPECT_FALSE(FileExists(Out("RAIL.VGXXML")));
}

TEST_F(CopyAheadTest, Finish_ResourceLeftToModule) {
  Plan("logo.png", ItemKind::kResource);
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 0u);
  EXPECT_FALSE(FileExists(Out("logo.png")));
}

TEST_F(CopyAheadTest, Finish_TargetOutsideOutputDirectoryLeftToModule) {
  Plan("A.vgxXml");
  plan_.items[0].target = dir_.Sub("out") + "\\sub\\A.vgxXml";
  WriteFile(dir_.Sub("out/sub/.keep"), "");
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 0u);
  EXPECT_FALSE(FileExists(Out("sub/A.vgxXml")));
}

TEST_F(CopyAheadTest, Finish_NameOfMissingFileInOutputLeftToModule) {
  Plan("A.vgxXml");
  Plan("B.vgxXml");
  PlannedItem missing;
  missing.source = dir_.Sub("out") + "\\b.vgxxml";  // looked for there, not found
  missing.target = dir_.Sub("out") + "\\b.vgxxml";
  missing.present = false;
  plan_.items.insert(plan_.items.begin(), missing);
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 1u);
  EXPECT_TRUE(FileExists(Out("A.vgxXml")));
  EXPECT_FALSE(FileExists(Out("B.vgxXml")));
}

TEST_F(CopyAheadTest, Finish_MissingOutputDirectoryCopiesNothing) {
  Plan("A.vgxXml");
  CopyAhead ahead(plan_, dir_.Sub("nowhere"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 0u);
}

TEST_F(CopyAheadTest, Finish_UnreadableSourceLeftToModule) {
  Plan("A.vgxXml");
  plan_.items[0].source = dir_.Sub("lib/Gone.vgxXml");  // planned readable, removed since
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ahead.copied(), 0u);
  EXPECT_FALSE(FileExists(Out("A.vgxXml")));
}

// A pack through nomsoi, where copies are made ahead of the module.
class CopyAheadPack : public ::testing::Test {
 protected:
  ~CopyAheadPack() override {
    nomzub::ResetLogConfiguration();
    nomzub::ClearPackage();
    nomplat::ForgetRememberedFiles();
  }

  int Pack(const std::string& out) {
    std::vector<std::string> args = {"nomsoi",
                                     "--log-format",
                                     "raw",
                                     "--log",
                                     dir_.Sub("log"),
                                     "-q",
                                     "pack",
                                     "--main",
                                     dir_.Sub("pkg/SOI.vgxXml"),
                                     "--view",
                                     dir_.Sub("pkg/SOI.vgxView"),
                                     "--out",
                                     out};
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    return nomsoi::RunCommandLine(static_cast<int>(argv.size()), argv.data());
  }

  nomtest::TempDir dir_;
};

// The first reference names a file in the output directory that is not there; the second brings
// a file of that name there. The module must still find the first one missing.
TEST_F(CopyAheadPack, Pack_FileMissingUntilLaterCopyIsReportedMissing) {
  WriteFile(dir_.Sub("lib/B.vgxXml"), nomtest::AssemblyDocument({nomtest::kAbsent}));
  WriteFile(dir_.Sub("lib/B.vgxGeom"), "glb");
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
            nomtest::MainDocument({{"ProductList", {"B.vgxXml", "..\\lib\\B.vgxXml"}}}));
  WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  EXPECT_EQ(Pack(dir_.Sub("pkg")), nomsoi::kExitMissing);
  nomzub::FlushLog();
  const std::string log = ReadFile(dir_.Sub("log"));
  std::string pkg = dir_.Sub("pkg");
  for (char& c : pkg) c = c == '/' ? '\\' : c;
  EXPECT_NE(log.find("Info:\t Unable to open Document - " + pkg + "\\B.vgxXml"), std::string::npos)
      << log;
  EXPECT_TRUE(FileExists(dir_.Sub("pkg/B.vgxXml")));  // copied by the second reference
}

TEST_F(CopyAheadPack, Pack_TreeMatchesSources) {
  std::vector<std::string> refs;
  for (int i = 0; i < 40; ++i) {
    const std::string name = "P" + std::to_string(i);
    WriteFile(dir_.Sub("lib/" + name + ".vgxXml"), nomtest::AssemblyDocument({nomtest::kAbsent}));
    WriteFile(dir_.Sub("lib/" + name + ".vgxGeom"), "glb " + name);
    refs.push_back("..\\lib\\" + name + ".vgxXml");
  }
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"), nomtest::MainDocument({{"ProductList", refs}}));
  WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  EXPECT_EQ(Pack(dir_.Sub("out")), nomsoi::kExitOk);
  for (int i = 0; i < 40; ++i) {
    const std::string name = "P" + std::to_string(i);
    EXPECT_EQ(ReadFile(dir_.Sub("out/" + name + ".vgxGeom")), "glb " + name);
    EXPECT_TRUE(FileExists(dir_.Sub("out/" + name + ".vgxXml")));
  }
}

}  // namespace
