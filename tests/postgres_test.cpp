// The planning database on a real PostgreSQL server that each test program starts for itself
// (initdb into a temporary directory, a Unix socket there, password authentication): schema,
// credentials checked by the server, projects, filters, generation identical to SQLite's,
// positioning, refused databases and a server that is down.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <pugixml.hpp>

#include "NOMZUBProxy/planning_admin.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBObjectFactory.h"
#include "services/NOMZUBVGXGenerator.h"
#include "services/NOMZUBVGXIdentCache.h"
#include "support/driver_fakes.h"
#include "support/pg_planning_support.h"
#include "support/test_support.h"

namespace {

using nomtest::ListDir;
using nomtest::LogCapture;
using nomtest::PgServer;
using nomtest::ReadFile;
using nomtest::TempDir;
using Rows = std::vector<std::vector<std::string>>;
using Strings = std::vector<std::string>;

constexpr char kError[] = "****** ERROR:\t ";

std::string Redacted(const std::string& url) {
  std::string out = url;
  out.replace(out.find(PgServer::kPassword), std::string(PgServer::kPassword).size(), "****");
  return out;
}

class PostgresTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    server_ = new PgServer;
    bool missing = false;
    if (!server_->Start(&start_error_, &missing)) skip_ = missing;
  }
  static void TearDownTestSuite() {
    delete server_;
    server_ = nullptr;
  }

  void SetUp() override {
    if (skip_) GTEST_SKIP() << start_error_;
    ASSERT_TRUE(start_error_.empty()) << start_error_;
    nomtest::ResetPlanningServices();
    ASSERT_TRUE(server_->CreateDatabase(database_)) << "CREATE DATABASE " << database_;
    log_.clear();
  }
  void TearDown() override { nomtest::ResetPlanningServices(); }

  std::string AdminUrl() const { return server_->Url(database_); }
  std::string LoginUrl() const { return server_->UrlWithoutLogin(database_); }
  HRESULT Connect(const std::string& password, const std::string& project = "AssemblyLine",
                  const std::string& filters = "") {
    return nomtest::ConnectPlanning(LoginUrl(), "postgres", password, project, filters);
  }
  std::string Value(const std::string& sql) {
    Rows rows;
    if (nomzub::RunPlanningSql(AdminUrl(), sql, &rows) != S_OK || rows.size() != 1) return "";
    return rows[0][0];
  }
  std::string Generate(const std::string& soi) {
    NOMZUBVGXGenerator generator;
    return generator.GenerateVGXPackage("", soi, "SOI", "") == S_OK ? soi : "";
  }

  static PgServer* server_;
  static std::string start_error_;
  static bool skip_;
  static int databases_;
  // A database of its own per test: the server lives as long as the test program.
  std::string database_ = "planning_" + std::to_string(++databases_);
  TempDir dir_;
  nomtest::ScopedEnvVar cache_env_{"NOMZUB_CACHE", dir_.Sub("cache")};
  LogCapture log_;
};

PgServer* PostgresTest::server_ = nullptr;
std::string PostgresTest::start_error_;
bool PostgresTest::skip_ = false;
int PostgresTest::databases_ = 0;

TEST_F(PostgresTest, Init_CreatesSchemaAtCurrentVersion) {
  ASSERT_EQ(nomzub::InitPlanningDatabase(AdminUrl()), S_OK);
  EXPECT_EQ(Value("SELECT version FROM schema_version"), "2");
  EXPECT_EQ(Value("SELECT count(*) FROM information_schema.tables WHERE table_schema = 'public'"),
            "10");
  EXPECT_TRUE(log_.messages(2).empty());
}

