// Copies made ahead of the module: only new files directly in the output directory, never a
// target the module has claimed or one planned twice, never the name of a file the run looks for
// and cannot find; copies staged beside a new output directory while the preflight walks, moved
// into place or removed with it; and a pack with copies made ahead logs and writes what one
// without does.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "commands.h"
#include "host/copy_ahead.h"
#include "platform/file_memo.h"
#include "platform/paths.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"
#include "support/driver_fakes.h"
#include "support/driver_package.h"
#include "support/packngo_support.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomsoi::CopyAhead;
using nomsoi::ItemKind;
using nomsoi::PlannedItem;
using nomsoi::PreflightResult;
using nomsoi::StagedCopies;
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

TEST_F(CopyAheadTest, Finish_DocumentMadeAsItsRewriteLeavesIt) {
  Plan("A.vgxXml");
  const std::string source = nomtest::AssemblyDocument({"sub\\B.vgxXml"});
  WriteFile(plan_.items[0].source, source);
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  std::string expected;
  ASSERT_TRUE(nomsoi::RewrittenDocument(source, &expected));
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), expected);
  // The module's copy finds it current, and its rewrite saves the same bytes: nothing is made.
  struct stat before {};
  ASSERT_EQ(0, lstat(Out("A.vgxXml").c_str(), &before));
  EXPECT_EQ(0u,
            nomplat::Env::Default()->CopyFile(plan_.items[0].source, plan_.items[0].target, false));
  NOMSOIUtility utility;
  EXPECT_EQ(NOMSOIUtilityTestPeer(utility).UpdateRelativePaths(plan_.items[0].target), S_OK);
  struct stat after {};
  ASSERT_EQ(0, lstat(Out("A.vgxXml").c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(CopyAheadTest, Finish_DocumentNamedLikeAMissingFileIsPlainCopy) {
  Plan("A.vgxXml");
  const std::string source = nomtest::AssemblyDocument({"sub\\B.vgxXml"});
  WriteFile(plan_.items[0].source, source);
  // Looked for in another folder and not found there.
  PlannedItem missing;
  missing.source = dir_.Sub("elsewhere") + "\\a.VGXXML";
  missing.target = dir_.Sub("out") + "\\a.VGXXML";
  missing.present = false;
  plan_.items.push_back(missing);
  CopyAhead ahead(plan_, dir_.Sub("out"));
  ahead.Finish();
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), source);
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

// --- product documents staged as the module's rewrite leaves them -------------------------------

// What the module's rewrite of a copy holding bytes leaves in the file ("unsaved" when it saves
// nothing).
std::string ModuleRewrite(const std::string& bytes) {
  nomtest::TempDir dir;
  const std::string native = dir.Sub("Copy.vgxXml");
  WriteFile(native, bytes);
  bool saved = false;
  {
    nomtest::RecordingDomHook hook;
    NOMSOIUtility utility;
    NOMSOIUtilityTestPeer(utility).UpdateRelativePaths(nomtest::ZPath(native));
    saved = !hook.Arguments(nomzub::DomCall::kSaveDoc).empty();
  }
  nomplat::ForgetRememberedFiles();
  return saved ? ReadFile(native) : "unsaved";
}

TEST(RewrittenDocument, SameBytesAsTheModulesRewrite) {
  const std::vector<std::string> documents = {
      nomtest::AssemblyDocument({"sub/dir/Nut.vgxXml", "..\\Geo\\Bolt.vgxXml", "W.vgxXml"}),
      "<R>\r\n  <CLitAssyGroup IsInstanceOf=\"a/b.vgxXml\"/>\r\n  <CLitAssyGroup/>\r\n</R>\r\n",
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<R><CLitAssyGroup "
      "IsInstanceOf=\"\xe9\\\xe8."
      "vgxXml\"/></R>\n",
      "<!DOCTYPE R [<!ENTITY e \"a/b\">]><R><CLitAssyGroup IsInstanceOf=\"&e;\" x=\"p&#10;q\"/>"
      "<!--c--><?pi x?><CLitAssyGroup IsInstanceOf=\"d\\x\"><![CDATA[a]]></CLitAssyGroup></R>",
  };
  for (const std::string& bytes : documents) {
    std::string rewritten;
    EXPECT_TRUE(nomsoi::RewrittenDocument(bytes, &rewritten)) << bytes;
    EXPECT_EQ(rewritten, ModuleRewrite(bytes)) << bytes;
    EXPECT_EQ(ModuleRewrite(rewritten), rewritten) << bytes;  // the module saves them again
  }
}

TEST(RewrittenDocument, DocumentWithoutAssemblyElementsDeclined) {
  const std::string bytes = "<R><Other IsInstanceOf=\"a/b.vgxXml\"/></R>";
  ASSERT_EQ(ModuleRewrite(bytes), "unsaved");
  std::string rewritten = "old";
  EXPECT_FALSE(nomsoi::RewrittenDocument(bytes, &rewritten));
  EXPECT_EQ(rewritten, "");
}

TEST(RewrittenDocument, MalformedDocumentDeclined) {
  std::string rewritten;
  EXPECT_FALSE(nomsoi::RewrittenDocument("<R><CLitAssyGroup></R>", &rewritten));
  EXPECT_FALSE(nomsoi::RewrittenDocument("", &rewritten));
}

TEST(RewrittenDocument, DeclinedWhileAHookIsInstalled) {
  const std::string bytes = nomtest::AssemblyDocument({"a/b.vgxXml"});
  std::string rewritten;
  nomtest::RecordingDomHook hook;
  EXPECT_FALSE(nomsoi::RewrittenDocument(bytes, &rewritten));
  EXPECT_TRUE(hook.records().empty());
}

// A pack through nomsoi, where copies are made ahead of the module.
// --- copies staged while the preflight walks ----------------------------------------------------

class StagedCopiesTest : public ::testing::Test {
 protected:
  ~StagedCopiesTest() override { nomplat::ForgetRememberedFiles(); }

  // An item copying lib/<name> to out\<name> (or to target, when given); the source is written
  // unless missing.
  PlannedItem Item(const std::string& name, ItemKind kind = ItemKind::kDocument,
                   bool missing = false, const std::string& target = "") {
    PlannedItem item;
    item.kind = kind;
    item.source = dir_.Sub("lib/" + name);
    item.target = target.empty() ? dir_.Sub("out") + "\\" + name : target;
    item.present = !missing;
    if (!missing) WriteFile(item.source, "bytes of " + name);
    return item;
  }

  // Hands items to staged as the preflight would, in order, and waits for the copies.
  static void Walk(StagedCopies& staged, const std::vector<PlannedItem>& items) {
    for (size_t i = 0; i < items.size(); ++i) {
      std::string native;
      DWORD error = 0;
      if (!nomplat::ToNativePath(items[i].source, &native, &error)) native.clear();
      staged.Planned(i, items[i], native);
    }
    staged.Finish();
  }

  std::string Out(const std::string& name) const { return dir_.Sub("out/" + name); }
  std::vector<std::string> Top() const { return nomtest::ListDir(dir_.path()); }

  nomtest::TempDir dir_;
};

TEST_F(StagedCopiesTest, Commit_MovesCopiesIntoNewOutputDirectory) {
  StagedCopies staged(dir_.Sub("out"), {});
  ASSERT_TRUE(staged.active());
  Walk(staged, {Item("A.vgxXml"), Item("A.vgxGeom", ItemKind::kGeometry)});
  EXPECT_FALSE(FileExists(dir_.Sub("out")));
  EXPECT_EQ(staged.Commit(), (std::vector<size_t>{0, 1}));
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), "bytes of A.vgxXml");
  EXPECT_EQ(ReadFile(Out("A.vgxGeom")), "bytes of A.vgxGeom");
  EXPECT_EQ(Top(), (std::vector<std::string>{"lib", "out"}));
}

