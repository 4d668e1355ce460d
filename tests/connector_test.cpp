// The connector and the object factory over SQLite planning databases: credentials, schema
// versions, damaged files, projects, filters, releasing and closing.
#include <gtest/gtest.h>

#include "NOMZUBProxy/planning_admin.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBObjectFactory.h"
#include "support/driver_fakes.h"
#include "support/pg_planning_support.h"
#include "support/test_support.h"

namespace {

using nomtest::LogCapture;
using nomtest::ReadFile;
using nomtest::ScopedEnvVar;
using nomtest::TempDir;

constexpr char kError[] = "****** ERROR:\t ";

std::vector<std::string> Errors(const std::string& text) { return {std::string(kError) + text}; }

class ConnectorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    nomtest::ResetPlanningServices();
    ASSERT_EQ(nomzub::LoadSamplePlanningData(url_), S_OK);
    log_.clear();
  }
  void TearDown() override { nomtest::ResetPlanningServices(); }

  HRESULT Connect(const std::string& password, const std::string& project = "AssemblyLine",
                  const std::string& filters = "") {
    return nomtest::ConnectPlanning(url_, "planner", password, project, filters);
  }
  NOMZUBConnector* connector() { return NOMZUBConnector::Instance(); }
  // The name the factory gives for oid; "<none>" when it has no such object.
  std::string NameOf(const std::string& oid) {
    NOMIZUBObject* object = nullptr;
    NOMZUBObjectFactory::Instance()->GetObject(oid, &object);
    return object ? object->GetName() : "<none>";
  }

  TempDir dir_;
  std::string path_ = dir_.Sub("plan.db");
  std::string url_ = "sqlite:" + path_;
  LogCapture log_;
};

TEST_F(ConnectorTest, Connector_Connect_GoodCredentials) {
  EXPECT_EQ(Connect("planner"), S_OK);
  EXPECT_TRUE(log_.messages(2).empty());
}

TEST_F(ConnectorTest, Connector_Connect_WrongPasswordRefused) {
  EXPECT_EQ(Connect("Planner"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("login refused for 'planner': unknown login or wrong password"));
  EXPECT_EQ(connector()->SetProject("AssemblyLine"), E_FAIL);
}

TEST_F(ConnectorTest, Connector_Connect_UnknownLoginRefused) {
  EXPECT_EQ(nomtest::ConnectPlanning(url_, "mallory", "planner", "AssemblyLine", ""), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("login refused for 'mallory': unknown login or wrong password"));
}

TEST_F(ConnectorTest, Connector_SetLogin_EmptyLoginRefused) {
  EXPECT_EQ(connector()->SetLogin("", "planner"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("no login given: the planning server needs a login"));
}

TEST_F(ConnectorTest, Connector_Connect_WithoutLoginRefused) {
  nomzub::SetConfiguredServer(url_);
  EXPECT_EQ(connector()->Connect(COINIT_APARTMENTTHREADED), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("cannot connect to " + url_ + ": no login given"));
}

TEST_F(ConnectorTest, Connector_Connect_NoServerConfigured) {
  ScopedEnvVar unset("NOMZUB_SERVER", std::nullopt);
  EXPECT_EQ(nomtest::ConnectPlanning("", "planner", "planner", "AssemblyLine", ""), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("no planning server configured: set NOMZUB_SERVER or pass "
                                     "--server (sqlite:PATH or postgresql://...)"));
}

TEST_F(ConnectorTest, Connector_Connect_ServerFromEnvironment) {
  ScopedEnvVar server("NOMZUB_SERVER", url_);
  nomzub::SetConfiguredServer("");
  EXPECT_EQ(nomzub::ConfiguredServer(), url_);
  ASSERT_EQ(connector()->SetLogin("planner", "planner"), S_OK);
  EXPECT_EQ(connector()->Connect(COINIT_APARTMENTTHREADED), S_OK);
  EXPECT_EQ(connector()->SetProject("AssemblyLine"), S_OK);
}

TEST_F(ConnectorTest, Connector_ConfiguredServer_HostSettingWins) {
  ScopedEnvVar server("NOMZUB_SERVER", "sqlite:/elsewhere.db");
  nomzub::SetConfiguredServer(url_);
  EXPECT_EQ(nomzub::ConfiguredServer(), url_);
}

TEST_F(ConnectorTest, Connector_Connect_MissingFileNotCreated) {
  std::string missing = "sqlite:" + dir_.Sub("missing.db");
  EXPECT_EQ(nomtest::ConnectPlanning(missing, "planner", "planner", "AssemblyLine", ""), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("planning database " + missing +
                   " does not exist (create it with: nomsoi db init --server " + missing + ")"));
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("missing.db")));
}

