// Mapping.xml as GenerateMappingXML writes it from the identifier cache and the object factory,
// read back from disk: the exact element tree (order, texts, attributes and their order), the
// result code and the two log lines, with failures injected through the DOM hook.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "platform/codepage.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXIdentCache.h"
#include "support/driver_fakes.h"
#include "support/driver_xml.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

using nomtest::LeafLine;
using nomtest::LogLine;
using nomtest::ModuleLines;
using nomtest::ZPath;
using nomzub::DomCall;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const LogLine kIn{0, "Info:\t GenerateMappingXML -->"};
const LogLine kOut{0, "Info:\t <-- GenerateMappingXML"};
const char kRoot[] = "Root Schema=\"2\"";

struct View {
  std::string ident;
  std::string name;
};

// The lines of one Entity element as DescribeXmlFile writes them.
std::vector<std::string> Entity(const std::string& name, const std::string& identPath,
                                const std::string& oid, const std::vector<View>& views = {}) {
  std::vector<std::string> lines = {"  Entity", LeafLine(2, "Name", name),
                                    LeafLine(2, "IDPath", identPath), LeafLine(2, "OID", oid)};
  for (const View& v : views) {
    lines.push_back("    View Ident=\"" + v.ident + "\" Name=\"" + v.name + "\"");
  }
  return lines;
}

// The whole document: the root and the entities in order.
std::vector<std::string> Document(const std::vector<std::vector<std::string>>& entities) {
  std::vector<std::string> lines = {kRoot};
  for (const auto& e : entities) lines.insert(lines.end(), e.begin(), e.end());
  return lines;
}

class MappingTest : public ::testing::Test {
 protected:
  HRESULT Generate() { return utility_.GenerateMappingXML(ZPath(dir_.path())); }
  std::string MappingFile() const { return dir_.Sub("Mapping.xml"); }
  std::vector<std::string> Tree() const { return nomtest::DescribeXmlFile(MappingFile()); }

  nomtest::ScopedServiceState services_;
  nomtest::TempDir dir_;
  nomtest::FakeObjectFactory factory_;
  nomtest::ScopedObjectFactory installed_{&factory_};
  nomtest::LogCapture log_;
  NOMSOIUtility utility_;
};

// ---- Edge cases ----

TEST_F(MappingTest, EmptyCache_RootWithSchemaOnlyAndZero) {
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_THAT(Tree(), ElementsAre(kRoot));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
}

TEST_F(MappingTest, EmptyIdentPathSequence_EmptyIDPath) {
  nomzub::IdentCacheAddObject("OBJ-1");
  factory_.Add("OBJ-1", "Bracket");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Bracket", "", "OBJ-1")}));
}

TEST_F(MappingTest, ThreeIdentPaths_JoinedEachFollowedByHash) {
  nomzub::IdentCacheAddObjectPath("OBJ-1", "Root/A");
  nomzub::IdentCacheAddObjectPath("OBJ-1", "Root/C");
  nomzub::IdentCacheAddObjectPath("OBJ-1", "Root/B");
  factory_.Add("OBJ-1", "Bracket");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Bracket", "Root/A#Root/C#Root/B#", "OBJ-1")}));
}

TEST_F(MappingTest, OneIdentPath_FollowedByHash) {
  nomzub::IdentCacheAddObjectPath("OBJ-1", "Root/A");
  factory_.Add("OBJ-1", "Bracket");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Bracket", "Root/A#", "OBJ-1")}));
}

TEST_F(MappingTest, OperationIdentPath_WrittenWithoutTrailingHash) {
  nomzub::IdentCacheSetOperationPath("OP-1", "Process/Station1/OP-1");
  factory_.Add("OP-1", "Drill");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Drill", "Process/Station1/OP-1", "OP-1")}));
}

TEST_F(MappingTest, OIDUnknownToFactory_NameElementPresentAndEmpty) {
  nomzub::IdentCacheAddObjectPath("GHOST", "Root/G");
  nomzub::IdentCacheSetOperationPath("OP-GHOST", "Process/G");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(),
            Document({Entity("", "Root/G#", "GHOST"), Entity("", "Process/G", "OP-GHOST")}));
}

TEST_F(MappingTest, OperationSortsBeforeObject_ObjectEntitiesStillFirst) {
  nomzub::IdentCacheAddObjectPath("Z-OBJ", "Root/Z");
  nomzub::IdentCacheSetOperationPath("A-OP", "Process/A");
  factory_.Add("Z-OBJ", "Zed");
  factory_.Add("A-OP", "Assemble");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(),
            Document({Entity("Zed", "Root/Z#", "Z-OBJ"), Entity("Assemble", "Process/A", "A-OP")}));
}

