// The exported object itself: construction, copying, assignment and destruction, and the list of
// copied product documents that lives as long as the object and only ever grows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "NOMSOIUtility.h"
#include "services/NOMZUBVGXGen.h"
#include "support/driver_fakes.h"
#include "support/driver_package.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

using nomtest::LogCapture;
using nomtest::TempDir;
using nomtest::ZPath;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class UtilityObjectTest : public ::testing::Test {
 protected:
  // Three product documents in a source directory and a main document in the SOI directory whose
  // product list references them by drive-absolute path, in the order P2, P1, P3; registered as
  // the last generated package.
  void PrepareThreeProductPackage() {
    for (const char* name : {"P1", "P2", "P3"}) nomtest::WriteProduct(source_.path(), name);
    nomtest::WriteFile(
        soi_.Sub("SOI.vgxXml"),
        nomtest::MainDocument({{"ProductList",
                                {ZPath(source_.Sub("P2.vgxXml")), ZPath(source_.Sub("P1.vgxXml")),
                                 ZPath(source_.Sub("P3.vgxXml"))}}}));
    nomzub::RegisterPackage(ZPath(soi_.Sub("SOI.vgxXml")), "");
  }

  std::deque<std::string> ThreeTargets() const {
    return {ZPath(soi_.path()) + "\\P2.vgxXml", ZPath(soi_.path()) + "\\P1.vgxXml",
            ZPath(soi_.path()) + "\\P3.vgxXml"};
  }

  nomtest::ScopedServiceState services_;
  TempDir source_;
  TempDir soi_;
};

TEST(UtilityObjectTypeTest, Destructor_IsVirtual_DeletionThroughPointerIsComplete) {
  EXPECT_TRUE(std::has_virtual_destructor_v<NOMSOIUtility>);
  EXPECT_TRUE(std::is_polymorphic_v<NOMSOIUtility>);
  EXPECT_TRUE(std::is_copy_constructible_v<NOMSOIUtility>);
  EXPECT_TRUE(std::is_copy_assignable_v<NOMSOIUtility>);
}

TEST_F(UtilityObjectTest, DefaultConstruct_EmptyMembersNoLogNoServiceTouched) {
  LogCapture log;
  nomtest::RecordingConnector connector;
  nomtest::ScopedConnector installed(&connector);
  nomtest::FakeGenerator generator;
  nomtest::ScopedGeneratorBackend backend(&generator);
  nomtest::RecordingDomHook dom;
  {
    auto utility = std::make_unique<NOMSOIUtility>();
    NOMSOIUtilityTestPeer peer(*utility);
    EXPECT_EQ(peer.ExtractDirSuffix(), "");
    EXPECT_THAT(peer.CopiedXmlFiles(), IsEmpty());
  }
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(connector.calls(), IsEmpty());
  EXPECT_THAT(generator.calls(), IsEmpty());
  EXPECT_THAT(dom.records(), IsEmpty());
}

TEST_F(UtilityObjectTest, CopyConstruct_DefaultObject_CopyHasEmptyMembers) {
  NOMSOIUtility original;
  NOMSOIUtility copy(original);
  NOMSOIUtilityTestPeer peer(copy);
  EXPECT_EQ(peer.ExtractDirSuffix(), "");
  EXPECT_THAT(peer.CopiedXmlFiles(), IsEmpty());
}

TEST_F(UtilityObjectTest, CopyConstruct_FilledObject_CopiesSuffixAndListInOrder) {
  NOMSOIUtility original;
  NOMSOIUtilityTestPeer source(original);
  source.ExtractDirSuffix() = "_run2";
  source.CopiedXmlFiles() = {"Z:\\out\\B.vgxXml", "Z:\\out\\A.vgxXml", "Z:\\out\\B.vgxXml"};

  NOMSOIUtility copy(original);
  NOMSOIUtilityTestPeer peer(copy);
  EXPECT_EQ(peer.ExtractDirSuffix(), "_run2");
  EXPECT_THAT(peer.CopiedXmlFiles(),
              ElementsAre("Z:\\out\\B.vgxXml", "Z:\\out\\A.vgxXml", "Z:\\out\\B.vgxXml"));
  // The copy owns its own list.
  peer.CopiedXmlFiles().push_back("Z:\\out\\C.vgxXml");
  EXPECT_EQ(source.CopiedXmlFiles().size(), 3u);
}

TEST_F(UtilityObjectTest, Assign_FilledOverFilled_ReplacesBothMembersAndReturnsSelf) {
  NOMSOIUtility target;
  NOMSOIUtilityTestPeer targetPeer(target);
  targetPeer.ExtractDirSuffix() = "_old";
  targetPeer.CopiedXmlFiles() = {"Z:\\old\\X.vgxXml", "Z:\\old\\Y.vgxXml"};
  NOMSOIUtility source;
  NOMSOIUtilityTestPeer sourcePeer(source);
  sourcePeer.ExtractDirSuffix() = "_new";
  sourcePeer.CopiedXmlFiles() = {"Z:\\new\\A.vgxXml"};

  NOMSOIUtility& result = (target = source);
  EXPECT_EQ(&result, &target);
  EXPECT_EQ(targetPeer.ExtractDirSuffix(), "_new");
  EXPECT_THAT(targetPeer.CopiedXmlFiles(), ElementsAre("Z:\\new\\A.vgxXml"));
}

