// PackNGo: gathers the last registered package into the SOI directory. It walks the four list
// groups of the main document in a fixed order, lets the shared-resource manager adapt the main
// document and the view file, saves both, and rewrites every copied product document; its result
// is the main document's save result, or the last rewrite's result when anything was copied.
// Real files in a temporary directory: the main document and view file lie in the SOI directory
// (out/), product documents in lib/ beside it.

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXGen.h"
#include "support/driver_fakes.h"
#include "support/packngo_support.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomtest::ListGroup;
using nomtest::LogLine;
using nomzub::DomCall;
using pk::AssemblyDocument;
using pk::Count;
using pk::Done;
using pk::InfoLine;
using pk::LeafDocument;
using pk::MainDocument;
using pk::Start;
using Strings = std::vector<std::string>;
using List = std::deque<std::string>;
using Lines = std::vector<LogLine>;

class PackNGo : public pk::PackNGoFixture {
 protected:
  PackNGo() : PackNGoFixture("out") {}

  void TearDown() override { nomzub::ClearPackage(); }

  // Writes out/SOI.vgxXml with the given lists and registers it (with out/SOI.vgxView when a view
  // file is wanted).
  void Package(const std::vector<ListGroup>& lists, bool view = true) {
    nomtest::WriteFile(dir_.Sub("out/SOI.vgxXml"), MainDocument(lists));
    if (view) nomtest::WriteFile(dir_.Sub("out/SOI.vgxView"), pk::ViewDocument());
    nomzub::RegisterPackage(mainPath_, view ? viewPath_ : "");
  }
  // What saving the main document as it is on disk now gives, through a wrapper of its own.
  HRESULT MainSaveResult() {
    NOMZUBDOMWrapper probe;
    probe.OpenDocument(mainPath_);
    return probe.SaveDoc(mainPath_);
  }

  std::string mainPath_ = nomtest::ZPath(dir_.Sub("out/SOI.vgxXml"));
  std::string viewPath_ = nomtest::ZPath(dir_.Sub("out/SOI.vgxView"));
};

TEST_F(PackNGo, NoPackage_ReturnsEFailSilently) {
  nomzub::ClearPackage();
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.PackNGo(soi_), E_FAIL);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{});
  EXPECT_TRUE(dom.records().empty());
}

TEST_F(PackNGo, EmptyMainPath_LogsFailureAndReturnsEFail) {
  nomzub::RegisterPackage("", "");
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.PackNGo(soi_), E_FAIL);
  EXPECT_EQ(nomtest::ModuleLines(log_), Lines{InfoLine("Failed to get SOI.vgxXml file path")});
  EXPECT_TRUE(dom.records().empty());
}

TEST_F(PackNGo, NoListGroup_OnlyRelativePathLinesAndMainSaveResult) {
  Package({});
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(dom.Arguments(DomCall::kSaveDoc), (Strings{mainPath_, viewPath_}));
}

TEST_F(PackNGo, AllLists_FixedOrderWhateverTheDocumentOrder) {
  Product("lib/P.vgxXml", LeafDocument());
  Package({{"PlanningContext", {}},
           {"ManufProd", {""}},
           {"ResourceList", {"", ""}},
           {"ProductList", {"..\\lib\\P.vgxXml"}}});
  utility_.PackNGo(soi_);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(1), Done("Product"), Start("Resource"), Count(2),
                   Done("Resource"), Start("MP"), Count(1), Done("MP"), Start("Context"), Count(0),
                   Done("Context"), pk::UpdatingLine(), pk::UpdatedLine()}));
}

TEST_F(PackNGo, ProgressLines_ExactTextsAndLevels) {
  Package({{"ProductList", {}}, {"ResourceList", {}}, {"ManufProd", {}}, {"PlanningContext", {}}});
  utility_.PackNGo(soi_);
  EXPECT_EQ(
      nomtest::ModuleLines(log_),
      (Lines{{1, "Info:\t Handle Product Child Nodes ... "},
             {0, "Info:\t Nb Child Nodes: 0"},
             {1, "Info:\t Handle Product Child Nodes ... Done!"},
             {1, "Info:\t Handle Resource Child Nodes ... "},
             {0, "Info:\t Nb Child Nodes: 0"},
             {1, "Info:\t Handle Resource Child Nodes ... Done!"},
             {1, "Info:\t Handle MP Child Nodes ... "},
             {0, "Info:\t Nb Child Nodes: 0"},
             {1, "Info:\t Handle MP Child Nodes ... Done!"},
             {1, "Info:\t Handle Context Child Nodes ..."},
             {0, "Info:\t Nb Child Nodes: 0"},
             {1, "Info:\t Handle Context Child Nodes ... Done!"},
             {0, "Info:\t Updating the relative paths in extracted <KRTProduct>.vgxXml files..."},
             {0, "Info:\t Updation of relative paths done..."}}));
}

