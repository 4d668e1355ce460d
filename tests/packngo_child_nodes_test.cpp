// Child node handling: HandleChildrenNodes walks the children of one list group of the open main
// document, copies each referenced product document and its geometry file into the SOI directory,
// rewrites the reference to the bare file name, lists the copy and follows the copied document's
// own references; HandleChildrenNodes_ODT does the same without rewriting and keeps its result
// from the path resolutions only. Real files in a temporary directory, reached through "Z:".

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "platform/paths.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/XMLDOM.h"
#include "support/driver_fakes.h"
#include "support/packngo_support.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomtest::LogLine;
using nomzub::DomCall;
using pk::AssemblyDocument;
using pk::CopyCall;
using pk::CopyError;
using pk::Count;
using pk::InfoLine;
using pk::kAbsent;
using pk::LeafDocument;
using pk::UnableToOpen;
using Strings = std::vector<std::string>;
using List = std::deque<std::string>;
using Lines = std::vector<LogLine>;

class HandleChildrenNodes : public pk::PackNGoFixture {
 protected:
  HandleChildrenNodes() : PackNGoFixture("out") {}

  void SetUp() override { nomtest::WriteFile(dir_.Sub("out/.keep"), ""); }
  void TearDown() override { ReleaseList(); }

  // Writes the main document pkg/SOI.vgxXml with a product list holding these references, opens
  // it and looks the list group up.
  void Main(const Strings& references) {
    mainContents_ = pk::MainDocument({{"ProductList", references}});
    nomtest::WriteFile(dir_.Sub("pkg/SOI.vgxXml"), mainContents_);
    ASSERT_EQ(doc_.OpenDocument(mainPath_), S_OK);
    doc_.GetNode("CLitAssyGroup", &list_, "Ident", "ProductList");
    ASSERT_NE(list_, nullptr);
  }
  void ReleaseList() {
    if (list_ != nullptr) list_->Release();
    list_ = nullptr;
  }
  HRESULT Run() { return peer_.HandleChildrenNodes(list_, doc_, soi_, mainPath_); }
  HRESULT RunOdt() { return peer_.HandleChildrenNodes_ODT(list_, doc_, soi_, mainPath_); }
  // The references of the list group's children as the open document now holds them.
  Strings References() { return pk::ChildReferences(doc_, list_); }

  std::string mainPath_ = nomtest::ZPath(dir_.Sub("pkg/SOI.vgxXml"));
  std::string mainContents_;
  NOMZUBDOMWrapper doc_;
  IXMLDOMNode* list_ = nullptr;
};

class HandleChildrenNodesODT : public HandleChildrenNodes {};

TEST_F(HandleChildrenNodes, NoChildren_LogsCountZeroAndReturnsListingCode) {
  Main({});
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(0)});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
}

TEST_F(HandleChildrenNodes, ForwardSlashRelativeReference_ResolvedCopiedAndRewritten) {
  Product("pkg/sub/dir/Part1.vgxXml", LeafDocument());
  Main({"sub/dir/Part1.vgxXml"});
  pk::FileCallRecorder files;
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(References(), Strings{"Part1.vgxXml"});
  EXPECT_EQ(OutFiles(), (Strings{"Part1.vgxGeom", "Part1.vgxXml"}));
  EXPECT_EQ(files.Copies(),
            (Strings{CopyCall(M("pkg/sub/dir/Part1.vgxXml"), Out("Part1.vgxXml")),
                     CopyCall(M("pkg/sub/dir/Part1.vgxGeom"), Out("Part1.vgxGeom"))}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part1.vgxXml")});
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(1)});
}

TEST_F(HandleChildrenNodes,
       GeometryMissing_DocumentCopiedListedLineNamesGeometryAttributeRewritten) {
  Product("pkg/lib/Part.vgxXml", LeafDocument(), /*geometry=*/false);
  Main({"lib\\Part.vgxXml"});
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Count(1), UnableToOpen(M("pkg/lib/Part.vgxGeom"))}));
  EXPECT_EQ(OutFiles(), Strings{"Part.vgxXml"});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part.vgxXml")});
  EXPECT_EQ(References(), Strings{"Part.vgxXml"});
}

