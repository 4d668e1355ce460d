// NOMZUBConnector: the connection to the planning database, the login, the selected project and
// the filter.
#include <algorithm>
#include <memory>

#include "NOMZUBProxy/planning_db.h"
#include "NOMZUBProxy/planning_schema.h"
#include "NOMZUBProxy/project_store.h"
#include "NOMZUBProxy/session.h"
#include "NOMZUBProxy/sha256.h"
#include "platform/env.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBObjectFactory.h"

namespace nomzub::proxy {
namespace {

struct Session {
  NOMZUBConnector::NOMZUBDataSource source = NOMZUBConnector::NOMZUB_DS_CONFIGURED;
  bool has_login = false;
  DbCredentials credentials;
  std::string url;  // of the open connection
  std::unique_ptr<PlanningDb> db;
  std::string project_name;          // "" when none is selected
  std::unique_ptr<Project> project;  // null when released
  Filter filter;

  // Forgets the loaded project and the objects registered from it.
  void ReleaseData() {
    project.reset();
    nomzub::ClearObjects();
  }
  void ForgetProject() {
    ReleaseData();
    project_name.clear();
    filter = Filter();
  }
};

Session& TheSession() {
  static Session session;
  return session;
}

std::string g_configured_server;
bool g_connector_overridden = false;
NOMZUBConnector* g_connector_override = nullptr;

HRESULT Fail(const std::string& cause) {
  nomzub::LogServiceError(cause);
  return E_FAIL;
}

// Whether two hash texts are equal, in a time that depends on their length only.
bool SameHash(const std::string& a, const std::string& b) {
  unsigned char diff = a.size() == b.size() && !a.empty() ? 0 : 1;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) diff |= a[i] ^ b[i];
  return diff == 0;
}

// Checks the login against the accounts table: PBKDF2-HMAC-SHA-256 of the password with the
// account's salt and iteration count must equal the stored hash. Every check runs at least
// kPasswordIterations rounds: an unknown login (or a damaged account row) is hashed against a
// dummy salt, and an account stored with fewer rounds (the older format) is topped up with
// dummy rounds, so that the time a refusal takes does not tell whether the login exists.
bool Authenticate(PlanningDb& db, const DbCredentials& login, std::string* error) {
  Rows rows;
  if (!db.Run("SELECT salt, iterations, password_hash FROM accounts WHERE login = ?", {login.login},
              &rows)) {
    *error = "cannot read the accounts: " + db.error();
    return false;
  }
  int iterations = 0;
  try {
    iterations = rows.empty() ? 0 : std::stoi(rows[0][1]);
  } catch (const std::exception&) {
  }
  const bool usable = !rows.empty() && iterations > 0 && iterations <= kMaxStoredIterations;
  bool match = false;
  int rounds_left = kPasswordIterations;
  if (usable) {
    match =
        SameHash(ToHex(Pbkdf2HmacSha256(login.password, rows[0][0], iterations, 32)), rows[0][2]);
    rounds_left -= std::min(iterations, kPasswordIterations);
  }
  if (rounds_left > 0) {
    // Rounds whose result is not used: they make the refusal of an unknown login, and the check
    // of an account stored with fewer rounds, cost what the check of a current account costs.
    static const char kDummySalt[] = "00000000000000000000000000000000";
    Pbkdf2HmacSha256(login.password, kDummySalt, rounds_left, 32);
  }
  if (!match) *error = "login refused for '" + login.login + "': unknown login or wrong password";
  return match;
}

// Loads the selected project into the session and registers its objects.
bool LoadSelected(Session& s, std::string* error) {
  auto project = std::make_unique<Project>();
  if (!LoadProject(*s.db, s.project_name, project.get(), error)) return false;
  s.project = std::move(project);
  RegisterProjectObjects(*s.project);
  return true;
}

}  // namespace

void RegisterProjectObjects(const Project& project) {
  for (const auto& [oid, product] : project.products) nomzub::RegisterObject(oid, product.name);
  for (const Operation& op : project.operations) nomzub::RegisterObject(op.oid, op.name);
}

const Project* LoadedProject(std::string* why) {
  Session& s = TheSession();
  if (s.project) return s.project.get();
  if (!s.db) {
    *why = "not connected to a planning server";
  } else if (s.project_name.empty()) {
    *why = "no project selected";
  } else if (LoadSelected(s, why)) {
    return s.project.get();
  }
  return nullptr;
}

const Filter& CurrentFilter() { return TheSession().filter; }

bool PassesFilter(const Project& project, const Filter& filter, const Instance& root) {
  const Product& product = project.products.at(root.product);
  return filter.Matches({product.kind, root.name, product.oid, root.ident});
}

}  // namespace nomzub::proxy