TEST_F(PackNGo, SomeListsOnly_TheirLinesInFixedOrder) {
  Package({{"PlanningContext", {}}, {"ResourceList", {}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Resource"), Count(0), Done("Resource"), Start("Context"), Count(0),
                   Done("Context"), pk::UpdatingLine(), pk::UpdatedLine()}));
}

TEST_F(PackNGo, ListHandlingFails_DoneLineStillLogged) {
  Package({{"ProductList", {"..\\lib\\P.vgxXml"}}, {"ManufProd", {}}});
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kGetChildNodes, E_ACCESSDENIED);
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Start("Product"), Done("Product"), Start("MP"),
                                               Done("MP"), pk::UpdatingLine(), pk::UpdatedLine()}));
}

TEST_F(PackNGo, ProductsCopiedAttributesRewrittenCopiesUpdated) {
  Product("lib/A.vgxXml", AssemblyDocument({"sub/B.vgxXml"}));
  Product("lib/sub/B.vgxXml", AssemblyDocument({"..\\C.vgxXml"}));
  Product("lib/C.vgxXml", LeafDocument());
  Product("lib/R.vgxXml", LeafDocument());
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}, {"ResourceList", {"../lib/R.vgxXml"}}});
  EXPECT_EQ(utility_.PackNGo(soi_), E_FAIL);  // The last copy, R, refers to nothing.
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(1), Done("Product"), Start("Resource"), Count(1),
                   Done("Resource"), pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(peer_.CopiedXmlFiles(),
            (List{Out("A.vgxXml"), Out("B.vgxXml"), Out("C.vgxXml"), Out("R.vgxXml")}));
  EXPECT_EQ(OutFiles(),
            (Strings{"A.vgxGeom", "A.vgxXml", "B.vgxGeom", "B.vgxXml", "C.vgxGeom", "C.vgxXml",
                     "R.vgxGeom", "R.vgxXml", "SOI.vgxView", "SOI.vgxXml"}));
  EXPECT_EQ(pk::ListReferences(dir_.Sub("out/SOI.vgxXml"), "ProductList"), Strings{"A.vgxXml"});
  EXPECT_EQ(pk::ListReferences(dir_.Sub("out/SOI.vgxXml"), "ResourceList"), Strings{"R.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("out/A.vgxXml")), Strings{"B.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("out/B.vgxXml")), Strings{"C.vgxXml"});
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/C.vgxXml")), LeafDocument());
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("lib/A.vgxXml")), Strings{"sub/B.vgxXml"});
}

TEST_F(PackNGo, CallOrder_MainSavedThenViewThenCopiesInListOrder) {
  Product("lib/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
  Product("lib/B.vgxXml", AssemblyDocument({}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  nomtest::RecordingDomHook dom;
  utility_.PackNGo(soi_);
  Strings files;
  for (const nomtest::DomCallRecord& c : dom.records()) {
    if (c.call == DomCall::kOpenDocument) files.push_back("open " + c.argument);
    if (c.call == DomCall::kSaveDoc) files.push_back("save " + c.argument);
  }
  EXPECT_EQ(files, (Strings{"open " + mainPath_, "open " + M("lib/A.vgxXml"),
                            "open " + M("lib/B.vgxXml"), "save " + mainPath_, "open " + viewPath_,
                            "save " + viewPath_, "open " + Out("A.vgxXml"),
                            "save " + Out("A.vgxXml"), "open " + Out("B.vgxXml")}));
}

TEST_F(PackNGo, MainPathWithForwardSlashes_OpenedSavedAndResolvedWithBackslashes) {
  Product("lib/P.vgxXml", LeafDocument());
  Package({{"ProductList", {"..\\lib\\P.vgxXml"}}}, /*view=*/false);
  std::string slashed = mainPath_;
  for (char& c : slashed) c = (c == '\\') ? '/' : c;
  nomzub::RegisterPackage(slashed, "");
  nomtest::RecordingDomHook dom;
  utility_.PackNGo(soi_);
  const Strings opened = dom.Arguments(DomCall::kOpenDocument);
  ASSERT_FALSE(opened.empty());
  EXPECT_EQ(opened.front(), mainPath_);
  EXPECT_EQ(dom.Arguments(DomCall::kSaveDoc).front(), mainPath_);
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("P.vgxXml")});
  EXPECT_EQ(pk::ListReferences(dir_.Sub("out/SOI.vgxXml"), "ProductList"), Strings{"P.vgxXml"});
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Start("Product"), Count(1), Done("Product"),
                                               pk::UpdatingLine(), pk::UpdatedLine()}));
}