TEST_F(MappingTest, KeysDifferingOnlyInCase_DistinctUpperCaseFirst) {
  nomzub::IdentCacheAddObjectPath("a", "Root/lower");
  nomzub::IdentCacheAddObjectPath("B", "Root/upper");
  nomzub::IdentCacheAddObjectPath("b", "Root/lower-b");
  nomzub::IdentCacheSetOperationPath("op1", "Process/lower");
  nomzub::IdentCacheSetOperationPath("OP1", "Process/upper");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("", "Root/upper#", "B"), Entity("", "Root/lower#", "a"),
                              Entity("", "Root/lower-b#", "b"), Entity("", "Process/upper", "OP1"),
                              Entity("", "Process/lower", "op1")}));
}

TEST_F(MappingTest, OperationWithoutProcessIdents_ThreeChildrenNoView) {
  nomzub::IdentCacheSetOperationPath("OP-1", "Process/OP-1");
  nomzub::IdentCacheSetProcessIdent("V1", "Front", "OP-2");
  factory_.Add("OP-1", "Drill");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Drill", "Process/OP-1", "OP-1")}));
}

TEST_F(MappingTest, ProcessIdentsAllWithoutName_NoView) {
  nomzub::IdentCacheSetOperationPath("OP-1", "Process/OP-1");
  nomzub::IdentCacheSetProcessIdentOID("V1", "OP-1");
  nomzub::IdentCacheSetProcessIdentOID("V2", "OP-1");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("", "Process/OP-1", "OP-1")}));
}

TEST_F(MappingTest, DirectoryCannotBeWritten_StillZeroAndBothLines) {
  nomzub::IdentCacheAddObjectPath("OBJ-1", "Root/A");
  const std::string missing = dir_.Sub("no/such/dir");
  EXPECT_EQ(utility_.GenerateMappingXML(ZPath(missing)), S_OK);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
  EXPECT_FALSE(nomtest::FileExists(missing + "/Mapping.xml"));
}

// ---- Failure injection ----

TEST_F(MappingTest, CreateDocumentFails_ItsCodeOnlyEntryLineNoFile) {
  nomzub::IdentCacheAddObjectPath("OBJ-1", "Root/A");
  nomtest::RecordingDomHook dom;
  const HRESULT code = static_cast<HRESULT>(0x80070020u);
  dom.FailAll(DomCall::kCreateDocument, code);
  EXPECT_EQ(Generate(), code);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn));
  EXPECT_FALSE(nomtest::FileExists(MappingFile()));
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), IsEmpty());
  EXPECT_THAT(dom.Arguments(DomCall::kCreateRootNode), IsEmpty());
}

TEST_F(MappingTest, NoRootElement_EFailOnlyEntryLineNoFile) {
  nomzub::IdentCacheAddObjectPath("OBJ-1", "Root/A");
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kCreateRootNode, E_OUTOFMEMORY);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn));
  EXPECT_FALSE(nomtest::FileExists(MappingFile()));
  EXPECT_THAT(dom.Arguments(DomCall::kCreateRootNode), ElementsAre("Root"));
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), IsEmpty());
}

TEST_F(MappingTest, ObjectEntityCannotBeCreated_SkippedSilently) {
  for (const char* oid : {"A", "B", "C"}) {
    nomzub::IdentCacheAddObjectPath(oid, std::string("Root/") + oid);
    factory_.Add(oid, std::string("Name-") + oid);
  }
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kCreateChildNode, "Entity", 2, E_FAIL);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Name-A", "Root/A#", "A"), Entity("Name-C", "Root/C#", "C")}));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
  EXPECT_THAT(factory_.requested_ids(), ElementsAre("A", "C"));
}

TEST_F(MappingTest, OperationEntityCannotBeCreated_SkippedOthersKeepViews) {
  nomzub::IdentCacheAddObjectPath("A", "Root/A");
  nomzub::IdentCacheSetOperationPath("OP1", "Process/OP1");
  nomzub::IdentCacheSetOperationPath("OP2", "Process/OP2");
  nomzub::IdentCacheSetProcessIdent("V1", "Front", "OP1");
  nomzub::IdentCacheSetProcessIdent("V2", "Side", "OP2");
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kCreateChildNode, "Entity", 2, E_FAIL);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("", "Root/A#", "A"),
                              Entity("", "Process/OP2", "OP2", {{"V2", "Side"}})}));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
}

TEST_F(MappingTest, ViewCannotBeCreated_SkippedNextViewWritten) {
  nomzub::IdentCacheSetOperationPath("OP1", "Process/OP1");
  nomzub::IdentCacheSetProcessIdent("V1", "Front", "OP1");
  nomzub::IdentCacheSetProcessIdent("V2", "Side", "OP1");
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kCreateChildNode, "View", 1, E_FAIL);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("", "Process/OP1", "OP1", {{"V2", "Side"}})}));
}

