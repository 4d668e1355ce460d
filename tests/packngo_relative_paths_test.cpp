// Relative path update: UpdateRelativePaths cuts every reference of a copied product document to
// its file name and saves the document in place; FormatFilePath turns "/" into "\" in place,
// stepping over double-byte characters whole.

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
using nomtest::RecordingDomHook;
using nomzub::DomCall;
using pk::AssemblyDocument;
using pk::kAbsent;

class UpdateRelativePaths : public ::testing::Test {
 protected:
  // Writes a product document at a fresh native path and returns its module path.
  std::string Write(const std::string& contents) {
    nomtest::WriteFile(native_, contents);
    return nomtest::ZPath(native_);
  }

  // Writes a document with one element per reference, updates it and checks the references
  // afterwards and the result 0.
  void ExpectRewritten(const std::vector<std::string>& before,
                       const std::vector<std::string>& after) {
    const std::string path = Write(AssemblyDocument(before));
    EXPECT_EQ(peer_.UpdateRelativePaths(path), 0);
    EXPECT_EQ(pk::InstanceReferences(native_), after);
    EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
  }

  nomtest::LogCapture log_;
  nomtest::TempDir dir_;
  std::string native_ = dir_.Sub("out/Part.vgxXml");
  NOMSOIUtility utility_;
  NOMSOIUtilityTestPeer peer_{utility_};
};

TEST_F(UpdateRelativePaths, ThreeReferences_SlashClimbingBare_AllBecomeBareNamesAndSaved) {
  const std::string path =
      Write(AssemblyDocument({"sub/dir/Nut.vgxXml", "..\\Geo\\Bolt.vgxXml", "Washer.vgxXml"}));
  RecordingDomHook dom;
  EXPECT_EQ(peer_.UpdateRelativePaths(path), 0);
  EXPECT_EQ(pk::InstanceReferences(native_),
            (std::vector<std::string>{"Nut.vgxXml", "Bolt.vgxXml", "Washer.vgxXml"}));
  EXPECT_EQ(dom.Arguments(DomCall::kOpenDocument), std::vector<std::string>{path});
  EXPECT_EQ(dom.Arguments(DomCall::kSaveDoc), std::vector<std::string>{path});
}

TEST_F(UpdateRelativePaths, Example_ClimbingReference) {
  ExpectRewritten({"..\\Geo\\Part.vgxXml"}, {"Part.vgxXml"});
}

TEST_F(UpdateRelativePaths, Example_DriveAbsoluteWithForwardSlashes) {
  ExpectRewritten({"C:/Lib/Sub/Bolt.vgxXml"}, {"Bolt.vgxXml"});
}

TEST_F(UpdateRelativePaths, Example_BareName_Unchanged) {
  ExpectRewritten({"Bolt.vgxXml"}, {"Bolt.vgxXml"});
}

TEST_F(UpdateRelativePaths, Example_NetworkPath) {
  ExpectRewritten({"\\\\Server\\Share\\Nut.vgxXml"}, {"Nut.vgxXml"});
}

TEST_F(UpdateRelativePaths, Example_EmptyReference_StaysEmpty) {
  ExpectRewritten({"", "Bolt.vgxXml"}, {"", "Bolt.vgxXml"});
}

TEST_F(UpdateRelativePaths, Example_AbsentReference_WrittenEmpty) {
  ExpectRewritten({kAbsent, "Bolt.vgxXml"}, {"", "Bolt.vgxXml"});
}

TEST_F(UpdateRelativePaths, ElementWithoutReference_StillGetsAddAttributeCall) {
  const std::string path = Write(AssemblyDocument({kAbsent, "x\\Nut.vgxXml", kAbsent}));
  RecordingDomHook dom;
  EXPECT_EQ(peer_.UpdateRelativePaths(path), 0);
  EXPECT_EQ(dom.Arguments(DomCall::kAddAttribute),
            (std::vector<std::string>{"IsInstanceOf", "IsInstanceOf", "IsInstanceOf"}));
  EXPECT_EQ(dom.Arguments(DomCall::kGetAttribute),
            (std::vector<std::string>{"IsInstanceOf", "IsInstanceOf", "IsInstanceOf"}));
  EXPECT_EQ(pk::InstanceReferences(native_), (std::vector<std::string>{"", "Nut.vgxXml", ""}));
}

TEST_F(UpdateRelativePaths, ReferenceEndingInBackslash_BecomesEmpty) {
  ExpectRewritten({"C:\\Lib\\", "C:/Lib/"}, {"", ""});
}

