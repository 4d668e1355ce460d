// The pieces of an Entity element: AddElements (Name, IDPath, OID texts, converted from the code
// page), PoupulateOIDProcessIdentMap (views by operation OID) and AddViewInfo (View elements),
// each checked on a real document saved and read back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXIdentCache.h"
#include "support/driver_fakes.h"
#include "support/driver_xml.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

using nomtest::LeafLine;
using nomtest::ZPath;
using nomzub::DomCall;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs Entries(const NOMStringMultimap& map) { return Pairs(map.begin(), map.end()); }

std::string ViewLine(const std::string& ident, const std::string& name) {
  return "  View Ident=\"" + ident + "\" Name=\"" + name + "\"";
}

// A document whose root element stands for the entity being filled.
class EntityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(doc_.CreateDocument(), S_OK);
    ASSERT_EQ(doc_.CreateRootNode("Entity", &entity_), S_OK);
    ASSERT_NE(entity_, nullptr);
  }
  void TearDown() override {
    if (entity_ != nullptr) entity_->Release();
  }
  // Saves the document and describes what was written.
  std::vector<std::string> Saved() {
    const std::string path = dir_.Sub("entity.xml");
    EXPECT_EQ(doc_.SaveDoc(ZPath(path)), S_OK);
    return nomtest::DescribeXmlFile(path);
  }
  std::string SavedRaw() {
    Saved();
    return nomtest::ReadFile(dir_.Sub("entity.xml"));
  }

  nomtest::ScopedServiceState services_;
  nomtest::TempDir dir_;
  nomtest::LogCapture log_;
  NOMSOIUtility utility_;
  NOMSOIUtilityTestPeer peer_{utility_};
  NOMZUBDOMWrapper doc_;
  IXMLDOMNode* entity_ = nullptr;
};

// ---- AddElements ----

TEST_F(EntityTest, AddElements_ThreeValues_NameIDPathOIDInOrder) {
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "Bracket", "Root/A#Root/B#", "PRD-1"), S_OK);
  EXPECT_THAT(Saved(),
              ElementsAre("Entity", LeafLine(1, "Name", "Bracket"),
                          LeafLine(1, "IDPath", "Root/A#Root/B#"), LeafLine(1, "OID", "PRD-1")));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(EntityTest, AddElements_NullEntity_InvalidArgAndNoElement) {
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.AddElements(doc_, nullptr, "Bracket", "Root/A#", "PRD-1"), E_INVALIDARG);
  EXPECT_THAT(dom.Arguments(DomCall::kCreateChildNode), IsEmpty());
  EXPECT_THAT(Saved(), ElementsAre("Entity"));
}

TEST_F(EntityTest, AddElements_EmptyName_NameElementWithEmptyText) {
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "", "Root/A#", "PRD-1"), S_OK);
  EXPECT_THAT(dom.Arguments(DomCall::kCreateChildNode), ElementsAre("Name", "IDPath", "OID"));
  EXPECT_THAT(Saved(), ElementsAre("Entity", LeafLine(1, "Name", ""),
                                   LeafLine(1, "IDPath", "Root/A#"), LeafLine(1, "OID", "PRD-1")));
}

TEST_F(EntityTest, AddElements_AllValuesEmpty_ThreeEmptyElements) {
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "", "", ""), S_OK);
  EXPECT_THAT(Saved(), ElementsAre("Entity", "  Name", "  IDPath", "  OID"));
}

TEST_F(EntityTest, AddElements_WesternCodePage_ByteE9BecomesUE9) {
  nomtest::ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "Caf\xE9", "Root/\xE9t\xE9#", "OID-\xE9"), S_OK);
  EXPECT_THAT(Saved(), ElementsAre("Entity", LeafLine(1, "Name", "Caf\xC3\xA9"),
                                   LeafLine(1, "IDPath", "Root/\xC3\xA9t\xC3\xA9#"),
                                   LeafLine(1, "OID", "OID-\xC3\xA9")));
  EXPECT_THAT(SavedRaw(), HasSubstr("Caf\xC3\xA9"));
}

TEST_F(EntityTest, AddElements_CodePage932_DoubleByteValueConverted) {
  nomtest::ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  // Katakana "Test" and the kanji whose trail byte is 0x5C.
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "\x83\x65\x83\x58\x83\x67", "\x95\x5C#", "O"),
            S_OK);
  EXPECT_THAT(Saved(),
              ElementsAre("Entity", LeafLine(1, "Name", "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88"),
                          LeafLine(1, "IDPath", "\xE8\xA1\xA8#"), LeafLine(1, "OID", "O")));
}

