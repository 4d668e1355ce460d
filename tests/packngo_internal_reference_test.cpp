// Internal reference check: CheckInternalReference follows the references of a product document,
// depth first, copying every referenced product document and its geometry file flat into the
// SOI directory and listing each document copy in _CopiedXmlFiles. Real files in a temporary
// directory; module paths reach them through the default "Z:" drive.

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "platform/codepage.h"
#include "services/NOMZUBDOMWrapper.h"
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
using pk::kAbsent;
using pk::LeafDocument;
using pk::OpenCall;
using pk::UnableToOpen;
using Strings = std::vector<std::string>;
using List = std::deque<std::string>;

class CheckInternalReference : public pk::PackNGoFixture {
 protected:
  CheckInternalReference() : PackNGoFixture("out") {}

  void SetUp() override { nomtest::WriteFile(dir_.Sub("out/.keep"), ""); }

  HRESULT Run(const std::string& docRel) { return peer_.CheckInternalReference(M(docRel), soi_); }
};

TEST_F(CheckInternalReference, NoGroupElement_CopiesNothingAndReturnsOpeningResult) {
  Product("lib/Asm.vgxXml", LeafDocument());
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(OutFiles(), Strings{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, OnlyEmptyOrAbsentReferences_CopiesNothing) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"", kAbsent, ""}));
  pk::FileCallRecorder files;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(files.calls(), Strings{});
  EXPECT_EQ(OutFiles(), Strings{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, OneReference_CopiesDocumentThenGeometry) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  pk::FileCallRecorder files;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(files.calls(), (Strings{OpenCall(M("lib/Part.vgxXml")),
                                    CopyCall(M("lib/Part.vgxXml"), Out("Part.vgxXml")),
                                    OpenCall(M("lib/Part.vgxGeom")),
                                    CopyCall(M("lib/Part.vgxGeom"), Out("Part.vgxGeom"))}));
  EXPECT_EQ(OutFiles(), (Strings{"Part.vgxGeom", "Part.vgxXml"}));
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/Part.vgxGeom")), "glb:lib/Part.vgxXml");
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part.vgxXml")});
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, MissingDocument_OneLineWithResolvedPathNothingCopiedOrListed) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"..\\parts\\Missing.vgxXml"}));
  pk::FileCallRecorder files;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            std::vector<LogLine>{UnableToOpen(M("parts/Missing.vgxXml"))});
  EXPECT_EQ(files.Copies(), Strings{});
  EXPECT_EQ(OutFiles(), Strings{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
}

TEST_F(CheckInternalReference, GeometryMissing_DocumentCopiedListedAndNestedStillWalked) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Sub.vgxXml"}));
  Product("lib/Sub.vgxXml", AssemblyDocument({"Leaf.vgxXml"}), /*geometry=*/false);
  Product("lib/Leaf.vgxXml", LeafDocument());
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{UnableToOpen(M("lib/Sub.vgxGeom"))});
  EXPECT_EQ(OutFiles(), (Strings{"Leaf.vgxGeom", "Leaf.vgxXml", "Sub.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Sub.vgxXml"), Out("Leaf.vgxXml")}));
}

TEST_F(CheckInternalReference, ForwardSlashReference_ResolvesLikeBackslashReference) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"sub/dir/Part.vgxXml"}));
  Product("lib/Bsm.vgxXml", AssemblyDocument({"sub\\dir\\Part.vgxXml"}));
  Product("lib/sub/dir/Part.vgxXml", LeafDocument());
  List slashList;
  Strings slashCalls;
  {
    pk::FileCallRecorder files;
    EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
    slashCalls = files.calls();
    slashList = peer_.CopiedXmlFiles();
  }
  peer_.CopiedXmlFiles().clear();
  pk::FileCallRecorder files;
  EXPECT_EQ(Run("lib/Bsm.vgxXml"), S_OK);
  EXPECT_EQ(slashCalls, files.calls());
  EXPECT_EQ(slashList, peer_.CopiedXmlFiles());
  EXPECT_EQ(slashList, List{Out("Part.vgxXml")});
  EXPECT_EQ(files.Copies(),
            (Strings{CopyCall(M("lib/sub/dir/Part.vgxXml"), Out("Part.vgxXml")),
                     CopyCall(M("lib/sub/dir/Part.vgxGeom"), Out("Part.vgxGeom"))}));
  EXPECT_EQ(OutFiles(), (Strings{"Part.vgxGeom", "Part.vgxXml"}));
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, SameDocumentTwice_CopiedTwiceListedTwice) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml", "..\\lib\\Part.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  pk::FileCallRecorder files;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  const std::string docCopy = CopyCall(M("lib/Part.vgxXml"), Out("Part.vgxXml"));
  const std::string geoCopy = CopyCall(M("lib/Part.vgxGeom"), Out("Part.vgxGeom"));
  EXPECT_EQ(files.Copies(), (Strings{docCopy, geoCopy, docCopy, geoCopy}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Part.vgxXml"), Out("Part.vgxXml")}));
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, TargetAlreadyPresent_Overwritten) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  nomtest::WriteFile(dir_.Sub("out/Part.vgxXml"), "stale document");
  nomtest::WriteFile(dir_.Sub("out/Part.vgxGeom"), "stale geometry");
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/Part.vgxXml")), LeafDocument());
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/Part.vgxGeom")), "glb:lib/Part.vgxXml");
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, ExtensionNotSixCharacters_CutAllTheSame) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.xml"}));
  nomtest::WriteFile(dir_.Sub("lib/Part.xml"), LeafDocument());
  pk::FileCallRecorder files;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{UnableToOpen(M("lib/PavgxGeom"))});
  EXPECT_EQ(files.Copies(), Strings{CopyCall(M("lib/Part.xml"), Out("Part.xml"))});
  EXPECT_EQ(OutFiles(), Strings{"Part.xml"});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part.xml")});
}