using nomzub::proxy::Fail;
using nomzub::proxy::TheSession;

NOMZUBConnector::NOMZUBConnector() = default;
NOMZUBConnector::~NOMZUBConnector() = default;

NOMZUBConnector* NOMZUBConnector::Instance() {
  static NOMZUBConnector instance;
  return nomzub::proxy::g_connector_overridden ? nomzub::proxy::g_connector_override : &instance;
}

HRESULT NOMZUBConnector::SetDataSource(NOMZUBDataSource source) {
  if (source != NOMZUB_DS_CONFIGURED && source != NOMZUB_DS_SQLITE &&
      source != NOMZUB_DS_POSTGRESQL) {
    nomzub::LogServiceError("unknown data source " + std::to_string(source));
    return E_INVALIDARG;
  }
  TheSession().source = source;
  return S_OK;
}

HRESULT NOMZUBConnector::SetLogin(const std::string& login, const std::string& password) {
  auto& s = TheSession();
  if (login.empty()) {
    s.has_login = false;
    s.credentials = {};
    return Fail("no login given: the planning server needs a login");
  }
  if (password.size() > nomzub::kMaxPasswordBytes) {
    s.has_login = false;
    s.credentials = {};
    return Fail("the password given for login '" + login + "' is longer than " +
                std::to_string(nomzub::kMaxPasswordBytes) + " bytes (the limit): refused");
  }
  s.has_login = true;
  s.credentials = {login, password};
  return S_OK;
}

HRESULT NOMZUBConnector::Connect(tagCOINIT) {
  auto& s = TheSession();
  s.ForgetProject();
  s.db.reset();
  std::string url = nomzub::ConfiguredServer();
  std::string shown = nomzub::RedactServerUrl(url);
  if (!s.has_login) return Fail("cannot connect to " + shown + ": no login given");
  bool sqlite = nomzub::proxy::IsSqliteUrl(url);
  if ((s.source == NOMZUB_DS_SQLITE && !sqlite) ||
      (s.source == NOMZUB_DS_POSTGRESQL && (sqlite || url.empty()))) {
    return Fail("the configured server '" + shown + "' does not match the selected data source");
  }
  std::string error;
  auto db = nomzub::proxy::OpenPlanningDb(url, nomzub::proxy::DbAccess::kReadOnly, &s.credentials,
                                          &error);
  if (!db || !nomzub::proxy::CheckSchemaVersion(*db, shown, &error) ||
      (sqlite && !nomzub::proxy::Authenticate(*db, s.credentials, &error))) {
    return Fail(error);
  }
  s.db = std::move(db);
  s.url = url;
  return S_OK;
}

HRESULT NOMZUBConnector::SetProject(const std::string& project) {
  auto& s = TheSession();
  s.ForgetProject();
  if (!s.db) return Fail("cannot select project '" + project + "': not connected");
  std::string error;
  bool exists = false;
  if (!nomzub::proxy::ProjectExists(*s.db, project, &exists, &error)) return Fail(error);
  if (!exists) {
    return Fail("unknown project '" + project + "' on planning server " +
                nomzub::RedactServerUrl(s.url));
  }
  s.project_name = project;
  if (!nomzub::proxy::LoadSelected(s, &error)) {
    s.project_name.clear();
    return Fail(error);
  }
  return S_OK;
}

HRESULT NOMZUBConnector::SetFilters(const std::string& filters) {
  auto& s = TheSession();
  if (s.project_name.empty()) return Fail("cannot set filters: no project selected");
  std::string error;
  if (!nomzub::proxy::Filter::Parse(filters, &s.filter, &error)) return Fail(error);
  return S_OK;
}

HRESULT NOMZUBConnector::Cleanup(int32_t flag) {
  auto& s = TheSession();
  if (flag == 1) {
    s.ForgetProject();
  } else {
    s.ReleaseData();
  }
  return S_OK;
}

HRESULT NOMZUBConnector::Disconnect(int32_t) {
  auto& s = TheSession();
  s.ForgetProject();
  s.db.reset();
  s.url.clear();
  s.has_login = false;
  s.credentials = {};
  return S_OK;
}

void nomzub::OverrideConnector(NOMZUBConnector* connector) {
  proxy::g_connector_overridden = true;
  proxy::g_connector_override = connector;
}

void nomzub::RestoreConnector() {
  proxy::g_connector_overridden = false;
  proxy::g_connector_override = nullptr;
}

void nomzub::SetConfiguredServer(const std::string& url) { proxy::g_configured_server = url; }

std::string nomzub::ConfiguredServer() {
  if (!proxy::g_configured_server.empty()) return proxy::g_configured_server;
  std::string url;
  nomplat::CurrentEnv()->GetEnvironmentVariable("NOMZUB_SERVER", &url);
  return url;
}