TEST_F(UtilityObjectTest, SelfAssignment_LeavesBothMembersUnchanged) {
  NOMSOIUtility utility;
  NOMSOIUtilityTestPeer peer(utility);
  peer.ExtractDirSuffix() = "_self";
  peer.CopiedXmlFiles() = {"Z:\\out\\A.vgxXml", "Z:\\out\\B.vgxXml"};
  NOMSOIUtility& alias = utility;

  NOMSOIUtility& result = (utility = alias);
  EXPECT_EQ(&result, &utility);
  EXPECT_EQ(peer.ExtractDirSuffix(), "_self");
  EXPECT_THAT(peer.CopiedXmlFiles(), ElementsAre("Z:\\out\\A.vgxXml", "Z:\\out\\B.vgxXml"));
}

TEST_F(UtilityObjectTest, PackNGoThreeProducts_ListHoldsTargetsCopyHoldsThemAssignEmptyClears) {
  PrepareThreeProductPackage();
  NOMSOIUtility utility;
  NOMSOIUtilityTestPeer peer(utility);
  utility.PackNGo(ZPath(soi_.path()));
  EXPECT_EQ(peer.CopiedXmlFiles(), ThreeTargets());

  NOMSOIUtility copy(utility);
  EXPECT_EQ(NOMSOIUtilityTestPeer(copy).CopiedXmlFiles(), ThreeTargets());

  NOMSOIUtility empty;
  utility = empty;
  EXPECT_THAT(peer.CopiedXmlFiles(), IsEmpty());
  EXPECT_EQ(NOMSOIUtilityTestPeer(copy).CopiedXmlFiles(), ThreeTargets());
}

TEST_F(UtilityObjectTest, TwoDumpsSameObject_SecondRelativePathUpdateRevisitsFirstEntries) {
  PrepareThreeProductPackage();
  TempDir secondSoi;
  nomtest::WriteFile(secondSoi.Sub("SOI.vgxXml"), nomtest::MainDocument({}));
  nomtest::FakeGenerator generator;
  nomtest::ScopedGeneratorBackend backend(&generator);
  NOMSOIUtility utility;
  NOMSOIUtilityTestPeer peer(utility);

  utility.DumpVGXPackage("input", ZPath(soi_.path()), false, "", "", false);
  ASSERT_EQ(peer.CopiedXmlFiles(), ThreeTargets());

  // A reference put into the first package's copy after its dump: only a revisit rewrites it.
  nomtest::WriteFile(soi_.Sub("P1.vgxXml"), nomtest::AssemblyDocument({"..\\deep\\Q.vgxXml"}));
  nomzub::RegisterPackage(ZPath(secondSoi.Sub("SOI.vgxXml")), "");
  utility.DumpVGXPackage("input", ZPath(secondSoi.path()), false, "", "", false);

  EXPECT_THAT(nomtest::InstanceReferences(soi_.Sub("P1.vgxXml")), ElementsAre("Q.vgxXml"));
  EXPECT_EQ(peer.CopiedXmlFiles(), ThreeTargets());
}

TEST_F(UtilityObjectTest, DestroyConnectedObject_ClosesNothingAndLogsNothing) {
  nomtest::RecordingConnector connector;
  nomtest::ScopedConnector installed(&connector);
  auto utility = std::make_unique<NOMSOIUtility>();
  ASSERT_EQ(utility->ConnectServer("user", "secret", "Plant1", ""), 1);
  connector.ClearCalls();

  LogCapture log;
  utility.reset();
  EXPECT_THAT(connector.calls(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(UtilityObjectTest, DestroyFilledObjectThroughPointer_LogsNothing) {
  LogCapture log;
  auto* utility = new NOMSOIUtility();
  NOMSOIUtilityTestPeer(*utility).CopiedXmlFiles() = {"Z:\\out\\A.vgxXml", "Z:\\out\\B.vgxXml"};
  NOMSOIUtilityTestPeer(*utility).ExtractDirSuffix() = "_x";
  delete utility;
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(UtilityObjectTest, CopyAndAssign_LeaveStaticMapsAlone) {
  NOMSOIUtilityTestPeer::OIDIdentPathsMap2()["OID1"] = {"P1"};
  NOMSOIUtilityTestPeer::OpOIDIdentPathMap2()["OP1"] = "P2";
  NOMSOIUtility a;
  NOMSOIUtility b(a);
  b = a;
  EXPECT_EQ(NOMSOIUtilityTestPeer::OIDIdentPathsMap2().size(), 1u);
  EXPECT_EQ(NOMSOIUtilityTestPeer::OpOIDIdentPathMap2().size(), 1u);
  EXPECT_EQ(NOMSOIUtilityTestPeer::OpOIDIdentPathMap2()["OP1"], "P2");
}

}  // namespace