TEST_F(HandleChildrenNodes, SameProductTwice_CopiedTwiceListedTwice) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml", ".\\lib\\Part.vgxXml"});
  pk::FileCallRecorder files;
  EXPECT_EQ(Run(), S_OK);
  const std::string docCopy = CopyCall(M("pkg/lib/Part.vgxXml"), Out("Part.vgxXml"));
  const std::string geoCopy = CopyCall(M("pkg/lib/Part.vgxGeom"), Out("Part.vgxGeom"));
  EXPECT_EQ(files.Copies(), (Strings{docCopy, geoCopy, docCopy, geoCopy}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Part.vgxXml"), Out("Part.vgxXml")}));
  EXPECT_EQ(References(), (Strings{"Part.vgxXml", "Part.vgxXml"}));
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(2)});
}

TEST_F(HandleChildrenNodes, TargetAlreadyPresent_OverwrittenWithoutError) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  nomtest::WriteFile(dir_.Sub("out/Part.vgxXml"), "stale document");
  nomtest::WriteFile(dir_.Sub("out/Part.vgxGeom"), "stale geometry");
  Main({"lib\\Part.vgxXml"});
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/Part.vgxXml")), LeafDocument());
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/Part.vgxGeom")), "glb:pkg/lib/Part.vgxXml");
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(1)});
}

TEST_F(HandleChildrenNodes, ReferenceNotEndingInVgxXml_StillLosesSixCharacters) {
  nomtest::WriteFile(dir_.Sub("pkg/lib/Part.xml"), LeafDocument());
  nomtest::WriteFile(dir_.Sub("pkg/lib/PavgxGeom"), "odd geometry");
  Main({"lib\\Part.xml"});
  pk::FileCallRecorder files;
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(files.Copies(), (Strings{CopyCall(M("pkg/lib/Part.xml"), Out("Part.xml")),
                                     CopyCall(M("pkg/lib/PavgxGeom"), Out("PavgxGeom"))}));
  EXPECT_EQ(OutFiles(), (Strings{"Part.xml", "PavgxGeom"}));
  EXPECT_EQ(References(), Strings{"Part.xml"});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part.xml")});
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(1)});
}

TEST_F(HandleChildrenNodes, ReferenceNotEndingInVgxXml_CutGeometryMissingLogged) {
  nomtest::WriteFile(dir_.Sub("pkg/lib/Part.xml"), LeafDocument());
  Main({"lib\\Part.xml"});
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Count(1), UnableToOpen(M("pkg/lib/PavgxGeom"))}));
  EXPECT_EQ(OutFiles(), Strings{"Part.xml"});
}

TEST_F(HandleChildrenNodes, EmptyOrAbsentReference_SkippedSilentlyButCounted) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"", kAbsent, "lib\\Part.vgxXml"});
  pk::FileCallRecorder files;
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(3)});
  EXPECT_EQ(References(), (Strings{"", kAbsent, "Part.vgxXml"}));
  EXPECT_EQ(files.Copies().size(), 2u);
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part.vgxXml")});
}

TEST_F(HandleChildrenNodes, MissingProduct_SkippedAttributeKeptNotListedResultOne) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml", "..\\gone\\Missing.vgxXml"});
  pk::FileCallRecorder files;
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Count(2), UnableToOpen(M("gone/Missing.vgxXml"))}));
  EXPECT_EQ(References(), (Strings{"Part.vgxXml", "..\\gone\\Missing.vgxXml"}));
  EXPECT_EQ(files.Copies().size(), 2u);
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part.vgxXml")});
}

TEST_F(HandleChildrenNodes, LastChildWithoutReference_ReturnsFetchCode) {
  Main({"lib\\Missing.vgxXml", ""});
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Count(2), UnableToOpen(M("pkg/lib/Missing.vgxXml"))}));
}