TEST_F(ConnectorTest, Connector_Connect_ModulePathAccepted) {
  EXPECT_EQ(nomtest::ConnectPlanning("sqlite:" + nomtest::ZPath(path_), "planner", "planner",
                                     "AssemblyLine", ""),
            S_OK);
}

TEST_F(ConnectorTest, Connector_Connect_NewerSchemaRefusedUntouched) {
  ASSERT_EQ(nomzub::RunPlanningSql(url_, "UPDATE schema_version SET version = 99", nullptr), S_OK);
  std::string before = ReadFile(path_);
  EXPECT_EQ(Connect("planner"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("planning database " + url_ +
                                     " has schema version 99, newer than this build's 2"));
  EXPECT_EQ(ReadFile(path_), before);
}

TEST_F(ConnectorTest, Connector_Connect_OlderSchemaRefusedUntouched) {
  std::string old_url = "sqlite:" + dir_.Sub("old.db");
  ASSERT_EQ(nomzub::MigratePlanningDatabase(old_url, 1), S_OK);
  std::string before = ReadFile(dir_.Sub("old.db"));
  EXPECT_EQ(nomtest::ConnectPlanning(old_url, "planner", "planner", "AssemblyLine", ""), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("planning database " + old_url +
                   " has schema version 1, older than this build's 2 (upgrade it with: nomsoi "
                   "db init --server " +
                   old_url + ")"));
  EXPECT_EQ(ReadFile(dir_.Sub("old.db")), before);
}

TEST_F(ConnectorTest, Connector_Connect_EmptyFileHasNoSchema) {
  nomtest::WriteFile(dir_.Sub("empty.db"), "");
  std::string empty = "sqlite:" + dir_.Sub("empty.db");
  EXPECT_EQ(nomtest::ConnectPlanning(empty, "planner", "planner", "AssemblyLine", ""), E_FAIL);
  EXPECT_EQ(
      log_.messages(2),
      Errors("planning database " + empty +
             " holds no planning schema (create it with: nomsoi db init --server " + empty + ")"));
  EXPECT_EQ(ReadFile(dir_.Sub("empty.db")), "");
}

TEST_F(ConnectorTest, Connector_Connect_CorruptFileRefusedUntouched) {
  std::string garbage = "SQLite format 3" + std::string(200, '\x01');
  nomtest::WriteFile(path_, garbage);
  EXPECT_EQ(Connect("planner"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("planning database " + url_ + " cannot be used: file is not a database"));
  EXPECT_EQ(ReadFile(path_), garbage);
}

TEST_F(ConnectorTest, Connector_Session_NeverWritesTheDatabase) {
  std::string before = ReadFile(path_);
  ASSERT_EQ(Connect("planner", "AssemblyLine", "kind=resource"), S_OK);
  connector()->Cleanup(1);
  connector()->Disconnect(0);
  EXPECT_EQ(ReadFile(path_), before);
}

TEST_F(ConnectorTest, Connector_SetDataSource_UnknownSourceRefused) {
  EXPECT_EQ(connector()->SetDataSource(static_cast<NOMZUBConnector::NOMZUBDataSource>(7)),
            E_INVALIDARG);
  EXPECT_EQ(log_.messages(2), Errors("unknown data source 7"));
}

TEST_F(ConnectorTest, Connector_SetDataSource_SqliteMatchesSqliteServer) {
  nomzub::SetConfiguredServer(url_);
  ASSERT_EQ(connector()->SetDataSource(NOMZUBConnector::NOMZUB_DS_SQLITE), S_OK);
  ASSERT_EQ(connector()->SetLogin("planner", "planner"), S_OK);
  EXPECT_EQ(connector()->Connect(COINIT_APARTMENTTHREADED), S_OK);
}

TEST_F(ConnectorTest, Connector_SetDataSource_PostgresMismatchRefused) {
  nomzub::SetConfiguredServer(url_);
  ASSERT_EQ(connector()->SetDataSource(NOMZUBConnector::NOMZUB_DS_POSTGRESQL), S_OK);
  ASSERT_EQ(connector()->SetLogin("planner", "planner"), S_OK);
  EXPECT_EQ(connector()->Connect(COINIT_APARTMENTTHREADED), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("the configured server '" + url_ + "' does not match the selected data source"));
}

TEST_F(ConnectorTest, Connector_SetProject_UnknownProjectRefused) {
  EXPECT_EQ(Connect("planner", "Nope"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("unknown project 'Nope' on planning server " + url_));
}

TEST_F(ConnectorTest, Connector_SetProject_NotConnectedRefused) {
  EXPECT_EQ(connector()->SetProject("AssemblyLine"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("cannot select project 'AssemblyLine': not connected"));
}

TEST_F(ConnectorTest, Connector_SetProject_UnknownProductInStructureRefused) {
  ASSERT_EQ(nomzub::RunPlanningSql(url_,
                                   "INSERT INTO instances VALUES ('AssemblyLine', 'P-LINE', "
                                   "'P-GHOST', 'Ghost', 'Ghost', 9, 0, 0, 0, 0)",
                                   nullptr),
            S_OK);
  EXPECT_EQ(Connect("planner"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("project 'AssemblyLine' holds bad data: instance Ghost "
                                     "uses unknown product P-GHOST"));
  EXPECT_EQ(NameOf("P-BOLT"), "<none>");
}

TEST_F(ConnectorTest, Connector_SetProject_IdentWithSeparatorRefused) {
  ASSERT_EQ(nomzub::RunPlanningSql(url_,
                                   "UPDATE instances SET ident = 'Bolt/1' WHERE ident = "
                                   "'Bolt.1'",
                                   nullptr),
            S_OK);
  EXPECT_EQ(Connect("planner"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("project 'AssemblyLine' holds bad data: instance in product "
                                     "P-FIXTURE ident 'Bolt/1' is empty or holds '/' or '#'"));
}

TEST_F(ConnectorTest, Connector_SetProject_CyclicStructureRefused) {
  ASSERT_EQ(nomzub::RunPlanningSql(url_,
                                   "INSERT INTO instances VALUES ('AssemblyLine', 'P-BOLT', "
                                   "'P-FIXTURE', 'Loop', 'Loop', 9, 0, 0, 0, 0)",
                                   nullptr),
            S_OK);
  EXPECT_EQ(Connect("planner"), E_FAIL);
  ASSERT_EQ(log_.messages(2).size(), 1u);
  EXPECT_NE(log_.messages(2)[0].find("holds bad data: the structure of product"),
            std::string::npos);
  EXPECT_NE(log_.messages(2)[0].find("contains itself"), std::string::npos);
}

TEST_F(ConnectorTest, Connector_SetProject_BadNumberRefused) {
  ASSERT_EQ(nomzub::RunPlanningSql(url_,
                                   "UPDATE meshes SET positions = '0 0 x' WHERE oid = "
                                   "'G-LEG'",
                                   nullptr),
            S_OK);
  EXPECT_EQ(Connect("planner"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("project 'AssemblyLine' holds bad data: mesh G-LEG: 'x' is not a number"));
}

TEST_F(ConnectorTest, Connector_SetFilters_ValidExpressionAccepted) {
  EXPECT_EQ(Connect("planner", "AssemblyLine",
                    "not (kind = context) and (name~\"hand*\" OR ident != Hoist)"),
            S_OK);
  EXPECT_TRUE(log_.messages(2).empty());
}

TEST_F(ConnectorTest, Connector_SetFilters_MissingFieldGivesPosition) {
  EXPECT_EQ(Connect("planner", "AssemblyLine", "kind=product and"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("filter syntax error at position 17: expected a field "
                                     "(kind, name, oid or ident), found the end"));
}

TEST_F(ConnectorTest, Connector_SetFilters_UnknownFieldGivesPosition) {
  EXPECT_EQ(Connect("planner", "AssemblyLine", "kind=product or colour=red"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("filter syntax error at position 17: expected a field "
                                     "(kind, name, oid or ident), found 'c'"));
}

TEST_F(ConnectorTest, Connector_SetFilters_MissingOperatorGivesPosition) {
  EXPECT_EQ(Connect("planner", "AssemblyLine", "kind product"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("filter syntax error at position 6: expected an operator "
                                     "(=, !=, ~ or !~), found 'p'"));
}

TEST_F(ConnectorTest, Connector_SetFilters_UnclosedQuoteGivesPosition) {
  EXPECT_EQ(Connect("planner", "AssemblyLine", "name~\"Bolt*"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("filter syntax error at position 6: expected a closing '\"' "
                                     "for the quote opened here, found '\"'"));
}

TEST_F(ConnectorTest, Connector_SetFilters_UnclosedParenthesisGivesPosition) {
  EXPECT_EQ(Connect("planner", "AssemblyLine", "(kind=resource"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("filter syntax error at position 15: expected ')', found the end"));
}

TEST_F(ConnectorTest, Connector_SetFilters_TrailingTextGivesPosition) {
  EXPECT_EQ(Connect("planner", "AssemblyLine", "kind=resource)"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("filter syntax error at position 14: expected 'and', 'or' "
                                     "or the end, found ')'"));
}

TEST_F(ConnectorTest, Connector_SetFilters_MissingValueGivesPosition) {
  EXPECT_EQ(Connect("planner", "AssemblyLine", "oid = "), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Errors("filter syntax error at position 7: expected a value, found the end"));
}

TEST_F(ConnectorTest, Connector_SetFilters_NoProjectRefused) {
  EXPECT_EQ(connector()->SetFilters("kind=resource"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("cannot set filters: no project selected"));
}

TEST_F(ConnectorTest, Connector_SetProject_RegistersObjectNames) {
  ASSERT_EQ(Connect("planner"), S_OK);
  EXPECT_EQ(NameOf("P-BOLT"), "Bolt M8");
  EXPECT_EQ(NameOf("R-ROBOT"), "Handling robot");
  EXPECT_EQ(NameOf("MP-GEARBOX"), "Gearbox");
  EXPECT_EQ(NameOf("OP-040"), "Drive screws");
  EXPECT_EQ(NameOf("P-NOTHING"), "<none>");
}

TEST_F(ConnectorTest, Connector_Cleanup_ReleasesObjects) {
  ASSERT_EQ(Connect("planner"), S_OK);
  EXPECT_EQ(connector()->Cleanup(1), S_OK);
  EXPECT_EQ(NameOf("P-BOLT"), "<none>");
  EXPECT_EQ(connector()->SetFilters("kind=resource"), E_FAIL);
}

TEST_F(ConnectorTest, Connector_Disconnect_ClosesConnection) {
  ASSERT_EQ(Connect("planner"), S_OK);
  EXPECT_EQ(connector()->Disconnect(0), S_OK);
  EXPECT_EQ(connector()->SetProject("AssemblyLine"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("cannot select project 'AssemblyLine': not connected"));
}

TEST_F(ConnectorTest, Connector_Disconnect_ForgetsLogin) {
  ASSERT_EQ(Connect("planner"), S_OK);
  connector()->Disconnect(0);
  EXPECT_EQ(connector()->Connect(COINIT_APARTMENTTHREADED), E_FAIL);
  EXPECT_EQ(log_.messages(2), Errors("cannot connect to " + url_ + ": no login given"));
}

TEST_F(ConnectorTest, Connector_Disconnect_WithoutConnectionSucceeds) {
  EXPECT_EQ(connector()->Cleanup(1), S_OK);
  EXPECT_EQ(connector()->Disconnect(0), S_OK);
  EXPECT_TRUE(log_.messages(2).empty());
}

TEST_F(ConnectorTest, Connector_Instance_OverrideAndRestore) {
  NOMZUBConnector* real = NOMZUBConnector::Instance();
  ASSERT_NE(real, nullptr);
  nomzub::OverrideConnector(nullptr);
  EXPECT_EQ(NOMZUBConnector::Instance(), nullptr);
  nomzub::RestoreConnector();
  EXPECT_EQ(NOMZUBConnector::Instance(), real);
}

TEST(ObjectFactory, ObjectFactory_GetObject_NullOutPointer) {
  EXPECT_EQ(NOMZUBObjectFactory::Instance()->GetObject("X", nullptr), E_POINTER);
}

TEST(ObjectFactory, ObjectFactory_GetObject_UnknownLeavesPointerNull) {
  nomzub::ClearObjects();
  NOMIZUBObject* object = nullptr;
  EXPECT_EQ(NOMZUBObjectFactory::Instance()->GetObject("X", &object), S_FALSE);
  EXPECT_EQ(object, nullptr);
}

TEST(ObjectFactory, ObjectFactory_RegisterObject_RenamesInPlace) {
  nomzub::ClearObjects();
  nomzub::RegisterObject("X", "first");
  NOMIZUBObject* object = nullptr;
  ASSERT_EQ(NOMZUBObjectFactory::Instance()->GetObject("X", &object), S_OK);
  nomzub::RegisterObject("X", "second");
  NOMIZUBObject* again = nullptr;
  ASSERT_EQ(NOMZUBObjectFactory::Instance()->GetObject("X", &again), S_OK);
  EXPECT_EQ(again, object);
  EXPECT_EQ(object->GetName(), "second");
  nomzub::ClearObjects();
}

TEST(ObjectFactory, ObjectFactory_Instance_OverrideAndRestore) {
  NOMZUBObjectFactory* real = NOMZUBObjectFactory::Instance();
  nomzub::OverrideObjectFactory(nullptr);
  EXPECT_EQ(NOMZUBObjectFactory::Instance(), nullptr);
  nomzub::RestoreObjectFactory();
  EXPECT_EQ(NOMZUBObjectFactory::Instance(), real);
}

}  // namespace