TEST_F(UpdateRelativePaths, NestedGroups_EveryElementRewritten) {
  const std::string path = Write(
      "<?xml version=\"1.0\"?>\n<VgxDocument>\n"
      "  <CLitAssyGroup Ident=\"Outer\" IsInstanceOf=\"a\\Outer.vgxXml\">\n"
      "    <CLitAssyGroup Ident=\"Inner\" IsInstanceOf=\"b/c/Inner.vgxXml\"/>\n"
      "  </CLitAssyGroup>\n"
      "  <Other><CLitAssyGroup Ident=\"Deep\" IsInstanceOf=\"..\\..\\Deep.vgxXml\"/></Other>\n"
      "</VgxDocument>\n");
  EXPECT_EQ(peer_.UpdateRelativePaths(path), 0);
  EXPECT_EQ(pk::InstanceReferences(native_),
            (std::vector<std::string>{"Outer.vgxXml", "Inner.vgxXml", "Deep.vgxXml"}));
}

TEST_F(UpdateRelativePaths, OtherAttributesAndElements_Kept) {
  const std::string path = Write(
      "<?xml version=\"1.0\"?>\n<VgxDocument Name=\"Asm\">\n"
      "  <CLitAssyGroup Ident=\"One\" Name=\"First\" IsInstanceOf=\"x\\One.vgxXml\"/>\n"
      "  <Placement Matrix=\"1 0 0 1\"/>\n"
      "</VgxDocument>\n");
  EXPECT_EQ(peer_.UpdateRelativePaths(path), 0);
  EXPECT_EQ(pk::ElementAttribute(native_, "CLitAssyGroup", "Name"), "First");
  EXPECT_EQ(pk::ElementAttribute(native_, "CLitAssyGroup", "Ident"), "One");
  EXPECT_EQ(pk::ElementAttribute(native_, "Placement", "Matrix"), "1 0 0 1");
  EXPECT_EQ(pk::ElementAttribute(native_, "VgxDocument", "Name"), "Asm");
}

TEST_F(UpdateRelativePaths, NoGroupElement_ReturnsEFailAndLeavesFileByteForByte) {
  const std::string contents = pk::LeafDocument();
  const std::string path = Write(contents);
  RecordingDomHook dom;
  EXPECT_EQ(peer_.UpdateRelativePaths(path), static_cast<HRESULT>(0x80004005u));
  EXPECT_EQ(nomtest::ReadFile(native_), contents);
  EXPECT_TRUE(dom.Arguments(DomCall::kSaveDoc).empty());
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(UpdateRelativePaths, NoNodeListReturned_ReturnsEFailWithoutSaving) {
  const std::string contents = AssemblyDocument({"x\\One.vgxXml"});
  const std::string path = Write(contents);
  RecordingDomHook dom;
  dom.FailAll(DomCall::kGetNodes, E_ACCESSDENIED);
  EXPECT_EQ(peer_.UpdateRelativePaths(path), E_FAIL);
  EXPECT_TRUE(dom.Arguments(DomCall::kSaveDoc).empty());
  EXPECT_EQ(nomtest::ReadFile(native_), contents);
}

TEST_F(UpdateRelativePaths, AsksForGroupElementsByName) {
  const std::string path = Write(AssemblyDocument({"x\\One.vgxXml"}));
  RecordingDomHook dom;
  peer_.UpdateRelativePaths(path);
  EXPECT_EQ(dom.Arguments(DomCall::kGetNodes), std::vector<std::string>{"CLitAssyGroup"});
}

TEST_F(UpdateRelativePaths, MissingDocument_ReturnsOpeningResultAndWritesNothing) {
  const std::string path = nomtest::ZPath(dir_.Sub("out/Missing.vgxXml"));
  NOMZUBDOMWrapper probe;
  const HRESULT opening = probe.OpenDocument(path);
  ASSERT_LT(opening, 0);
  EXPECT_EQ(peer_.UpdateRelativePaths(path), opening);
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("out/Missing.vgxXml")));
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(UpdateRelativePaths, MalformedDocument_ReturnsOpeningResultAndLeavesFile) {
  const std::string contents = "<VgxDocument><CLitAssyGroup IsInstanceOf=\"a\\b.vgxXml\">";
  const std::string path = Write(contents);
  HRESULT opening;
  {
    NOMZUBDOMWrapper probe;
    opening = probe.OpenDocument(path);
  }
  ASSERT_LT(opening, 0);
  log_.clear();
  EXPECT_EQ(peer_.UpdateRelativePaths(path), opening);
  EXPECT_EQ(nomtest::ReadFile(native_), contents);
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(UpdateRelativePaths, OpeningFailsWithChosenCode_ReturnsThatCode) {
  const std::string contents = AssemblyDocument({"x\\One.vgxXml"});
  const std::string path = Write(contents);
  RecordingDomHook dom;
  const HRESULT chosen = static_cast<HRESULT>(0x80070020u);
  dom.FailNth(DomCall::kOpenDocument, path, 0, chosen);
  EXPECT_EQ(peer_.UpdateRelativePaths(path), chosen);
  EXPECT_TRUE(dom.Arguments(DomCall::kSaveDoc).empty());
  EXPECT_EQ(nomtest::ReadFile(native_), contents);
}

TEST_F(UpdateRelativePaths, ReadOnlyDocument_SaveFailsButResultIsZero) {
  const std::string contents = AssemblyDocument({"x\\One.vgxXml"});
  const std::string path = Write(contents);
  pk::MakeReadOnly(native_);
  EXPECT_EQ(peer_.UpdateRelativePaths(path), 0);
  EXPECT_EQ(nomtest::ReadFile(native_), contents);
  EXPECT_EQ(nomtest::ModuleLines(log_), std::vector<LogLine>{});
}

TEST_F(UpdateRelativePaths, SaveFailsWithChosenCode_ResultIsZero) {
  const std::string path = Write(AssemblyDocument({"x\\One.vgxXml"}));
  RecordingDomHook dom;
  dom.FailAll(DomCall::kSaveDoc, E_FAIL);
  EXPECT_EQ(peer_.UpdateRelativePaths(path), 0);
  EXPECT_EQ(dom.Arguments(DomCall::kSaveDoc), std::vector<std::string>{path});
}

TEST_F(UpdateRelativePaths, DoesNotTouchCopiedList) {
  peer_.CopiedXmlFiles() = {"Z:\\a\\One.vgxXml"};
  ExpectRewritten({"x\\One.vgxXml"}, {"One.vgxXml"});
  EXPECT_EQ(peer_.CopiedXmlFiles(), (std::deque<std::string>{"Z:\\a\\One.vgxXml"}));
}

TEST_F(UpdateRelativePaths, CodePage932_TrailByteIsNotASeparator) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  // U+8868 is 0x95 0x5C in code page 932 and E8 A1 A8 in UTF-8, the document's encoding.
  ExpectRewritten({"lib/\xE8\xA1\xA8/\xE8\xA1\xA8.vgxXml", "C:\\\xE8\xA1\xA8\\Nut.vgxXml"},
                  {"\xE8\xA1\xA8.vgxXml", "Nut.vgxXml"});
}