TEST_F(HandleChildrenNodes, ProductNotParsable_ReturnsInternalReferenceCheckResult) {
  Product("pkg/lib/Bad.vgxXml", "<VgxDocument><CLitAssyGroup");
  HRESULT opening;
  {
    NOMZUBDOMWrapper probe;
    opening = probe.OpenDocument(M("pkg/lib/Bad.vgxXml"));
  }
  ASSERT_LT(opening, 0);
  Main({"lib\\Bad.vgxXml"});
  log_.clear();
  EXPECT_EQ(Run(), opening);
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Bad.vgxXml")});
  EXPECT_EQ(References(), Strings{"Bad.vgxXml"});
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(1)});
}

TEST_F(HandleChildrenNodes, NullListNode_ReturnsEFailSilently) {
  Main({"lib\\Part.vgxXml"});
  pk::FileCallRecorder files;
  EXPECT_EQ(peer_.HandleChildrenNodes(nullptr, doc_, soi_, mainPath_), E_FAIL);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{});
  EXPECT_EQ(files.calls(), Strings{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
}

TEST_F(HandleChildrenNodes, ChildListingFails_ReturnsEFailNotTheListingCode) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml"});
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kGetChildNodes, E_ACCESSDENIED);
  EXPECT_EQ(Run(), E_FAIL);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{});
  EXPECT_EQ(OutFiles(), Strings{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
}

TEST_F(HandleChildrenNodes, ListsChildrenByGroupName_ReadsAndWritesIsInstanceOf) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml"});
  nomtest::RecordingDomHook dom;
  Run();
  EXPECT_EQ(dom.Arguments(DomCall::kGetChildNodes), Strings{"CLitAssyGroup"});
  EXPECT_EQ(dom.Arguments(DomCall::kAddAttribute), Strings{"IsInstanceOf"});
}

TEST_F(HandleChildrenNodes, ProductCopyFails_ReportedListedGeometryTriedRewrittenNestedWalked) {
  Product("pkg/lib/Part.vgxXml", AssemblyDocument({"Sub.vgxXml"}));
  Product("pkg/lib/Sub.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml"});
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCopyFile, 1, 5);
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(
      nomtest::ModuleLines(log_),
      (Lines{Count(1), CopyError(M("pkg/lib/Part.vgxXml"), Out("Part.vgxXml"), "Access Denied")}));
  EXPECT_EQ(OutFiles(), (Strings{"Part.vgxGeom", "Sub.vgxGeom", "Sub.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Part.vgxXml"), Out("Sub.vgxXml")}));
  EXPECT_EQ(References(), Strings{"Part.vgxXml"});
}

TEST_F(HandleChildrenNodes, GeometryCopyFails_ReportedWithGeometryPaths) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml"});
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCopyFile, 2, 2);
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Count(1),
                   CopyError(M("pkg/lib/Part.vgxGeom"), Out("Part.vgxGeom"), "File Not Found")}));
  EXPECT_EQ(References(), Strings{"Part.vgxXml"});
}

TEST_F(HandleChildrenNodes, NestedReferences_FollowedAfterGeometry) {
  Product("pkg/lib/Part.vgxXml", AssemblyDocument({"Sub.vgxXml", "Gone.vgxXml"}),
          /*geometry=*/false);
  Product("pkg/lib/Sub.vgxXml", LeafDocument());
  Product("pkg/lib/Next.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml", "lib\\Next.vgxXml"});
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Count(2), UnableToOpen(M("pkg/lib/Part.vgxGeom")),
                                               UnableToOpen(M("pkg/lib/Gone.vgxXml"))}));
  EXPECT_EQ(peer_.CopiedXmlFiles(),
            (List{Out("Part.vgxXml"), Out("Sub.vgxXml"), Out("Next.vgxXml")}));
  EXPECT_EQ(References(), (Strings{"Part.vgxXml", "Next.vgxXml"}));
}