TEST_F(EntityTest, AddElements_HashAmpersandLessThan_PassedThroughUnchanged) {
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "Nut & Bolt", "A<B#C&D#", "#<&>"), S_OK);
  EXPECT_THAT(Saved(), ElementsAre("Entity", LeafLine(1, "Name", "Nut & Bolt"),
                                   LeafLine(1, "IDPath", "A<B#C&D#"), LeafLine(1, "OID", "#<&>")));
  const std::string raw = SavedRaw();
  EXPECT_THAT(raw, HasSubstr("Nut &amp; Bolt"));
  EXPECT_THAT(raw, HasSubstr("A&lt;B#C&amp;D#"));
}

TEST_F(EntityTest, AddElements_NameChildCannotBeCreated_OthersWrittenAndZero) {
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kCreateChildNode, "Name", 1, E_FAIL);
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "Bracket", "Root/A#", "PRD-1"), S_OK);
  EXPECT_THAT(Saved(),
              ElementsAre("Entity", LeafLine(1, "IDPath", "Root/A#"), LeafLine(1, "OID", "PRD-1")));
}

TEST_F(EntityTest, AddElements_IDPathChildCannotBeCreated_OthersWrittenAndZero) {
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kCreateChildNode, "IDPath", 1, E_OUTOFMEMORY);
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "Bracket", "Root/A#", "PRD-1"), S_OK);
  EXPECT_THAT(Saved(),
              ElementsAre("Entity", LeafLine(1, "Name", "Bracket"), LeafLine(1, "OID", "PRD-1")));
}

TEST_F(EntityTest, AddElements_NoChildCanBeCreated_ZeroAndEntityEmpty) {
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kCreateChildNode, E_FAIL);
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "Bracket", "Root/A#", "PRD-1"), S_OK);
  EXPECT_THAT(dom.Arguments(DomCall::kCreateChildNode), ElementsAre("Name", "IDPath", "OID"));
  EXPECT_THAT(Saved(), ElementsAre("Entity"));
}

TEST_F(EntityTest, AddElements_EntityWithChildren_NewChildrenAppendedLast) {
  IXMLDOMNode* existing = nullptr;
  ASSERT_EQ(doc_.CreateChildNode(entity_, "Existing", &existing), S_OK);
  existing->Release();
  EXPECT_EQ(utility_.AddElements(doc_, entity_, "N", "P#", "O"), S_OK);
  EXPECT_THAT(Saved(), ElementsAre("Entity", "  Existing", LeafLine(1, "Name", "N"),
                                   LeafLine(1, "IDPath", "P#"), LeafLine(1, "OID", "O")));
}

// ---- PoupulateOIDProcessIdentMap ----