TEST_F(StagedCopiesTest, Commit_CopiesStayCurrentForTheModule) {
  StagedCopies staged(dir_.Sub("out"), {});
  const PlannedItem item = Item("A.vgxXml");
  Walk(staged, {item});
  ASSERT_EQ(staged.Commit(), (std::vector<size_t>{0}));
  struct stat before {};
  ASSERT_EQ(0, lstat(Out("A.vgxXml").c_str(), &before));
  EXPECT_EQ(0u, nomplat::Env::Default()->CopyFile(item.source, item.target, false));
  struct stat after {};
  ASSERT_EQ(0, lstat(Out("A.vgxXml").c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino);  // found current: not made again
}

TEST_F(StagedCopiesTest, Commit_DocumentStagedAsItsRewriteLeavesIt) {
  StagedCopies staged(dir_.Sub("out"), {});
  PlannedItem item = Item("A.vgxXml");
  const std::string source = nomtest::AssemblyDocument({"sub\\B.vgxXml"});
  WriteFile(item.source, source);
  Walk(staged, {item});
  ASSERT_EQ(staged.Commit(), (std::vector<size_t>{0}));
  std::string expected;
  ASSERT_TRUE(nomsoi::RewrittenDocument(source, &expected));
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), expected);
  // The module's copy finds it current and its rewrite saves the same bytes: nothing is made.
  struct stat before {};
  ASSERT_EQ(0, lstat(Out("A.vgxXml").c_str(), &before));
  ASSERT_EQ(0u, nomplat::Env::Default()->CopyFile(item.source, item.target, false));
  NOMSOIUtility utility;
  EXPECT_EQ(NOMSOIUtilityTestPeer(utility).UpdateRelativePaths(item.target), S_OK);
  struct stat after {};
  ASSERT_EQ(0, lstat(Out("A.vgxXml").c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), expected);
}