TEST_F(CheckInternalReference, ExtensionNotSixCharacters_CutGeometryCopiedWhenPresent) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.xml"}));
  nomtest::WriteFile(dir_.Sub("lib/Part.xml"), LeafDocument());
  nomtest::WriteFile(dir_.Sub("lib/PavgxGeom"), "odd geometry");
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(OutFiles(), (Strings{"Part.xml", "PavgxGeom"}));
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/PavgxGeom")), "odd geometry");
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, DocumentCannotBeOpened_ReturnsOpeningResultSilently) {
  HRESULT opening;
  {
    NOMZUBDOMWrapper probe;
    opening = probe.OpenDocument(M("lib/Missing.vgxXml"));
  }
  ASSERT_LT(opening, 0);
  log_.clear();
  pk::FileCallRecorder files;
  EXPECT_EQ(Run("lib/Missing.vgxXml"), opening);
  EXPECT_EQ(files.calls(), Strings{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, OpeningFailsWithChosenCode_ReturnsThatCode) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  nomtest::RecordingDomHook dom;
  const HRESULT chosen = static_cast<HRESULT>(0x80070020u);
  dom.FailAll(DomCall::kOpenDocument, chosen);
  EXPECT_EQ(Run("lib/Asm.vgxXml"), chosen);
  EXPECT_TRUE(dom.Arguments(DomCall::kGetNodes).empty());
  EXPECT_EQ(OutFiles(), Strings{});
}

TEST_F(CheckInternalReference, NoNodeList_ReturnsGetNodesResult) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  nomtest::RecordingDomHook dom;
  const HRESULT chosen = static_cast<HRESULT>(0x8007000Eu);
  dom.FailNth(DomCall::kGetNodes, "CLitAssyGroup", 0, chosen);
  EXPECT_EQ(Run("lib/Asm.vgxXml"), chosen);
  EXPECT_EQ(OutFiles(), Strings{});
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
}

TEST_F(CheckInternalReference, DocumentCopyFails_ReportedListedAndWalkGoesOn) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Sub.vgxXml"}));
  Product("lib/Sub.vgxXml", AssemblyDocument({"Leaf.vgxXml"}));
  Product("lib/Leaf.vgxXml", LeafDocument());
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCopyFile, 1, 5);
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(
      nomtest::ModuleLines(log_),
      std::vector<LogLine>{CopyError(M("lib/Sub.vgxXml"), Out("Sub.vgxXml"), "Access Denied")});
  EXPECT_EQ(OutFiles(), (Strings{"Leaf.vgxGeom", "Leaf.vgxXml", "Sub.vgxGeom"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Sub.vgxXml"), Out("Leaf.vgxXml")}));
}

TEST_F(CheckInternalReference, GeometryCopyFails_ReportedWithGeometryPaths) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml", "Other.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  Product("lib/Other.vgxXml", LeafDocument());
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCopyFile, 2, 6000);
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            std::vector<LogLine>{
                CopyError(M("lib/Part.vgxGeom"), Out("Part.vgxGeom"), "Encryption Failed")});
  EXPECT_EQ(OutFiles(), (Strings{"Other.vgxGeom", "Other.vgxXml", "Part.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Part.vgxXml"), Out("Other.vgxXml")}));
}

