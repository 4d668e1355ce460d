// NOMZUBConnector's operations and the session they set up: the data source, the login, the open
// connection, the selected project, loaded once (its objects registered with the object factory
// here and nowhere else), and the filter.
#include "NOMZUBProxy/session.h"

#include <memory>

#include "NOMZUBProxy/accounts.h"
#include "NOMZUBProxy/planning_db.h"
#include "NOMZUBProxy/planning_schema.h"
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

  // Loads the selected project and registers its objects. False with the cause in *error.
  bool LoadSelected(std::string* error) {
    auto loaded = std::make_unique<Project>();
    if (!LoadProject(*db, project_name, loaded.get(), error)) return false;
    project = std::move(loaded);
    for (const auto& [oid, product] : project->products) RegisterObject(oid, product.name);
    for (const Operation& op : project->operations) RegisterObject(op.oid, op.name);
    return true;
  }
  // Forgets the loaded project and the objects registered from it.
  void ReleaseData() {
    project.reset();
    ClearObjects();
  }
  void ForgetProject() {
    ReleaseData();
    project_name.clear();
    filter = Filter();
  }
  void ForgetLogin() {
    has_login = false;
    credentials = {};
  }
  void Close() {
    ForgetProject();
    db.reset();
    url.clear();
  }
};

Session& TheSession() {
  static Session session;
  return session;
}

HRESULT Fail(const std::string& cause) {
  LogServiceError(cause);
  return E_FAIL;
}

}  // namespace

const Project* LoadedProject(std::string* why) {
  Session& s = TheSession();
  if (s.project) return s.project.get();
  if (!s.db) {
    *why = "not connected to a planning server";
  } else if (s.project_name.empty()) {
    *why = "no project selected";
  } else if (s.LoadSelected(why)) {
    return s.project.get();
  }
  return nullptr;
}

const Filter& CurrentFilter() { return TheSession().filter; }

}  // namespace nomzub::proxy

using nomzub::proxy::Fail;
using nomzub::proxy::TheSession;

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
  s.ForgetLogin();
  if (login.empty()) return Fail("no login given: the planning server needs a login");
  if (!nomzub::proxy::PasswordFits(password)) {
    return Fail("the password given for login '" + login + "' is longer than " +
                std::to_string(nomzub::kMaxPasswordBytes) + " bytes (the limit): refused");
  }
  s.has_login = true;
  s.credentials = {login, password};
  return S_OK;
}

HRESULT NOMZUBConnector::Connect(tagCOINIT) {
  auto& s = TheSession();
  s.Close();
  const std::string url = nomzub::ConfiguredServer();
  const std::string shown = nomzub::RedactServerUrl(url);
  if (!s.has_login) return Fail("cannot connect to " + shown + ": no login given");
  const bool sqlite = nomzub::proxy::IsSqliteUrl(url);
  if ((s.source == NOMZUB_DS_SQLITE && !sqlite) ||
      (s.source == NOMZUB_DS_POSTGRESQL && (sqlite || url.empty()))) {
    return Fail("the configured server '" + shown + "' does not match the selected data source");
  }
  std::string error;
  auto db = nomzub::proxy::OpenPlanningDb(url, nomzub::proxy::DbAccess::kReadOnly, &s.credentials,
                                          &error);
  if (!db || !nomzub::proxy::CheckSchemaVersion(*db, shown, &error) ||
      (sqlite && !nomzub::proxy::CheckLogin(*db, s.credentials, &error))) {
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
  if (!s.LoadSelected(&error)) {
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
  s.Close();
  s.ForgetLogin();
  return S_OK;
}