TEST_F(StagedCopiesTest, Commit_DocumentWithoutReferencesStagedAsPlainCopy) {
  StagedCopies staged(dir_.Sub("out"), {});
  Walk(staged, {Item("A.vgxXml")});  // "bytes of A.vgxXml": not a document the rewrite saves
  ASSERT_EQ(staged.Commit(), (std::vector<size_t>{0}));
  EXPECT_EQ(ReadFile(Out("A.vgxXml")), "bytes of A.vgxXml");
}

TEST_F(StagedCopiesTest, Commit_GeometryNeverRewritten) {
  StagedCopies staged(dir_.Sub("out"), {});
  PlannedItem item = Item("A.vgxGeom", ItemKind::kGeometry);
  const std::string bytes = nomtest::AssemblyDocument({"sub\\B.vgxXml"});
  WriteFile(item.source, bytes);
  Walk(staged, {item});
  ASSERT_EQ(staged.Commit(), (std::vector<size_t>{0}));
  EXPECT_EQ(ReadFile(Out("A.vgxGeom")), bytes);
}

TEST_F(StagedCopiesTest, Commit_RewrittenDocumentWhoseNameWasLookedForLaterIsWithdrawn) {
  StagedCopies staged(dir_.Sub("out"), {});
  PlannedItem document = Item("A.vgxXml");
  WriteFile(document.source, nomtest::AssemblyDocument({"sub\\B.vgxXml"}));
  PlannedItem geometry = Item("A.vgxGeom", ItemKind::kGeometry);
  // Later in the walk, a file of that name is looked for and not found: the module may read
  // the copy then, before its rewrite.
  const PlannedItem missing =
      Item("A.vgxXml", ItemKind::kDocument, /*missing=*/true, dir_.Sub("out") + "\\elsewhere");
  Walk(staged, {document, geometry});
  staged.Planned(2, missing, "");
  EXPECT_EQ(staged.Commit(), (std::vector<size_t>{1}));
  EXPECT_FALSE(FileExists(Out("A.vgxXml")));
  EXPECT_EQ(ReadFile(Out("A.vgxGeom")), "bytes of A.vgxGeom");
}

TEST_F(StagedCopiesTest, Discard_LeavesNothingBehind) {
  {
    StagedCopies staged(dir_.Sub("out"), {});
    Walk(staged, {Item("A.vgxXml")});
    EXPECT_EQ(Top().size(), 2u);  // lib and the staging directory
  }                               // refused: destroyed without Commit
  EXPECT_EQ(Top(), (std::vector<std::string>{"lib"}));
}

TEST_F(StagedCopiesTest, Commit_NothingStagedLeavesNoOutputDirectory) {
  StagedCopies staged(dir_.Sub("out"), {});
  Walk(staged, {Item("A.vgxXml", ItemKind::kDocument, /*missing=*/true)});
  EXPECT_TRUE(staged.Commit().empty());
  EXPECT_EQ(Top(), (std::vector<std::string>{}));
}

