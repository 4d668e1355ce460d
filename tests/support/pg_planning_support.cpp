#include "support/pg_planning_support.h"

#include <glob.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "NOMZUBProxy/planning_admin.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBObjectFactory.h"
#include "services/NOMZUBVGXGen.h"
#include "services/NOMZUBVGXGenerator.h"
#include "services/NOMZUBVGXIdentCache.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

namespace nomtest {
namespace {

// The bin directory of the newest installed PostgreSQL, or "".
std::string FindPostgresBin() {
  glob_t found;
  std::string bin;
  if (glob("/usr/lib/postgresql/*/bin/initdb", 0, nullptr, &found) == 0) {
    bin = fs::path(found.gl_pathv[found.gl_pathc - 1]).parent_path().string();
  }
  globfree(&found);
  return bin;
}

// A TCP port nobody listens on now; it only names the server's socket file here.
int FreePort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  int port = 0;
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
    port = ntohs(addr.sin_port);
  }
  close(fd);
  return port != 0 ? port : 54329;
}

}  // namespace

PgServer::~PgServer() {
  if (running_) {
    RunAsOwner(bin_ + "/pg_ctl -D " + dir_ + "/data -m immediate -w stop", dir_ + "/stop.log");
  }
  if (!dir_.empty()) {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
}

bool PgServer::RunAsOwner(const std::string& command, const std::string& log) const {
  std::string prefix = getuid() == 0 ? "runuser -u postgres -- " : "";
  return std::system((prefix + command + " >" + log + " 2>&1").c_str()) == 0;
}

bool PgServer::Start(std::string* why, bool* missing) {
  bin_ = FindPostgresBin();
  *missing = bin_.empty();
  if (*missing) {
    *why =
        "PostgreSQL server binaries not found under /usr/lib/postgresql/*/bin (install the "
        "package postgresql: scripts/install-deps)";
    return false;
  }
  std::string templ = (fs::temp_directory_path() / "nom-pg-XXXXXX").string();
  if (mkdtemp(templ.data()) == nullptr) {
    *why = "cannot create a temporary directory";
    return false;
  }
  dir_ = templ;
  if (getuid() == 0) {
    passwd* owner = getpwnam("postgres");
    if (owner == nullptr || chown(dir_.c_str(), owner->pw_uid, owner->pw_gid) != 0) {
      *why = "cannot hand " + dir_ + " to the postgres system user";
      return false;
    }
  }
  WriteFile(dir_ + "/pwfile", std::string(kPassword) + "\n");
  fs::permissions(dir_ + "/pwfile",
                  fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  port_ = FreePort();
  if (!RunAsOwner(bin_ + "/initdb -D " + dir_ + "/data -U postgres -A scram-sha-256 --pwfile=" +
                      dir_ + "/pwfile --no-sync -E UTF8 --locale=C",
                  dir_ + "/initdb.log")) {
    *why = "initdb failed: " + ReadFile(dir_ + "/initdb.log");
    return false;
  }
  running_ = RunAsOwner(bin_ + "/pg_ctl -D " + dir_ + "/data -l " + dir_ +
                            "/server.log -w -o \"-k " + dir_ + " -p " + std::to_string(port_) +
                            " -c listen_addresses='' -c fsync=off\" start",
                        dir_ + "/pg_ctl.log");
  if (!running_) {
    *why = "the server did not start: " + ReadFile(dir_ + "/server.log");
    return false;
  }
  return true;
}

bool PgServer::CreateDatabase(const std::string& name) {
  return nomzub::RunPlanningSql(Url("postgres"), "CREATE DATABASE " + name, nullptr) == S_OK;
}

std::string PgServer::Url(const std::string& database) const {
  return "postgresql://postgres:" + std::string(kPassword) + "@/" + database + "?host=" + dir_ +
         "&port=" + std::to_string(port_);
}

std::string PgServer::UrlWithoutLogin(const std::string& database) const {
  return "postgresql:///" + database + "?host=" + dir_ + "&port=" + std::to_string(port_);
}

HRESULT ConnectPlanning(const std::string& url, const std::string& login,
                        const std::string& password, const std::string& project,
                        const std::string& filters) {
  nomzub::SetConfiguredServer(url);
  NOMZUBConnector* c = NOMZUBConnector::Instance();
  if (HRESULT rc = c->SetDataSource(NOMZUBConnector::NOMZUB_DS_CONFIGURED)) return rc;
  if (HRESULT rc = c->SetLogin(login, password)) return rc;
  if (HRESULT rc = c->Connect(COINIT_APARTMENTTHREADED)) return rc;
  if (HRESULT rc = c->SetProject(project)) return rc;
  return c->SetFilters(filters);
}

void ResetPlanningServices() {
  NOMZUBConnector* c = NOMZUBConnector::Instance();
  c->Cleanup(1);
  c->Disconnect(0);
  c->SetDataSource(NOMZUBConnector::NOMZUB_DS_CONFIGURED);
  nomzub::SetConfiguredServer("");
  nomzub::ClearPackage();
  nomzub::IdentCacheClear();
  nomzub::ClearObjects();
  nomzub::SetGeneratorBackend(nullptr);
}

}  // namespace nomtest