TEST_F(HandleChildrenNodes, SoiDirectoryWithSlashes_NormalisedForChildrenNotForNested) {
  Product("pkg/lib/Part.vgxXml", AssemblyDocument({"Sub.vgxXml"}));
  Product("pkg/lib/Sub.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml"});
  std::string slashed = soi_;
  for (char& c : slashed) c = (c == '\\') ? '/' : c;
  pk::FileCallRecorder files;
  EXPECT_EQ(peer_.HandleChildrenNodes(list_, doc_, slashed, mainPath_), S_OK);
  EXPECT_EQ(files.Copies(),
            (Strings{CopyCall(M("pkg/lib/Part.vgxXml"), Out("Part.vgxXml")),
                     CopyCall(M("pkg/lib/Part.vgxGeom"), Out("Part.vgxGeom")),
                     CopyCall(M("pkg/lib/Sub.vgxXml"), slashed + "\\Sub.vgxXml"),
                     CopyCall(M("pkg/lib/Sub.vgxGeom"), slashed + "\\Sub.vgxGeom")}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Part.vgxXml"), slashed + "\\Sub.vgxXml"}));
  EXPECT_EQ(OutFiles(), (Strings{"Part.vgxGeom", "Part.vgxXml", "Sub.vgxGeom", "Sub.vgxXml"}));
}

// The target is the SOI directory and the reference joined without a separator: a name with a
// colon after the drive, which Windows refuses, so both copies fail and nothing is written beside
// the SOI directory.
TEST_F(HandleChildrenNodes, DriveRelativeReference_TargetsJoinedWithoutSeparator) {
  nomplat::ScopedPathMaps maps;
  Product("drive/Part.vgxXml", LeafDocument());
  nomplat::MapDrive('Q', dir_.Sub("drive"));
  Main({"Q:Part.vgxXml"});
  pk::FileCallRecorder files;
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(files.Copies(), (Strings{CopyCall("Q:Part.vgxXml", soi_ + "Q:Part.vgxXml"),
                                     CopyCall("Q:Part.vgxGeom", soi_ + "Q:Part.vgxGeom")}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{soi_ + "Q:Part.vgxXml"});
  EXPECT_EQ(References(), Strings{"Part.vgxXml"});
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("outQ:Part.vgxXml")));
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("outQ:Part.vgxGeom")));
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Count(1), CopyError("Q:Part.vgxXml", soi_ + "Q:Part.vgxXml", "Unknown"),
                   CopyError("Q:Part.vgxGeom", soi_ + "Q:Part.vgxGeom", "Unknown")}));
}

TEST_F(HandleChildrenNodes, ManyChildren_CountInDecimal) {
  Main(Strings(12, ""));
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(12)});
}

TEST_F(HandleChildrenNodes, DocumentChangedOnlyInMemory) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml"});
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(Run(), S_OK);
  EXPECT_TRUE(dom.Arguments(DomCall::kSaveDoc).empty());
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/SOI.vgxXml")), mainContents_);
  EXPECT_EQ(References(), Strings{"Part.vgxXml"});
}

TEST_F(HandleChildrenNodes, ClimbingReference_AttributeGetsFileName) {
  Product("shared/Up.vgxXml", LeafDocument());
  Main({"..\\shared\\Up.vgxXml"});
  EXPECT_EQ(Run(), S_OK);
  EXPECT_EQ(References(), Strings{"Up.vgxXml"});
  EXPECT_EQ(OutFiles(), (Strings{"Up.vgxGeom", "Up.vgxXml"}));
}

// --- The ODT variant. ---

