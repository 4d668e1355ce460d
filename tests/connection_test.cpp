// ConnectServer and DisconnectServer against a recording connector: the calls made, in order and
// with their arguments, the exact log lines with their levels, and the results. Only E_FAIL
// counts as a failed step; any other code, failure or not, lets the sequence go on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "support/driver_fakes.h"
#include "support/test_support.h"

namespace {

using nomtest::LogLine;
using nomtest::RecordingConnector;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kConnectIn[] = "Info:\t NOMSOIUtility::ConnectServer -->";
const char kConnectOut[] = "Info:\t NOMSOIUtility::ConnectServer <--";
const char kDisconnectIn[] = "Info:\t NOMSOIUtility::DisconnectServer -->";
const char kDisconnectOut[] = "Info:\t NOMSOIUtility::DisconnectServer <--";

// The five calls of a ConnectServer("user", "secret", "Plant1", "kind=op") that passes every step.
const std::vector<std::string> kFullConnect = {"SetDataSource(0)", "SetLogin(user,secret)",
                                               "Connect(2)", "SetProject(Plant1)",
                                               "SetFilters(kind=op)"};

class ConnectionTest : public ::testing::Test {
 protected:
  BOOL Connect() { return utility_.ConnectServer("user", "secret", "Plant1", "kind=op"); }

  // The connector fails `op` with code; the sequence must stop there with errorLine.
  void ExpectStopsAt(const std::string& op, const std::string& errorLine, size_t callsMade) {
    connector_.SetResult(op, E_FAIL);
    EXPECT_EQ(Connect(), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kConnectIn}, LogLine{0, errorLine},
                                          LogLine{0, kConnectOut}));
    std::vector<std::string> expected(kFullConnect.begin(), kFullConnect.begin() + callsMade);
    EXPECT_EQ(connector_.calls(), expected);
  }

  // The connector returns code at `op`; the sequence must go on and succeed.
  void ExpectPassesWith(const std::string& op, HRESULT code) {
    connector_.SetResult(op, code);
    EXPECT_EQ(Connect(), 1);
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kConnectIn}, LogLine{0, kConnectOut}));
    EXPECT_EQ(connector_.calls(), kFullConnect);
  }

  nomtest::LogCapture log_;
  RecordingConnector connector_;
  nomtest::ScopedConnector installed_{&connector_};
  NOMSOIUtility utility_;
};

// ---- Every step passes ----

TEST_F(ConnectionTest, ConnectServer_AllStepsPass_ReturnsOneWithEntryAndExitLines) {
  EXPECT_EQ(Connect(), 1);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kConnectIn}, LogLine{0, kConnectOut}));
  EXPECT_EQ(connector_.calls(), kFullConnect);
}

TEST_F(ConnectionTest, ConnectServer_EmptyArguments_PassedThroughUnchecked) {
  EXPECT_EQ(utility_.ConnectServer("", "", "", ""), 1);
  EXPECT_EQ(connector_.calls(),
            (std::vector<std::string>{"SetDataSource(0)", "SetLogin(,)", "Connect(2)",
                                      "SetProject()", "SetFilters()"}));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kConnectIn}, LogLine{0, kConnectOut}));
}

TEST_F(ConnectionTest, ConnectServer_ArgumentsWithBlanksAndTabs_PassedThroughUnchanged) {
  EXPECT_EQ(utility_.ConnectServer(" u ", "p\tw ", "Plant 1 ", "a = 1 "), 1);
  EXPECT_EQ(connector_.calls(),
            (std::vector<std::string>{"SetDataSource(0)", "SetLogin( u ,p\tw )", "Connect(2)",
                                      "SetProject(Plant 1 )", "SetFilters(a = 1 )"}));
}

TEST_F(ConnectionTest, ConnectServer_CalledTwice_RepeatsTheWholeSequence) {
  EXPECT_EQ(Connect(), 1);
  EXPECT_EQ(Connect(), 1);
  std::vector<std::string> twice = kFullConnect;
  twice.insert(twice.end(), kFullConnect.begin(), kFullConnect.end());
  EXPECT_EQ(connector_.calls(), twice);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kConnectIn}, LogLine{0, kConnectOut},
                                        LogLine{0, kConnectIn}, LogLine{0, kConnectOut}));
}

// ---- Failure table: E_FAIL at each step stops the sequence ----

TEST_F(ConnectionTest, ConnectServer_NoConnectorSingleton_TwoLinesAndZero) {
  nomzub::SetConnector(nomzub::kNoConnector);
  EXPECT_EQ(Connect(), 0);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kConnectIn}, LogLine{0, kConnectOut}));
  EXPECT_THAT(connector_.calls(), IsEmpty());
}

TEST_F(ConnectionTest, ConnectServer_SetLoginReturnsEFail_LoginErrorAndZero) {
  ExpectStopsAt("SetLogin", "****** ERROR:\t FAILED to Login", 2);
}

TEST_F(ConnectionTest, ConnectServer_ConnectReturnsEFail_ConnectErrorAndZero) {
  ExpectStopsAt("Connect", "****** ERROR:\t FAILED to Connect", 3);
}

TEST_F(ConnectionTest, ConnectServer_SetProjectReturnsEFail_ProjectErrorAndZero) {
  ExpectStopsAt("SetProject", "****** ERROR:\t FAILED to SetProject", 4);
}

TEST_F(ConnectionTest, ConnectServer_SetFiltersReturnsEFail_FilterErrorAndZero) {
  ExpectStopsAt("SetFilters", "****** ERROR:\t FAILED to Set filter string", 5);
}

TEST_F(ConnectionTest, ConnectServer_SetDataSourceReturnsEFail_ResultIgnored) {
  ExpectPassesWith("SetDataSource", E_FAIL);
}