TEST_F(PackNGo, NoViewFile_MainStillSavedResultUnaffected) {
  Package({{"ProductList", {}}}, /*view=*/false);
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(dom.Arguments(DomCall::kOpenDocument), Strings{mainPath_});
  EXPECT_EQ(dom.Arguments(DomCall::kSaveDoc), Strings{mainPath_});
}

TEST_F(PackNGo, ViewFileFailsToOpen_NotSavedMainStillSavedResultUnaffected) {
  Package({{"ProductList", {}}}, /*view=*/false);
  nomzub::RegisterPackage(mainPath_, M("out/Missing.vgxView"));
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(dom.Arguments(DomCall::kOpenDocument), (Strings{mainPath_, M("out/Missing.vgxView")}));
  EXPECT_EQ(dom.Arguments(DomCall::kSaveDoc), Strings{mainPath_});
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("out/Missing.vgxView")));
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Start("Product"), Count(0), Done("Product"),
                                               pk::UpdatingLine(), pk::UpdatedLine()}));
}

TEST_F(PackNGo, ViewFileMalformed_LeftAsItWas) {
  Package({{"ProductList", {}}});
  nomtest::WriteFile(dir_.Sub("out/SOI.vgxView"), "<VgxView Document=");
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/SOI.vgxView")), "<VgxView Document=");
}

TEST_F(PackNGo, ViewFile_AdaptedAndSaved) {
  Package({{"ProductList", {}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(pk::ElementAttribute(dir_.Sub("out/SOI.vgxView"), "VgxView", "Document"), "SOI.vgxXml");
}

TEST_F(PackNGo, SharedResourcesOfMainDocument_CopiedAndRewritten) {
  nomtest::WriteFile(dir_.Sub("res/tex.png"), "png");
  nomtest::WriteFile(dir_.Sub("out/SOI.vgxXml"),
                     "<?xml version=\"1.0\"?>\n<VgxDocument>\n"
                     "  <CLitAssyGroup Ident=\"ProductList\"/>\n"
                     "  <Resource File=\"..\\res\\tex.png\"/>\n</VgxDocument>\n");
  nomzub::RegisterPackage(mainPath_, "");
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/tex.png")), "png");
  EXPECT_EQ(pk::ElementAttribute(dir_.Sub("out/SOI.vgxXml"), "Resource", "File"), "tex.png");
}

TEST_F(PackNGo, ThreeEntries_ZeroFailureZero_ReturnsZero) {
  Package({});
  nomtest::WriteFile(dir_.Sub("c/One.vgxXml"), AssemblyDocument({"x\\Y.vgxXml"}));
  nomtest::WriteFile(dir_.Sub("c/Two.vgxXml"), LeafDocument());
  nomtest::WriteFile(dir_.Sub("c/Three.vgxXml"), AssemblyDocument({"x/Z.vgxXml"}));
  peer_.CopiedXmlFiles() = {M("c/One.vgxXml"), M("c/Two.vgxXml"), M("c/Three.vgxXml")};
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(
      dom.Arguments(DomCall::kOpenDocument),
      (Strings{mainPath_, viewPath_, M("c/One.vgxXml"), M("c/Two.vgxXml"), M("c/Three.vgxXml")}));
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("c/One.vgxXml")), Strings{"Y.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("c/Three.vgxXml")), Strings{"Z.vgxXml"});
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{pk::UpdatingLine(), pk::UpdatedLine()}));
}

TEST_F(PackNGo, ThreeEntries_FailureLast_ReturnsThatFailure) {
  Package({});
  nomtest::WriteFile(dir_.Sub("c/One.vgxXml"), AssemblyDocument({"x\\Y.vgxXml"}));
  nomtest::WriteFile(dir_.Sub("c/Two.vgxXml"), AssemblyDocument({"x/Z.vgxXml"}));
  nomtest::WriteFile(dir_.Sub("c/Three.vgxXml"), LeafDocument());
  peer_.CopiedXmlFiles() = {M("c/One.vgxXml"), M("c/Two.vgxXml"), M("c/Three.vgxXml")};
  EXPECT_EQ(utility_.PackNGo(soi_), E_FAIL);
}

TEST_F(PackNGo, LastEntryCannotBeOpened_ReturnsOpeningResult) {
  Package({});
  nomtest::WriteFile(dir_.Sub("c/One.vgxXml"), AssemblyDocument({"x\\Y.vgxXml"}));
  peer_.CopiedXmlFiles() = {M("c/One.vgxXml"), M("c/Gone.vgxXml")};
  HRESULT opening;
  {
    NOMZUBDOMWrapper probe;
    opening = probe.OpenDocument(M("c/Gone.vgxXml"));
  }
  ASSERT_LT(opening, 0);
  EXPECT_EQ(utility_.PackNGo(soi_), opening);
}

TEST_F(PackNGo, CopiedListLeftAsFound) {
  Package({});
  nomtest::WriteFile(dir_.Sub("c/One.vgxXml"), AssemblyDocument({"x\\Y.vgxXml"}));
  peer_.CopiedXmlFiles() = {M("c/One.vgxXml"), M("c/One.vgxXml")};
  utility_.PackNGo(soi_);
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{M("c/One.vgxXml"), M("c/One.vgxXml")}));
}