TEST_F(StagedCopiesTest, Construct_RemovesStagingOfRunThatIsGone) {
  // A process id above the kernel's largest names no process.
  WriteFile(dir_.Sub(".out.nomsoi-staging.999999999/A.vgxXml"), "left behind");
  WriteFile(dir_.Sub(".out.nomsoi-staging.1/B.vgxXml"), "init's, still running");
  WriteFile(dir_.Sub(".other.nomsoi-staging.999999999/C.vgxXml"), "another output's");
  StagedCopies staged(dir_.Sub("out"), {});
  staged.Discard();
  EXPECT_EQ(Top(),
            (std::vector<std::string>{".other.nomsoi-staging.999999999", ".out.nomsoi-staging.1"}));
}

TEST_F(StagedCopiesTest, Construct_ExistingOutputDirectoryStagesNothing) {
  WriteFile(Out(".keep"), "");
  StagedCopies staged(dir_.Sub("out"), {});
  EXPECT_FALSE(staged.active());
  EXPECT_EQ(Top(), (std::vector<std::string>{"out"}));
}

TEST_F(StagedCopiesTest, Construct_OutputDirectoryInOtherCaseStagesNothing) {
  WriteFile(dir_.Sub("OUT/.keep"), "");
  StagedCopies staged(dir_.Sub("out"), {});
  EXPECT_FALSE(staged.active());
}

TEST_F(StagedCopiesTest, Construct_MissingParentStagesNothing) {
  StagedCopies staged(dir_.Sub("deeper/out"), {});
  EXPECT_FALSE(staged.active());
  EXPECT_EQ(Top(), (std::vector<std::string>{}));
}

TEST_F(StagedCopiesTest, Planned_NameOfMissingFileNotStaged) {
  StagedCopies staged(dir_.Sub("out"), {});
  PlannedItem missing = Item("B.vgxXml", ItemKind::kDocument, /*missing=*/true);
  missing.source = Out("b.VGXXML");  // looked for in the output directory, in another case
  const PlannedItem later = Item("B.vgxXml");
  Walk(staged, {missing, Item("A.vgxXml"), later});
  EXPECT_EQ(staged.Commit(), (std::vector<size_t>{1}));
  EXPECT_FALSE(FileExists(Out("B.vgxXml")));
}

TEST_F(StagedCopiesTest, Planned_NameOfMainDocumentNotStaged) {
  StagedCopies staged(dir_.Sub("out"), {dir_.Sub("pkg") + "\\SOI.vgxXml", ""});
  Walk(staged, {Item("soi.vgxxml"), Item("A.vgxXml")});
  EXPECT_EQ(staged.Commit(), (std::vector<size_t>{1}));
  EXPECT_FALSE(FileExists(Out("soi.vgxxml")));
}

TEST_F(StagedCopiesTest, Planned_SecondTargetSharingNameLeftToModule) {
  StagedCopies staged(dir_.Sub("out"), {});
  const PlannedItem first = Item("Rail.vgxXml");
  PlannedItem second = Item("rail.vgxxml");
  second.source = dir_.Sub("lib/Other.vgxXml");
  WriteFile(second.source, "other");
  Walk(staged, {first, second});
  EXPECT_EQ(staged.Commit(), (std::vector<size_t>{0}));
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("out")), (std::vector<std::string>{"Rail.vgxXml"}));
  EXPECT_EQ(ReadFile(Out("Rail.vgxXml")), "bytes of Rail.vgxXml");
}

TEST_F(StagedCopiesTest, Planned_ResourceAndTargetElsewhereLeftToModule) {
  StagedCopies staged(dir_.Sub("out"), {});
  Walk(staged, {Item("Line.png", ItemKind::kResource),
                Item("A.vgxXml", ItemKind::kDocument, false, dir_.Sub("out") + "\\sub\\A.vgxXml"),
                Item("B.vgxXml")});
  EXPECT_EQ(staged.Commit(), (std::vector<size_t>{2}));
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("out")), (std::vector<std::string>{"B.vgxXml"}));
}

class CopyAheadPack : public ::testing::Test {
 protected:
  ~CopyAheadPack() override {
    nomzub::ResetLogConfiguration();
    nomzub::ClearPackage();
    nomplat::ForgetRememberedFiles();
  }