TEST_F(PostgresTest, Init_UpgradesVersion1) {
  ASSERT_EQ(nomzub::MigratePlanningDatabase(AdminUrl(), 1), S_OK);
  ASSERT_EQ(Value("SELECT version FROM schema_version"), "1");
  ASSERT_EQ(nomzub::InitPlanningDatabase(AdminUrl()), S_OK);
  EXPECT_EQ(Value("SELECT version FROM schema_version"), "2");
  EXPECT_EQ(Value("SELECT count(*) FROM information_schema.tables WHERE table_name IN "
                  "('states', 'sim_positions')"),
            "2");
}

TEST_F(PostgresTest, Init_NewerVersionRefusedUntouched) {
  ASSERT_EQ(nomzub::MigratePlanningDatabase(AdminUrl(), 1), S_OK);
  ASSERT_EQ(nomzub::RunPlanningSql(AdminUrl(), "UPDATE schema_version SET version = 99", nullptr),
            S_OK);
  log_.clear();
  EXPECT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "planning database " + Redacted(AdminUrl()) +
                    " refused: its schema version 99 is newer than this build's 2"});
  EXPECT_EQ(Value("SELECT version FROM schema_version"), "99");
  EXPECT_EQ(Value("SELECT count(*) FROM information_schema.tables WHERE table_schema = 'public'"),
            "8");
  EXPECT_EQ(Value("SELECT count(*) FROM projects"), "0");
}

TEST_F(PostgresTest, Sample_HoldsTheAssemblyLine) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  EXPECT_EQ(Value("SELECT count(*) FROM products"), "20");
  EXPECT_EQ(Value("SELECT count(*) FROM instances"), "39");
  EXPECT_EQ(Value("SELECT count(*) FROM process_idents"), "10");
  EXPECT_EQ(Value("SELECT count(*) FROM accounts"), "1");
}

TEST_F(PostgresTest, Connect_GoodCredentials) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  EXPECT_EQ(Connect(PgServer::kPassword), S_OK);
  EXPECT_TRUE(log_.messages(2).empty());
  NOMIZUBObject* object = nullptr;
  ASSERT_EQ(NOMZUBObjectFactory::Instance()->GetObject("P-ROLLER", &object), S_OK);
  EXPECT_EQ(object->GetName(), "Roller");
}

TEST_F(PostgresTest, Connect_WrongPasswordRefusedByServer) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  EXPECT_EQ(Connect("wrong"), E_FAIL);
  ASSERT_EQ(log_.messages(2).size(), 1u);
  std::string line = log_.messages(2)[0];
  EXPECT_EQ(
      line.rfind(std::string(kError) + "cannot connect to planning server " + LoginUrl() + ": ", 0),
      0u)
      << line;
  EXPECT_NE(line.find("password authentication failed for user \"postgres\""), std::string::npos)
      << line;
  EXPECT_EQ(line.find('\n'), std::string::npos);
}

TEST_F(PostgresTest, Connect_UnknownUserRefusedByServer) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  EXPECT_EQ(nomtest::ConnectPlanning(LoginUrl(), "planner", "planner", "AssemblyLine", ""), E_FAIL);
  ASSERT_EQ(log_.messages(2).size(), 1u);
  EXPECT_NE(log_.messages(2)[0].find("password authentication failed for user \"planner\""),
            std::string::npos)
      << log_.messages(2)[0];
}

TEST_F(PostgresTest, Connect_NoSchemaRefused) {
  EXPECT_EQ(Connect(PgServer::kPassword), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "planning database " + LoginUrl() +
                    " holds no planning schema (create it with: nomsoi db init --server " +
                    LoginUrl() + ")"});
  EXPECT_EQ(Value("SELECT count(*) FROM information_schema.tables WHERE table_schema = 'public'"),
            "0");
}

TEST_F(PostgresTest, Connect_NewerSchemaRefused) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  ASSERT_EQ(nomzub::RunPlanningSql(AdminUrl(), "UPDATE schema_version SET version = 7", nullptr),
            S_OK);
  log_.clear();
  EXPECT_EQ(Connect(PgServer::kPassword), E_FAIL);
  EXPECT_EQ(log_.messages(2), Strings{std::string(kError) + "planning database " + LoginUrl() +
                                      " has schema version 7, newer than this build's 2"});
}

