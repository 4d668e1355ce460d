#include "support/pg_planning_support.h"

#include <dlfcn.h>
#include <glob.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
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

// The build tree this test program belongs to: NOMSOI_BINARY_DIR, else the parent of the
// directory holding the program (tests/ of the build tree). "" when neither is known.
std::string BuildTree() {
  const char* named = std::getenv("NOMSOI_BINARY_DIR");
  if (named != nullptr && *named != '\0') return named;
  std::error_code ec;
  fs::path program = fs::read_symlink("/proc/self/exe", ec);
  return ec ? "" : program.parent_path().parent_path().string();
}

// The kept sample database for the planning library this process runs: its file's size and
// modification time name it. "" when there is no place to keep it.
std::string KeptSamplePath() {
  const std::string tree = BuildTree();
  Dl_info library{};
  struct stat info {};
  std::error_code ec;
  if (tree.empty() || !fs::is_directory(tree + "/tests", ec) ||
      dladdr(reinterpret_cast<void*>(&nomzub::LoadSamplePlanningData), &library) == 0 ||
      library.dli_fname == nullptr || stat(library.dli_fname, &info) != 0) {
    return "";
  }
  return tree + "/tests/planning-sample-" + std::to_string(info.st_size) + "-" +
         std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec) + ".db";
}

}  // namespace

bool MakeSampleDatabase(const std::string& path) {
  std::error_code ec;
  const std::string kept = KeptSamplePath();
  if (!kept.empty() && fs::exists(kept, ec)) {
    return fs::copy_file(kept, path, fs::copy_options::overwrite_existing, ec) && !ec;
  }
  if (nomzub::LoadSamplePlanningData("sqlite:" + path) != S_OK) return false;
  if (!kept.empty()) {
    // Another test process may be keeping the same file: each writes a name of its own, and the
    // rename that puts it in place replaces a whole file by an equal whole file.
    const std::string part = kept + ".part" + std::to_string(getpid());
    if (fs::copy_file(path, part, fs::copy_options::overwrite_existing, ec)) {
      fs::rename(part, kept, ec);
    }
    fs::remove(part, ec);
    // The copies kept for earlier builds of the library are of no further use.
    const fs::path dir = fs::path(kept).parent_path();
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      const std::string name = it->path().filename().string();
      if (name.rfind("planning-sample-", 0) == 0 && name.size() > 3 &&
          name.compare(name.size() - 3, 3, ".db") == 0 && it->path() != fs::path(kept)) {
        std::error_code ignored;
        fs::remove(it->path(), ignored);
      }
    }
  }
  return true;
}

int RunNomsoi(const std::string& args, std::string* out, std::string* err) {
  const std::string tree = BuildTree();
  if (tree.empty()) {
    *err = "the build tree is unknown (set NOMSOI_BINARY_DIR)";
    return -1;
  }
  const std::string nomsoi = tree + "/tools/nomsoi/nomsoi";
  if (access(nomsoi.c_str(), X_OK) != 0) {
    *err = nomsoi + " is not built";
    return -1;
  }
  TempDir capture;
  int status = std::system(("'" + nomsoi + "' " + args + " >'" + capture.Sub("out") + "' 2>'" +
                            capture.Sub("err") + "' </dev/null")
                               .c_str());
  *out = ReadFile(capture.Sub("out"));
  *err = ReadFile(capture.Sub("err"));
  return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

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
  nomzub::SetConnector(nullptr);
  nomzub::SetObjectFactory(nullptr);
  NOMZUBConnector* c = NOMZUBConnector::Instance();
  c->Cleanup(1);
  c->Disconnect(0);
  c->SetDataSource(NOMZUBConnector::NOMZUB_DS_CONFIGURED);
  nomzub::SetConfiguredServer("");
  nomzub::ClearPackage();
  nomzub::IdentCacheClear();
  nomzub::ClearObjects();
  nomzub::SetGeneratorBackend(nullptr);
  nomzub::SetMaxObjects(0);
}

}  // namespace nomtest