TEST_F(PackNGo, ReadOnlyMainDocument_NothingCopied_ReturnsSaveResult) {
  Package({{"ProductList", {}}});
  pk::MakeReadOnly(dir_.Sub("out/SOI.vgxXml"));
  const HRESULT saving = MainSaveResult();
  ASSERT_LT(saving, 0);
  EXPECT_EQ(utility_.PackNGo(soi_), saving);
}

TEST_F(PackNGo, ReadOnlyMainDocument_WithCopies_ReturnsLastUpdateResult) {
  Product("lib/A.vgxXml", AssemblyDocument({"x\\Y.vgxXml"}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  pk::MakeReadOnly(dir_.Sub("out/SOI.vgxXml"));
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("out/A.vgxXml")), Strings{"Y.vgxXml"});
}

TEST_F(PackNGo, MainDocumentMissing_PassedOverReturnsSaveResult) {
  nomzub::RegisterPackage(mainPath_, "");
  HRESULT saving;
  {
    NOMZUBDOMWrapper probe;
    probe.OpenDocument(mainPath_);
    saving = probe.SaveDoc(mainPath_);
  }
  log_.clear();
  EXPECT_EQ(utility_.PackNGo(soi_), saving);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("out/SOI.vgxXml")));
}

TEST_F(PackNGo, ThreeCopies_ListedInCopyOrder_KeptByObjectCopy_EmptiedByAssignment) {
  Product("lib/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
  Product("lib/B.vgxXml", AssemblyDocument({""}));
  Product("lib/C.vgxXml", AssemblyDocument({""}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml", "..\\lib\\C.vgxXml"}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  const List expected{Out("A.vgxXml"), Out("B.vgxXml"), Out("C.vgxXml")};
  EXPECT_EQ(peer_.CopiedXmlFiles(), expected);
  NOMSOIUtility copy(utility_);
  NOMSOIUtilityTestPeer copyPeer(copy);
  EXPECT_EQ(copyPeer.CopiedXmlFiles(), expected);
  copy = NOMSOIUtility();
  EXPECT_EQ(copyPeer.CopiedXmlFiles(), List{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), expected);
}

TEST_F(PackNGo, SecondCall_RevisitsEntriesOfTheFirst) {
  Product("lib/A.vgxXml", AssemblyDocument({"x\\Y.vgxXml"}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  ASSERT_EQ(peer_.CopiedXmlFiles(), List{Out("A.vgxXml")});

  // A second package with nothing to copy; the copy of A gets a fresh path reference.
  nomtest::WriteFile(dir_.Sub("out/A.vgxXml"), AssemblyDocument({"..\\deep\\Again.vgxXml"}));
  nomtest::WriteFile(dir_.Sub("two/SOI.vgxXml"), MainDocument({}));
  nomzub::RegisterPackage(M("two/SOI.vgxXml"), "");
  EXPECT_EQ(utility_.PackNGo(M("two")), S_OK);
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("out/A.vgxXml")), Strings{"Again.vgxXml"});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("A.vgxXml")});
}

TEST_F(PackNGo, SoiDirectoryWithSlashes_PassedUnchangedToChildHandlingAndNotModified) {
  Product("lib/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
  Product("lib/B.vgxXml", AssemblyDocument({""}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  std::string slashed = soi_;
  for (char& c : slashed) c = (c == '\\') ? '/' : c;
  const std::string before = slashed;
  EXPECT_EQ(utility_.PackNGo(slashed), S_OK);
  EXPECT_EQ(slashed, before);
  // Child handling normalises its own copy; the nested check receives the argument as given.
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("A.vgxXml"), slashed + "\\B.vgxXml"}));
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("out/A.vgxXml")), Strings{"B.vgxXml"});
}

}  // namespace