  int Pack(const std::string& out, const std::vector<std::string>& more = {}) {
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
    args.insert(args.end(), more.begin(), more.end());
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

// The first reference copies another O.vgxXml over the one in the output directory; the second
// names that file itself, whose copy onto itself fails, and whose walk then reads the replaced
// document: the reference to D in the file as it was before the run is never followed.
TEST_F(CopyAheadPack, Pack_DocumentReplacedBeforeItsWalkIsWalkedAsReplaced) {
  WriteFile(dir_.Sub("pkg/O.vgxXml"), nomtest::AssemblyDocument({"..\\lib\\D.vgxXml"}));
  WriteFile(dir_.Sub("pkg/O.vgxGeom"), "glb O in pkg");
  WriteFile(dir_.Sub("other/O.vgxXml"), nomtest::AssemblyDocument({nomtest::kAbsent}));
  WriteFile(dir_.Sub("other/O.vgxGeom"), "glb O in other");
  WriteFile(dir_.Sub("lib/D.vgxXml"), nomtest::AssemblyDocument({nomtest::kAbsent}));
  WriteFile(dir_.Sub("lib/D.vgxGeom"), "glb D");
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
            nomtest::MainDocument({{"ProductList", {"..\\other\\O.vgxXml", "O.vgxXml"}}}));
  WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  // The copy of O onto itself fails, but leaves O in place.
  EXPECT_EQ(Pack(dir_.Sub("pkg"), {"--force"}), nomsoi::kExitOk);
  EXPECT_EQ(ReadFile(dir_.Sub("pkg/O.vgxGeom")), "glb O in other");
  EXPECT_FALSE(FileExists(dir_.Sub("pkg/D.vgxXml")));
  EXPECT_FALSE(FileExists(dir_.Sub("pkg/D.vgxGeom")));
}

// The second reference names A in the new output directory, where the first one's walk copied
// it; its walk then reads B there before B's rewrite, and looks for C below the output directory,
// where it is not. The products after them keep the preflight walking while B is staged.
TEST_F(CopyAheadPack, Pack_CopyReadBackBeforeItsRewriteHoldsItsSourceBytes) {
  WriteFile(dir_.Sub("lib/A.vgxXml"), nomtest::AssemblyDocument({"B.vgxXml"}));
  WriteFile(dir_.Sub("lib/A.vgxGeom"), "glb A");
  WriteFile(dir_.Sub("lib/B.vgxXml"), nomtest::AssemblyDocument({"sub\\C.vgxXml"}));
  WriteFile(dir_.Sub("lib/B.vgxGeom"), "glb B");
  WriteFile(dir_.Sub("lib/sub/C.vgxXml"), nomtest::AssemblyDocument({nomtest::kAbsent}));
  WriteFile(dir_.Sub("lib/sub/C.vgxGeom"), "glb C");
  std::vector<std::string> refs = {"..\\lib\\A.vgxXml", "..\\out\\A.vgxXml"};
  for (int i = 0; i < 400; ++i) {
    const std::string name = "P" + std::to_string(i);
    WriteFile(dir_.Sub("lib/" + name + ".vgxXml"), nomtest::AssemblyDocument({nomtest::kAbsent}));
    refs.push_back("..\\lib\\" + name + ".vgxXml");
  }
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"), nomtest::MainDocument({{"ProductList", refs}}));
  WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  Pack(dir_.Sub("out"));
  nomzub::FlushLog();
  const std::string log = ReadFile(dir_.Sub("log"));
  std::string out = dir_.Sub("out");
  for (char& c : out) c = c == '/' ? '\\' : c;
  EXPECT_NE(log.find("Info:\t Unable to open Document - " + out + "\\sub\\C.vgxXml"),
            std::string::npos)
      << log;
}

TEST_F(CopyAheadPack, Pack_RefusedIntoNewOutputLeavesNothing) {
  // A cycle: A names B, B names A. The walk plans A's copies before it finds the cycle.
  WriteFile(dir_.Sub("lib/A.vgxXml"), nomtest::AssemblyDocument({"B.vgxXml"}));
  WriteFile(dir_.Sub("lib/A.vgxGeom"), "glb A");
  WriteFile(dir_.Sub("lib/B.vgxXml"), nomtest::AssemblyDocument({"A.vgxXml"}));
  WriteFile(dir_.Sub("lib/B.vgxGeom"), "glb B");
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
            nomtest::MainDocument({{"ProductList", {"..\\lib\\A.vgxXml"}}}));
  WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  EXPECT_EQ(Pack(dir_.Sub("out")), nomsoi::kExitUsage);
  for (const std::string& entry : nomtest::ListDir(dir_.path())) {
    EXPECT_TRUE(entry == "lib" || entry == "pkg" || entry == "log") << entry;
  }
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