TEST_F(PostgresTest, SetProject_UnknownProjectRefused) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  EXPECT_EQ(Connect(PgServer::kPassword, "Nope"), E_FAIL);
  EXPECT_EQ(log_.messages(2), Strings{std::string(kError) +
                                      "unknown project 'Nope' on planning "
                                      "server " +
                                      LoginUrl()});
}

TEST_F(PostgresTest, SetFilters_SyntaxErrorGivesPosition) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  EXPECT_EQ(Connect(PgServer::kPassword, "AssemblyLine", "kind=resource and (name~R*"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "filter syntax error at position 27: expected ')', found the end"});
}

TEST_F(PostgresTest, Generate_SamePackageAsSqlite) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  ASSERT_EQ(Connect(PgServer::kPassword), S_OK);
  ASSERT_EQ(Generate(dir_.Sub("pg")), dir_.Sub("pg"));
  std::map<std::string, std::string> from_postgres;
  for (const std::string& name : ListDir(dir_.Sub("cache/AssemblyLine"))) {
    from_postgres[name] = ReadFile(dir_.Sub("cache/AssemblyLine/" + name));
  }
  EXPECT_EQ(from_postgres.size(), 40u);
  nomtest::ResetPlanningServices();
  std::string sqlite = "sqlite:" + dir_.Sub("plan.db");
  ASSERT_EQ(nomzub::LoadSamplePlanningData(sqlite), S_OK);
  ASSERT_EQ(nomtest::ConnectPlanning(sqlite, "planner", "planner", "AssemblyLine", ""), S_OK);
  ASSERT_EQ(Generate(dir_.Sub("lite")), dir_.Sub("lite"));
  for (const auto& [name, contents] : from_postgres) {
    EXPECT_EQ(ReadFile(dir_.Sub("cache/AssemblyLine/" + name)), contents) << name;
  }
  EXPECT_EQ(ReadFile(dir_.Sub("lite/SOI.vgxXml")), ReadFile(dir_.Sub("pg/SOI.vgxXml")));
  EXPECT_EQ(ReadFile(dir_.Sub("lite/SOI.vgxView")), ReadFile(dir_.Sub("pg/SOI.vgxView")));
}

TEST_F(PostgresTest, Generate_FillsIdentCache) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  ASSERT_EQ(Connect(PgServer::kPassword, "AssemblyLine", "kind=product"), S_OK);
  ASSERT_EQ(Generate(dir_.Sub("soi")), dir_.Sub("soi"));
  NOMOIDIdentPathsMap paths;
  NOMStringMap operations;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(operations);
  EXPECT_EQ(paths.size(), 11u);
  EXPECT_EQ(paths["P-ROLLER"].size(), 6u);
  EXPECT_EQ(paths["P-ROLLER"][5], "ProductList/Line/Conveyor/Roller.6");
  EXPECT_EQ(operations.size(), 6u);
}

TEST_F(PostgresTest, States_AppliedToPackage) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  ASSERT_EQ(Connect(PgServer::kPassword), S_OK);
  ASSERT_EQ(Generate(dir_.Sub("soi")), dir_.Sub("soi"));
  ASSERT_EQ(NOMZUBApply3DStatesCmd().ApplyStates(), S_OK);
  pugi::xml_document main;
  ASSERT_TRUE(main.load_file(dir_.Sub("soi/SOI.vgxXml").c_str()));
  EXPECT_EQ(main.select_nodes("//Operation/State").size(), 11u);
  EXPECT_STREQ(
      main.select_node("//Operation[@OID='OP-020']/State").node().attribute("Target").value(),
      "ManufProd/Gearbox/Shaft");
}