TEST_F(CheckInternalReference, DepthFirst_DocumentGeometryThenItsReferencesThenSibling) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"A.vgxXml", "B.vgxXml"}));
  Product("lib/A.vgxXml", AssemblyDocument({"A1.vgxXml"}));
  Product("lib/A1.vgxXml", AssemblyDocument({"A2.vgxXml"}));
  Product("lib/A2.vgxXml", LeafDocument());
  Product("lib/B.vgxXml", LeafDocument());
  pk::FileCallRecorder files;
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  Strings expected;
  for (const char* name : {"A", "A1", "A2", "B"}) {
    const std::string doc = std::string("lib/") + name + ".vgxXml";
    const std::string geo = std::string("lib/") + name + ".vgxGeom";
    expected.push_back(OpenCall(M(doc)));
    expected.push_back(CopyCall(M(doc), Out(std::string(name) + ".vgxXml")));
    expected.push_back(OpenCall(M(geo)));
    expected.push_back(CopyCall(M(geo), Out(std::string(name) + ".vgxGeom")));
  }
  EXPECT_EQ(files.calls(), expected);
  EXPECT_EQ(dom.Arguments(DomCall::kOpenDocument),
            (Strings{M("lib/Asm.vgxXml"), M("lib/A.vgxXml"), M("lib/A1.vgxXml"), M("lib/A2.vgxXml"),
                     M("lib/B.vgxXml")}));
  EXPECT_EQ(peer_.CopiedXmlFiles(),
            (List{Out("A.vgxXml"), Out("A1.vgxXml"), Out("A2.vgxXml"), Out("B.vgxXml")}));
}

TEST_F(CheckInternalReference, NestedReferences_ResolvedAgainstReferencedDocumentAndCopiedFlat) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"sub\\B.vgxXml"}));
  Product("lib/sub/B.vgxXml", AssemblyDocument({"..\\deep\\C.vgxXml"}));
  Product("lib/deep/C.vgxXml", AssemblyDocument({".\\D.vgxXml"}));
  Product("lib/deep/D.vgxXml", LeafDocument());
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(dom.Arguments(DomCall::kOpenDocument),
            (Strings{M("lib/Asm.vgxXml"), M("lib/sub/B.vgxXml"), M("lib/deep/C.vgxXml"),
                     M("lib/deep/D.vgxXml")}));
  EXPECT_EQ(OutFiles(),
            (Strings{"B.vgxGeom", "B.vgxXml", "C.vgxGeom", "C.vgxXml", "D.vgxGeom", "D.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("B.vgxXml"), Out("C.vgxXml"), Out("D.vgxXml")}));
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, SoiDirectoryWithForwardSlashes_TargetsKeepItAsGiven) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  std::string soi = soi_;
  for (char& c : soi) c = (c == '\\') ? '/' : c;
  pk::FileCallRecorder files;
  EXPECT_EQ(peer_.CheckInternalReference(M("lib/Asm.vgxXml"), soi), S_OK);
  EXPECT_EQ(files.Copies(), (Strings{CopyCall(M("lib/Part.vgxXml"), soi + "\\Part.vgxXml"),
                                     CopyCall(M("lib/Part.vgxGeom"), soi + "\\Part.vgxGeom")}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{soi + "\\Part.vgxXml"});
  EXPECT_EQ(OutFiles(), (Strings{"Part.vgxGeom", "Part.vgxXml"}));
}

TEST_F(CheckInternalReference, NestedDocumentUnreadable_FailureNotPassedUp) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Bad.vgxXml"}));
  Product("lib/Bad.vgxXml", "<VgxDocument><CLitAssyGroup");
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(OutFiles(), (Strings{"Bad.vgxGeom", "Bad.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Bad.vgxXml")});
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(CheckInternalReference, SourceDocumentsOnlyRead) {
  const std::string asm_ = AssemblyDocument({"Part.vgxXml"});
  Product("lib/Asm.vgxXml", asm_);
  Product("lib/Part.vgxXml", AssemblyDocument({"..\\lib\\Leaf.vgxXml"}));
  Product("lib/Leaf.vgxXml", LeafDocument());
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_TRUE(dom.Arguments(DomCall::kSaveDoc).empty());
  EXPECT_TRUE(dom.Arguments(DomCall::kAddAttribute).empty());
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("lib/Asm.vgxXml")), asm_);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("out/Part.vgxXml")),
            AssemblyDocument({"..\\lib\\Leaf.vgxXml"}));
}

TEST_F(CheckInternalReference, EarlierEntriesKept_NewOnesAppended) {
  Product("lib/Asm.vgxXml", AssemblyDocument({"Part.vgxXml"}));
  Product("lib/Part.vgxXml", LeafDocument());
  peer_.CopiedXmlFiles() = {"Z:\\earlier\\One.vgxXml"};
  EXPECT_EQ(Run("lib/Asm.vgxXml"), S_OK);
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{"Z:\\earlier\\One.vgxXml", Out("Part.vgxXml")}));
}

TEST_F(CheckInternalReference, CodePage932_DocumentInTrailByteFolder) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  // The folder's name is U+8868: E8 A1 A8 on disk (UTF-8), 0x95 0x5C in code page 932.
  Product("lib/\xE8\xA1\xA8/Asm.vgxXml", AssemblyDocument({"Part.vgxXml"}));
  Product("lib/\xE8\xA1\xA8/Part.vgxXml", LeafDocument());
  const std::string folder = M("lib") + "\\\x95\x5C";
  EXPECT_EQ(peer_.CheckInternalReference(folder + "\\Asm.vgxXml", soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
  EXPECT_EQ(OutFiles(), (Strings{"Part.vgxGeom", "Part.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Part.vgxXml")});
}

}  // namespace
