// The process-wide identifier cache and its getters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <utility>

#include "services/NOMZUBVGXIdentCache.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class IdentCacheTest : public ::testing::Test {
 protected:
  IdentCacheTest() { nomzub::IdentCacheClear(); }
  ~IdentCacheTest() override { nomzub::IdentCacheClear(); }
  NOMZUBVGXIdentCache cache_;
};

using Paths = std::deque<std::string>;

TEST_F(IdentCacheTest, Empty_GettersGiveEmptyMaps) {
  NOMOIDIdentPathsMap paths;
  NOMStringMap operations, names, oids;
  EXPECT_EQ(NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths), S_OK);
  EXPECT_EQ(NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(operations), S_OK);
  EXPECT_EQ(cache_.GetProcessIdentNameMap(names), S_OK);
  EXPECT_EQ(cache_.GetProcessIdentOIDMap(oids), S_OK);
  EXPECT_THAT(paths, IsEmpty());
  EXPECT_THAT(operations, IsEmpty());
  EXPECT_THAT(names, IsEmpty());
  EXPECT_THAT(oids, IsEmpty());
}

TEST_F(IdentCacheTest, AddObjectPath_KeepsPathsInInsertionOrder) {
  nomzub::IdentCacheAddObjectPath("OID2", "P/B");
  nomzub::IdentCacheAddObjectPath("OID1", "P/Z");
  nomzub::IdentCacheAddObjectPath("OID1", "P/A");
  nomzub::IdentCacheAddObjectPath("OID1", "P/A");
  NOMOIDIdentPathsMap paths;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  EXPECT_THAT(paths,
              ElementsAre(Pair("OID1", Paths{"P/Z", "P/A", "P/A"}), Pair("OID2", Paths{"P/B"})));
}

TEST_F(IdentCacheTest, AddObject_RecordsEmptySequenceAndKeepsExistingPaths) {
  nomzub::IdentCacheAddObject("OID1");
  nomzub::IdentCacheAddObjectPath("OID2", "P/B");
  nomzub::IdentCacheAddObject("OID2");
  NOMOIDIdentPathsMap paths;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  EXPECT_THAT(paths, ElementsAre(Pair("OID1", Paths{}), Pair("OID2", Paths{"P/B"})));
}

TEST_F(IdentCacheTest, Getter_ReplacesCallerMapContents) {
  nomzub::IdentCacheAddObjectPath("OID1", "P/A");
  nomzub::IdentCacheSetOperationPath("OP1", "P/Op");
  NOMOIDIdentPathsMap paths{{"stale", {"x"}}, {"OID1", {"old"}}};
  NOMStringMap operations{{"stale", "x"}};
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(operations);
  EXPECT_THAT(paths, ElementsAre(Pair("OID1", Paths{"P/A"})));
  EXPECT_THAT(operations, ElementsAre(Pair("OP1", "P/Op")));
}

TEST_F(IdentCacheTest, Getter_HandsOutACopy) {
  nomzub::IdentCacheAddObjectPath("OID1", "P/A");
  NOMOIDIdentPathsMap first;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(first);
  first["OID1"].push_back("changed");
  first["OID9"];
  NOMOIDIdentPathsMap second;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(second);
  EXPECT_THAT(second, ElementsAre(Pair("OID1", Paths{"P/A"})));
}

TEST_F(IdentCacheTest, SetOperationPath_LastValueWins) {
  nomzub::IdentCacheSetOperationPath("OP1", "P/Old");
  nomzub::IdentCacheSetOperationPath("OP1", "P/New");
  nomzub::IdentCacheSetOperationPath("OP0", "P/Zero");
  NOMStringMap operations;
  NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(operations);
  EXPECT_THAT(operations, ElementsAre(Pair("OP0", "P/Zero"), Pair("OP1", "P/New")));
}

TEST_F(IdentCacheTest, SetProcessIdent_FillsNameAndOidMaps) {
  nomzub::IdentCacheSetProcessIdent("V2", "Second view", "OP1");
  nomzub::IdentCacheSetProcessIdent("V1", "First view", "OP1");
  NOMStringMap names, oids;
  cache_.GetProcessIdentNameMap(names);
  cache_.GetProcessIdentOIDMap(oids);
  EXPECT_THAT(names, ElementsAre(Pair("V1", "First view"), Pair("V2", "Second view")));
  EXPECT_THAT(oids, ElementsAre(Pair("V1", "OP1"), Pair("V2", "OP1")));
}

TEST_F(IdentCacheTest, SeparateProcessRelations_FillOneMapEach) {
  nomzub::IdentCacheSetProcessIdentName("V1", "");
  nomzub::IdentCacheSetProcessIdentOID("V2", "OP2");
  NOMStringMap names, oids;
  cache_.GetProcessIdentNameMap(names);
  cache_.GetProcessIdentOIDMap(oids);
  EXPECT_THAT(names, ElementsAre(Pair("V1", "")));
  EXPECT_THAT(oids, ElementsAre(Pair("V2", "OP2")));
}

TEST_F(IdentCacheTest, Keys_OrderedByteWiseAndCaseSensitive) {
  nomzub::IdentCacheSetOperationPath("a", "1");
  nomzub::IdentCacheSetOperationPath("B", "2");
  nomzub::IdentCacheSetOperationPath("A", "3");
  NOMStringMap operations;
  NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(operations);
  EXPECT_THAT(operations, ElementsAre(Pair("A", "3"), Pair("B", "2"), Pair("a", "1")));
}

TEST_F(IdentCacheTest, Clear_EmptiesEveryMap) {
  nomzub::IdentCacheAddObjectPath("OID1", "P/A");
  nomzub::IdentCacheSetOperationPath("OP1", "P/Op");
  nomzub::IdentCacheSetProcessIdent("V1", "View", "OP1");
  nomzub::IdentCacheClear();
  NOMOIDIdentPathsMap paths;
  NOMStringMap operations, names, oids;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(operations);
  cache_.GetProcessIdentNameMap(names);
  cache_.GetProcessIdentOIDMap(oids);
  EXPECT_THAT(paths, IsEmpty());
  EXPECT_THAT(operations, IsEmpty());
  EXPECT_THAT(names, IsEmpty());
  EXPECT_THAT(oids, IsEmpty());
}

}  // namespace