TEST_F(PostgresTest, Positions_AppliedToPackage) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  ASSERT_EQ(Connect(PgServer::kPassword), S_OK);
  ASSERT_EQ(Generate(dir_.Sub("soi")), dir_.Sub("soi"));
  ASSERT_EQ(NOMZUBApplySimPositionBlobCmd().ApplySimPositionBlobs(), S_OK);
  pugi::xml_document main;
  ASSERT_TRUE(main.load_file(dir_.Sub("soi/SOI.vgxXml").c_str()));
  EXPECT_EQ(main.select_nodes("//SimulationPositions/Position").size(), 6u);
}

// nomsoi connect against a URL that carries the password: the success line shows it hidden.
TEST_F(PostgresTest, Host_ConnectedLineHidesUrlPassword) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  nomtest::ScopedEnvVar password("NOMZUB_PASSWORD", PgServer::kPassword);
  std::string out, err;
  EXPECT_EQ(nomtest::RunNomsoi(
                "connect --server '" + AdminUrl() + "' --login postgres --project AssemblyLine",
                &out, &err),
            0)
      << err;
  EXPECT_EQ(
      out, "connected to project 'AssemblyLine' on '" + Redacted(AdminUrl()) + "' as 'postgres'\n");
  EXPECT_EQ(out.find(PgServer::kPassword), std::string::npos);
  EXPECT_EQ(err.find(PgServer::kPassword), std::string::npos) << err;
}

// A URL password the server refuses: neither the log nor standard error shows it.
TEST_F(PostgresTest, Host_RefusedUrlPasswordNotShown) {
  ASSERT_EQ(nomzub::LoadSamplePlanningData(AdminUrl()), S_OK);
  std::string url = AdminUrl();
  url.replace(url.find(PgServer::kPassword), std::string(PgServer::kPassword).size(),
              "not-the-secret");
  std::string out, err;
  EXPECT_EQ(nomtest::RunNomsoi("--log '" + dir_.Sub("log") + "' connect --server '" + url +
                                   "' --login postgres --password not-the-login-secret "
                                   "--project AssemblyLine",
                               &out, &err),
            1)
      << err;
  std::string log = nomtest::ReadFile(dir_.Sub("log"));
  EXPECT_NE(log.find("password authentication failed"), std::string::npos) << log;
  for (const std::string& text : {out, err, log}) {
    EXPECT_EQ(text.find("not-the-secret"), std::string::npos) << text;
    EXPECT_EQ(text.find("not-the-login-secret"), std::string::npos) << text;
  }
}

TEST(PostgresDown, Connect_ServerDownRefused) {
  nomtest::ResetPlanningServices();
  TempDir nothing;
  std::string url = "postgresql:///planning?host=" + nothing.path() + "&port=5999";
  LogCapture log;
  EXPECT_EQ(nomtest::ConnectPlanning(url, "postgres", "secret", "AssemblyLine", ""), E_FAIL);
  EXPECT_EQ(log.messages(2),
            Strings{std::string(kError) + "cannot connect to planning server " + url +
                    ": connection to server on socket \"" + nothing.path() +
                    "/.s.PGSQL.5999\" failed: No such file or directory Is the server running "
                    "locally and accepting connections on that socket?"});
  EXPECT_TRUE(ListDir(nothing.path()).empty());
  nomtest::ResetPlanningServices();
}

TEST(PostgresDown, Init_ServerDownRefused) {
  TempDir nothing;
  std::string url = "postgresql://postgres:secret@/planning?host=" + nothing.path() + "&port=5999";
  LogCapture log;
  EXPECT_EQ(nomzub::InitPlanningDatabase(url), E_FAIL);
  ASSERT_EQ(log.messages(2).size(), 1u);
  EXPECT_EQ(log.messages(2)[0].rfind(std::string(kError) +
                                         "cannot connect to planning server postgresql://"
                                         "postgres:****@/planning?host=" +
                                         nothing.path() + "&port=5999: ",
                                     0),
            0u)
      << log.messages(2)[0];
  EXPECT_EQ(log.messages(2)[0].find("secret"), std::string::npos);
}

}  // namespace