TEST_F(EntityTest, PopulateMap_CacheInAnyOrder_InvertedAscendingProcessIdentWithinOID) {
  nomzub::IdentCacheSetProcessIdentOID("V2", "OP1");
  nomzub::IdentCacheSetProcessIdentOID("V3", "OP0");
  nomzub::IdentCacheSetProcessIdentOID("V1", "OP1");
  NOMStringMultimap map;
  peer_.PoupulateOIDProcessIdentMap(map);
  EXPECT_EQ(Entries(map), (Pairs{{"OP0", "V3"}, {"OP1", "V1"}, {"OP1", "V2"}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(EntityTest, PopulateMap_CallerMapNotEmpty_NewEntriesAfterEqualKeys) {
  nomzub::IdentCacheSetProcessIdentOID("V2", "OP1");
  nomzub::IdentCacheSetProcessIdentOID("V1", "OP1");
  NOMStringMultimap map = {{"OP1", "ZZ"}, {"OP0", "X"}};
  peer_.PoupulateOIDProcessIdentMap(map);
  EXPECT_EQ(Entries(map), (Pairs{{"OP0", "X"}, {"OP1", "ZZ"}, {"OP1", "V1"}, {"OP1", "V2"}}));
}

TEST_F(EntityTest, PopulateMap_EmptyOIDAndEmptyProcessIdent_InsertedLikeAnyOther) {
  nomzub::IdentCacheSetProcessIdentOID("", "OP1");
  nomzub::IdentCacheSetProcessIdentOID("V9", "");
  NOMStringMultimap map;
  peer_.PoupulateOIDProcessIdentMap(map);
  EXPECT_EQ(Entries(map), (Pairs{{"", "V9"}, {"OP1", ""}}));
}

TEST_F(EntityTest, PopulateMap_EmptyCache_NothingAdded) {
  NOMStringMultimap map;
  peer_.PoupulateOIDProcessIdentMap(map);
  EXPECT_THAT(map, IsEmpty());
}

TEST_F(EntityTest, PopulateMap_NamesOnlyInCache_NothingAdded) {
  nomzub::IdentCacheSetProcessIdentName("V1", "Front");
  NOMStringMultimap map;
  peer_.PoupulateOIDProcessIdentMap(map);
  EXPECT_THAT(map, IsEmpty());
}

// ---- AddViewInfo ----

TEST_F(EntityTest, AddViewInfo_OperationNoProcessIdentRefersTo_NoView) {
  const NOMStringMultimap views = {{"OP2", "V1"}};
  const NOMStringMap names = {{"V1", "Front"}};
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(EntityTest, AddViewInfo_TwoNamedViewsCachedInReverse_ViewsV1ThenV2) {
  nomzub::IdentCacheSetProcessIdentOID("V2", "OP1");
  nomzub::IdentCacheSetProcessIdentOID("V1", "OP1");
  NOMStringMultimap views;
  peer_.PoupulateOIDProcessIdentMap(views);
  const NOMStringMap names = {{"V2", "Side"}, {"V1", "Front"}};
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity", ViewLine("V1", "Front"), ViewLine("V2", "Side")));
}

TEST_F(EntityTest, AddViewInfo_ProcessIdentWithoutName_NoViewForIt) {
  const NOMStringMultimap views = {{"OP1", "V1"}, {"OP1", "V2"}};
  const NOMStringMap names = {{"V2", "Side"}};
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity", ViewLine("V2", "Side")));
}

TEST_F(EntityTest, AddViewInfo_ProcessIdentNamedEmpty_ViewWithEmptyNameAttribute) {
  const NOMStringMultimap views = {{"OP1", "V1"}};
  const NOMStringMap names = {{"V1", ""}};
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity", ViewLine("V1", "")));
}

TEST_F(EntityTest, AddViewInfo_OIDMatchingIsCaseSensitive_op1DoesNotFindOP1) {
  const NOMStringMultimap views = {{"OP1", "V1"}};
  const NOMStringMap names = {{"V1", "Front"}};
  peer_.AddViewInfo(doc_, entity_, "op1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity"));
}

TEST_F(EntityTest, AddViewInfo_ProcessIdentTwiceForOneOID_TwoViews) {
  const NOMStringMultimap views = {{"OP1", "V1"}, {"OP1", "V1"}};
  const NOMStringMap names = {{"V1", "Front"}};
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity", ViewLine("V1", "Front"), ViewLine("V1", "Front")));
}

TEST_F(EntityTest, AddViewInfo_OnlyTheOperationsRange_NeighboursIgnored) {
  const NOMStringMultimap views = {{"OP0", "V0"}, {"OP1", "V1"}, {"OP10", "V10"}, {"OP2", "V2"}};
  const NOMStringMap names = {{"V0", "a"}, {"V1", "b"}, {"V10", "c"}, {"V2", "d"}};
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity", ViewLine("V1", "b")));
}

TEST_F(EntityTest, AddViewInfo_ViewCannotBeCreated_SkippedNextWritten) {
  const NOMStringMultimap views = {{"OP1", "V1"}, {"OP1", "V2"}};
  const NOMStringMap names = {{"V1", "Front"}, {"V2", "Side"}};
  nomtest::RecordingDomHook dom;
  dom.FailNth(DomCall::kCreateChildNode, "View", 1, E_FAIL);
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(Saved(), ElementsAre("Entity", ViewLine("V2", "Side")));
}

TEST_F(EntityTest, AddViewInfo_AttributesIdentThenName_AfterExistingChildren) {
  ASSERT_EQ(utility_.AddElements(doc_, entity_, "Drill", "Process/OP1", "OP1"), S_OK);
  const NOMStringMultimap views = {{"OP1", "PI-7"}};
  const NOMStringMap names = {{"PI-7", "Front & top"}};
  nomtest::RecordingDomHook dom;
  peer_.AddViewInfo(doc_, entity_, "OP1", views, names);
  EXPECT_THAT(dom.Arguments(DomCall::kAddAttribute), ElementsAre("Ident", "Name"));
  EXPECT_THAT(Saved(), ElementsAre("Entity", LeafLine(1, "Name", "Drill"),
                                   LeafLine(1, "IDPath", "Process/OP1"), LeafLine(1, "OID", "OP1"),
                                   ViewLine("PI-7", "Front & top")));
}

}  // namespace