TEST_F(MappingTest, NameChildCannotBeCreated_EntityWithoutName) {
  nomzub::IdentCacheAddObjectPath("A", "Root/A");
  nomzub::IdentCacheAddObjectPath("B", "Root/B");
  factory_.Add("A", "Alpha");
  factory_.Add("B", "Beta");
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kCreateChildNode, "Name", 1, E_FAIL);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), (std::vector<std::string>{
                        kRoot, "  Entity", LeafLine(2, "IDPath", "Root/A#"),
                        LeafLine(2, "OID", "A"), "  Entity", LeafLine(2, "Name", "Beta"),
                        LeafLine(2, "IDPath", "Root/B#"), LeafLine(2, "OID", "B")}));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
}

TEST_F(MappingTest, FactoryMissing_EveryNameEmpty) {
  nomzub::IdentCacheAddObjectPath("A", "Root/A");
  nomzub::IdentCacheSetOperationPath("OP1", "Process/OP1");
  factory_.Add("A", "Alpha");
  factory_.Add("OP1", "Drill");
  nomzub::SetObjectFactory(nomzub::kNoObjectFactory);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("", "Root/A#", "A"), Entity("", "Process/OP1", "OP1")}));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
  EXPECT_THAT(factory_.requested_ids(), IsEmpty());
}

TEST_F(MappingTest, SchemaAttributeCannotBeWritten_StillZero) {
  nomzub::IdentCacheAddObjectPath("A", "Root/A");
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kAddAttribute, "Schema", 1, E_FAIL);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(),
            (std::vector<std::string>{"Root", "  Entity", LeafLine(2, "Name", ""),
                                      LeafLine(2, "IDPath", "Root/A#"), LeafLine(2, "OID", "A")}));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
}

// ---- The document as a whole ----

TEST_F(MappingTest, ObjectsAndOperationsWithViews_ExactTree) {
  nomzub::IdentCacheAddObjectPath("PRD-2", "Root/Frame/Bolt.1");
  nomzub::IdentCacheAddObjectPath("PRD-2", "Root/Frame/Bolt.2");
  nomzub::IdentCacheAddObjectPath("PRD-1", "Root/Frame");
  nomzub::IdentCacheSetOperationPath("OP-20", "Process/Station/OP-20");
  nomzub::IdentCacheSetOperationPath("OP-10", "Process/Station/OP-10");
  nomzub::IdentCacheSetProcessIdent("PI-2", "Side view", "OP-10");
  nomzub::IdentCacheSetProcessIdent("PI-1", "Front view", "OP-10");
  nomzub::IdentCacheSetProcessIdent("PI-3", "Top view", "OP-20");
  factory_.Add("PRD-1", "Frame");
  factory_.Add("PRD-2", "Bolt M8");
  factory_.Add("OP-10", "Mount frame");
  factory_.Add("OP-20", "Fasten bolts");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(
      Tree(),
      Document({Entity("Frame", "Root/Frame#", "PRD-1"),
                Entity("Bolt M8", "Root/Frame/Bolt.1#Root/Frame/Bolt.2#", "PRD-2"),
                Entity("Mount frame", "Process/Station/OP-10", "OP-10",
                       {{"PI-1", "Front view"}, {"PI-2", "Side view"}}),
                Entity("Fasten bolts", "Process/Station/OP-20", "OP-20", {{"PI-3", "Top view"}})}));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kOut));
}

TEST_F(MappingTest, TwoNamedViewsCachedInReverse_AscendingProcessIdent) {
  nomzub::IdentCacheSetOperationPath("OP1", "Process/OP1");
  nomzub::IdentCacheSetProcessIdent("V2", "Second", "OP1");
  nomzub::IdentCacheSetProcessIdent("V1", "First", "OP1");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(),
            Document({Entity("", "Process/OP1", "OP1", {{"V1", "First"}, {"V2", "Second"}})}));
}

TEST_F(MappingTest, ProcessIdentOfAnObjectOID_NoViewOnObjectEntity) {
  nomzub::IdentCacheAddObjectPath("A", "Root/A");
  nomzub::IdentCacheSetProcessIdent("V1", "Front", "A");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("", "Root/A#", "A")}));
}

TEST_F(MappingTest, OIDInBothMaps_TwoEntities) {
  nomzub::IdentCacheAddObjectPath("X", "Root/X");
  nomzub::IdentCacheSetOperationPath("X", "Process/X");
  factory_.Add("X", "Twin");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Twin", "Root/X#", "X"), Entity("Twin", "Process/X", "X")}));
}