// --- FormatFilePath. ---

class FormatFilePath : public ::testing::Test {
 protected:
  std::string Format(std::string path) {
    peer_.FormatFilePath(path);
    return path;
  }

  NOMSOIUtility utility_;
  NOMSOIUtilityTestPeer peer_{utility_};
};

TEST_F(FormatFilePath, MixedSeparators_AllBecomeBackslashes) {
  EXPECT_EQ(Format("a/b\\c/d"), "a\\b\\c\\d");
}

TEST_F(FormatFilePath, Empty_StaysEmpty) { EXPECT_EQ(Format(""), ""); }

TEST_F(FormatFilePath, NoSlash_Unchanged) {
  EXPECT_EQ(Format("C:\\Pkg\\Part.vgxXml"), "C:\\Pkg\\Part.vgxXml");
}

TEST_F(FormatFilePath, OnlySlashes_AllReplaced_LengthKept) {
  EXPECT_EQ(Format("//x//"), "\\\\x\\\\");
}

TEST_F(FormatFilePath, Utf8_EveryByteItsOwnStep) {
  nomplat::ScopedCodePage codePage(65001);
  ASSERT_TRUE(codePage.ok());
  EXPECT_EQ(Format("\xE8\xA1\xA8/x/\xE8\xA1\xA8"), "\xE8\xA1\xA8\\x\\\xE8\xA1\xA8");
}

TEST_F(FormatFilePath, CodePage932_TrailByteUntouchedFollowingSlashReplaced) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  EXPECT_EQ(Format("lib/\x95\x5C/Part.vgxXml"), "lib\\\x95\x5C\\Part.vgxXml");
}

TEST_F(FormatFilePath, CodePage932_SlashAfterLeadByteIsPartOfTheCharacter) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  EXPECT_EQ(Format("a\x95/b/c"), "a\x95/b\\c");
}

TEST_F(FormatFilePath, CodePage932_LeadByteAtEnd_Unchanged) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  EXPECT_EQ(Format("/a\x95"), "\\a\x95");
}

TEST_F(FormatFilePath, CodePage1252_HighBytesAreSingleCharacters) {
  nomplat::ScopedCodePage codePage(1252);
  ASSERT_TRUE(codePage.ok());
  EXPECT_EQ(Format("a\x95/b"), "a\x95\\b");
}

}  // namespace