TEST_F(HandleChildrenNodesODT, NoChildren_LogsCountZeroAndReturnsListingCode) {
  Main({});
  EXPECT_EQ(RunOdt(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{Count(0)});
}

TEST_F(HandleChildrenNodesODT, SameInput_SameCopiesAndEntriesAttributesUnchanged) {
  Product("pkg/lib/A.vgxXml", AssemblyDocument({"Sub.vgxXml"}));
  Product("pkg/lib/Sub.vgxXml", LeafDocument());
  Product("pkg/other/B.vgxXml", LeafDocument(), /*geometry=*/false);
  const Strings refs = {"lib/A.vgxXml", "..\\pkg\\gone\\Missing.vgxXml", ".\\other\\B.vgxXml"};

  // The normal variant first, on its own object and output directory.
  Strings normalCopies;
  List normalList;
  Lines normalLines;
  {
    Main(refs);
    NOMSOIUtility normal;
    NOMSOIUtilityTestPeer normalPeer(normal);
    pk::FileCallRecorder files;
    normalPeer.HandleChildrenNodes(list_, doc_, soi_, mainPath_);
    normalCopies = files.Copies();
    normalList = normalPeer.CopiedXmlFiles();
    normalLines = nomtest::ModuleLines(log_);
    EXPECT_EQ(References(), (Strings{"A.vgxXml", "..\\pkg\\gone\\Missing.vgxXml", "B.vgxXml"}));
    ReleaseList();
  }
  log_.clear();

  Main(refs);
  pk::FileCallRecorder files;
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(RunOdt(), S_OK);
  EXPECT_EQ(files.Copies(), normalCopies);
  EXPECT_EQ(peer_.CopiedXmlFiles(), normalList);
  EXPECT_EQ(nomtest::ModuleLines(log_), normalLines);
  EXPECT_TRUE(dom.Arguments(DomCall::kAddAttribute).empty());
  EXPECT_EQ(References(), refs);

  EXPECT_EQ(normalList, (List{Out("A.vgxXml"), Out("Sub.vgxXml"), Out("B.vgxXml")}));
  EXPECT_EQ(normalLines, (Lines{Count(3), UnableToOpen(M("pkg/gone/Missing.vgxXml")),
                                UnableToOpen(M("pkg/other/B.vgxGeom"))}));
}

TEST_F(HandleChildrenNodesODT, LastResolutionFailed_ReturnsOne) {
  Product("pkg/lib/A.vgxXml", LeafDocument());
  Main({"lib\\A.vgxXml", "lib\\Missing.vgxXml"});
  EXPECT_EQ(RunOdt(), 1);
  EXPECT_EQ(References(), (Strings{"lib\\A.vgxXml", "lib\\Missing.vgxXml"}));
}

TEST_F(HandleChildrenNodesODT, LastChildWithoutReference_KeepsLastResolutionResult) {
  Main({"lib\\Missing.vgxXml", ""});
  EXPECT_EQ(RunOdt(), 1);
}

TEST_F(HandleChildrenNodesODT, ProductNotParsable_InternalCheckIgnoredReturnsZero) {
  Product("pkg/lib/Bad.vgxXml", "<VgxDocument><CLitAssyGroup");
  Main({"lib\\Bad.vgxXml"});
  EXPECT_EQ(RunOdt(), S_OK);
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Bad.vgxXml")});
  EXPECT_EQ(References(), Strings{"lib\\Bad.vgxXml"});
}

TEST_F(HandleChildrenNodesODT, NullListNode_ReturnsEFailSilently) {
  Main({"lib\\Part.vgxXml"});
  EXPECT_EQ(peer_.HandleChildrenNodes_ODT(nullptr, doc_, soi_, mainPath_), E_FAIL);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{});
}

TEST_F(HandleChildrenNodesODT, ChildListingFails_ReturnsEFail) {
  Main({"lib\\Part.vgxXml"});
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kGetChildNodes, E_ACCESSDENIED);
  EXPECT_EQ(RunOdt(), E_FAIL);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{});
}

TEST_F(HandleChildrenNodesODT, GeometryMissing_SameLine) {
  Product("pkg/lib/Part.vgxXml", LeafDocument(), /*geometry=*/false);
  Main({"lib/Part.vgxXml"});
  EXPECT_EQ(RunOdt(), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Count(1), UnableToOpen(M("pkg/lib/Part.vgxGeom"))}));
  EXPECT_EQ(OutFiles(), Strings{"Part.vgxXml"});
  EXPECT_EQ(References(), Strings{"lib/Part.vgxXml"});
}

TEST_F(HandleChildrenNodesODT, SameProductTwice_CopiedTwiceListedTwice) {
  Product("pkg/lib/Part.vgxXml", LeafDocument());
  Main({"lib\\Part.vgxXml", "lib\\Part.vgxXml"});
  EXPECT_EQ(RunOdt(), S_OK);
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Part.vgxXml"), Out("Part.vgxXml")}));
}

}  // namespace