TEST_F(MappingTest, NamesAskedPerEntity_WithNullOutPointer) {
  nomzub::IdentCacheAddObjectPath("B", "Root/B");
  nomzub::IdentCacheAddObjectPath("A", "Root/A");
  nomzub::IdentCacheSetOperationPath("OP1", "Process/OP1");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_THAT(factory_.requested_ids(), ElementsAre("A", "B", "OP1"));
  EXPECT_TRUE(factory_.out_pointers_were_null());
}

TEST_F(MappingTest, SavedOnceAsDirectoryBackslashMappingXml) {
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), ElementsAre(ZPath(dir_.path()) + "\\Mapping.xml"));
  EXPECT_THAT(dom.Arguments(DomCall::kCreateRootNode), ElementsAre("Root"));
}

TEST_F(MappingTest, AfterCall_StaticMapsHoldTheCacheContents) {
  nomzub::IdentCacheAddObjectPath("A", "Root/A1");
  nomzub::IdentCacheAddObjectPath("A", "Root/A2");
  nomzub::IdentCacheSetOperationPath("OP1", "Process/OP1");
  EXPECT_EQ(Generate(), S_OK);
  const NOMOIDIdentPathsMap& objects = NOMSOIUtilityTestPeer::OIDIdentPathsMap2();
  ASSERT_EQ(objects.size(), 1u);
  EXPECT_THAT(objects.at("A"), ElementsAre("Root/A1", "Root/A2"));
  const NOMStringMap& operations = NOMSOIUtilityTestPeer::OpOIDIdentPathMap2();
  ASSERT_EQ(operations.size(), 1u);
  EXPECT_EQ(operations.at("OP1"), "Process/OP1");
}

TEST_F(MappingTest, ValuesNeedingEscapes_WrittenEscapedReadBackUnchanged) {
  nomzub::IdentCacheAddObjectPath("O&1", "Root/<A>#");
  factory_.Add("O&1", "Nut & \"Bolt\" <M8>");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Nut & \"Bolt\" <M8>", "Root/<A>##", "O&1")}));
  const std::string raw = nomtest::ReadFile(MappingFile());
  EXPECT_THAT(raw, HasSubstr("&amp;"));
  EXPECT_THAT(raw, HasSubstr("&lt;"));
}

// ---- Code pages ----

TEST_F(MappingTest, CodePage1252_ByteE9BecomesUE9InUtf8File) {
  nomtest::ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  nomzub::IdentCacheAddObjectPath("OID-\xE9", "Root/Caf\xE9");
  factory_.Add("OID-\xE9", "Caf\xE9");
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity("Caf\xC3\xA9", "Root/Caf\xC3\xA9#", "OID-\xC3\xA9")}));
  const std::string raw = nomtest::ReadFile(MappingFile());
  EXPECT_THAT(raw, HasSubstr("Caf\xC3\xA9"));
  EXPECT_THAT(raw, ::testing::Not(HasSubstr("Caf\xE9<")));
}

TEST_F(MappingTest, CodePage932_DoubleByteNameSurvivesRoundTrip) {
  nomtest::ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  // "Test" in katakana followed by the kanji for "table", whose trail byte is 0x5C.
  const std::string name = "\x83\x65\x83\x58\x83\x67\x95\x5C";
  const std::string utf8 = "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88\xE8\xA1\xA8";
  nomzub::IdentCacheAddObjectPath("OID-1", "Root\\" + name);
  factory_.Add("OID-1", name);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(Tree(), Document({Entity(utf8, "Root\\" + utf8 + "#", "OID-1")}));
  EXPECT_EQ(nomplat::Utf8ToAcp(utf8), name);
}

TEST_F(MappingTest, CodePage932_SingleByteA1SortsBefore8140) {
  nomtest::ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  nomzub::IdentCacheAddObjectPath("\x81\x40", "Root/Space");
  nomzub::IdentCacheAddObjectPath("\xA1", "Root/Stop");
  nomzub::IdentCacheSetOperationPath("\x81\x40", "Process/Space");
  nomzub::IdentCacheSetOperationPath("\xA1", "Process/Stop");
  EXPECT_EQ(Generate(), S_OK);
  // U+FF61 (halfwidth ideographic full stop) before U+3000 (ideographic space).
  EXPECT_EQ(Tree(), Document({Entity("", "Root/Stop#", "\xEF\xBD\xA1"),
                              Entity("", "Root/Space#", "\xE3\x80\x80"),
                              Entity("", "Process/Stop", "\xEF\xBD\xA1"),
                              Entity("", "Process/Space", "\xE3\x80\x80")}));
}

}  // namespace