// ---- The same steps with access denied: not E_FAIL, so they count as passed ----

TEST_F(ConnectionTest, ConnectServer_SetLoginAccessDenied_CountsAsSuccess) {
  ExpectPassesWith("SetLogin", E_ACCESSDENIED);
}

TEST_F(ConnectionTest, ConnectServer_ConnectAccessDenied_CountsAsSuccess) {
  ExpectPassesWith("Connect", E_ACCESSDENIED);
}

TEST_F(ConnectionTest, ConnectServer_SetProjectAccessDenied_CountsAsSuccess) {
  ExpectPassesWith("SetProject", E_ACCESSDENIED);
}

TEST_F(ConnectionTest, ConnectServer_SetFiltersAccessDenied_CountsAsSuccess) {
  ExpectPassesWith("SetFilters", E_ACCESSDENIED);
}

TEST_F(ConnectionTest, ConnectServer_AccessDeniedAtEveryStep_StillReturnsOne) {
  for (const char* op : {"SetDataSource", "SetLogin", "Connect", "SetProject", "SetFilters"}) {
    connector_.SetResult(op, E_ACCESSDENIED);
  }
  EXPECT_EQ(Connect(), 1);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kConnectIn}, LogLine{0, kConnectOut}));
  EXPECT_EQ(connector_.calls(), kFullConnect);
}

TEST_F(ConnectionTest, ConnectServer_SetLoginInvalidArgument_GoesOnToConnect) {
  ExpectPassesWith("SetLogin", E_INVALIDARG);
}

TEST_F(ConnectionTest, ConnectServer_ConnectOtherFailureCode_GoesOnToProject) {
  ExpectPassesWith("Connect", static_cast<HRESULT>(0x80004004u));
}

TEST_F(ConnectionTest, ConnectServer_SetProjectPositiveCode_GoesOnToFilters) {
  ExpectPassesWith("SetProject", S_FALSE);
}

// ---- Disconnection ----

TEST_F(ConnectionTest, DisconnectServer_Connected_CleansUpBeforeDisconnecting) {
  EXPECT_EQ(utility_.DisconnectServer(), 1);
  EXPECT_EQ(connector_.calls(), (std::vector<std::string>{"Cleanup(1)", "Disconnect(0)"}));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kDisconnectIn}, LogLine{0, kDisconnectOut}));
}

TEST_F(ConnectionTest, DisconnectServer_CleanupAndDisconnectFail_StillReturnsOne) {
  connector_.SetResult("Cleanup", E_FAIL);
  connector_.SetResult("Disconnect", E_FAIL);
  EXPECT_EQ(utility_.DisconnectServer(), 1);
  EXPECT_EQ(connector_.calls(), (std::vector<std::string>{"Cleanup(1)", "Disconnect(0)"}));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kDisconnectIn}, LogLine{0, kDisconnectOut}));
}

TEST_F(ConnectionTest, DisconnectServer_NoConnectorSingleton_TwoLinesAndOneWithoutCalls) {
  nomzub::SetConnector(nomzub::kNoConnector);
  EXPECT_EQ(utility_.DisconnectServer(), 1);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{0, kDisconnectIn}, LogLine{0, kDisconnectOut}));
  EXPECT_THAT(connector_.calls(), IsEmpty());
}

TEST_F(ConnectionTest, DisconnectServer_WithoutPriorConnect_StillCleansUpAndDisconnects) {
  EXPECT_EQ(utility_.DisconnectServer(), 1);
  EXPECT_EQ(connector_.calls(), (std::vector<std::string>{"Cleanup(1)", "Disconnect(0)"}));
}

TEST_F(ConnectionTest, ConnectServer_SetProjectFailsThenDisconnect_NothingUndoneUntilDisconnect) {
  connector_.SetResult("SetProject", E_FAIL);
  EXPECT_EQ(Connect(), 0);
  // The failed connection left login and connection in place: no clean-up of its own.
  EXPECT_EQ(connector_.calls(),
            (std::vector<std::string>{"SetDataSource(0)", "SetLogin(user,secret)", "Connect(2)",
                                      "SetProject(Plant1)"}));
  EXPECT_EQ(utility_.DisconnectServer(), 1);
  EXPECT_EQ(connector_.calls(),
            (std::vector<std::string>{"SetDataSource(0)", "SetLogin(user,secret)", "Connect(2)",
                                      "SetProject(Plant1)", "Cleanup(1)", "Disconnect(0)"}));
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(LogLine{0, kConnectIn}, LogLine{0, "****** ERROR:\t FAILED to SetProject"},
                  LogLine{0, kConnectOut}, LogLine{0, kDisconnectIn}, LogLine{0, kDisconnectOut}));
}

TEST_F(ConnectionTest, ConnectServer_LoginFailsThenDisconnect_HostMayStillDisconnect) {
  connector_.SetResult("SetLogin", E_FAIL);
  EXPECT_EQ(Connect(), 0);
  EXPECT_EQ(utility_.DisconnectServer(), 1);
  EXPECT_EQ(connector_.calls(),
            (std::vector<std::string>{"SetDataSource(0)", "SetLogin(user,secret)", "Cleanup(1)",
                                      "Disconnect(0)"}));
}

TEST_F(ConnectionTest, ConnectServer_TwoObjects_ShareTheOneConnector) {
  NOMSOIUtility other;
  EXPECT_EQ(Connect(), 1);
  EXPECT_EQ(other.DisconnectServer(), 1);
  std::vector<std::string> expected = kFullConnect;
  expected.push_back("Cleanup(1)");
  expected.push_back("Disconnect(0)");
  EXPECT_EQ(connector_.calls(), expected);
}

}  // namespace
