// Test support for the planning data server: a private PostgreSQL server started for one test
// program, SQLite sample databases, and the connector reset between tests.
#ifndef NOM_TESTS_SUPPORT_PG_PLANNING_SUPPORT_H_
#define NOM_TESTS_SUPPORT_PG_PLANNING_SUPPORT_H_

#include <string>

#include "win_types.h"

namespace nomtest {

// A PostgreSQL server of its own: initdb into a fresh temporary directory, password
// authentication (scram-sha-256) for the superuser "postgres", a Unix socket in that directory
// and no TCP listener. Run as the "postgres" system user when the test runs as root, since the
// server refuses root. Stopped and removed by the destructor.
class PgServer {
 public:
  static constexpr char kPassword[] = "pg-test-secret";

  PgServer() = default;
  ~PgServer();
  PgServer(const PgServer&) = delete;
  PgServer& operator=(const PgServer&) = delete;

  // Starts the server. False with *why when the PostgreSQL binaries are missing (*missing set)
  // or when initdb or the start failed (the server log is quoted).
  bool Start(std::string* why, bool* missing);
  // Creates a database. False on failure.
  bool CreateDatabase(const std::string& name);
  // "postgresql://postgres:PASSWORD@/database?host=SOCKETDIR&port=PORT".
  std::string Url(const std::string& database) const;
  // The same without user and password: the connector's login supplies them.
  std::string UrlWithoutLogin(const std::string& database) const;
  const std::string& socket_dir() const { return dir_; }

 private:
  // Runs a PostgreSQL program as the server's owner; its output goes to log.
  bool RunAsOwner(const std::string& command, const std::string& log) const;

  std::string bin_;
  std::string dir_;
  int port_ = 0;
  bool running_ = false;
};

// The connector steps the module makes: configured server url, data source 0, login, connect,
// project, filters. Returns the first code that is not S_OK, or S_OK.
HRESULT ConnectPlanning(const std::string& url, const std::string& login,
                        const std::string& password, const std::string& project,
                        const std::string& filters);

// Makes the SQLite file at path (native) hold what nomzub::LoadSamplePlanningData stores: the
// sample project and the account planner / planner. Hashing that account's password takes a
// noticeable fraction of a second, so the first test process of a build tree loads the sample
// once and keeps the file beside the test programs (<build tree>/tests, named after the planning
// library's build so that a rebuild loads it afresh); every later call, in any test process,
// copies it. Where no build tree is found the sample is loaded directly. False when it fails.
bool MakeSampleDatabase(const std::string& path);

// Runs the build tree's nomsoi (<build tree>/tools/nomsoi/nomsoi; the build tree is
// NOMSOI_BINARY_DIR, else the parent of the test program's directory) with args (shell words,
// quoted by the caller), its standard output and error in *out and *err. Returns its exit status;
// -1 with *err saying why when it could not be run (no build tree found, nomsoi not built).
int RunNomsoi(const std::string& args, std::string* out, std::string* err);

// Leaves the data-server services as a fresh process has them: the real connector and object
// factory, disconnected, no configured server, no registered package, empty identifier cache, no
// objects, the real generator with the default object limit.
void ResetPlanningServices();

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_PG_PLANNING_SUPPORT_H_
