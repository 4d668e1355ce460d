// Schema creation, sample and synthetic projects, accounts: the administrative entry points.
#include "NOMZUBProxy/planning_admin.h"

#include <functional>

#include "NOMZUBProxy/accounts.h"
#include "NOMZUBProxy/planning_db.h"
#include "NOMZUBProxy/planning_schema.h"
#include "NOMZUBProxy/project_store.h"
#include "NOMZUBProxy/sample_project.h"
#include "NOMZUBProxy/sha256.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBLog.h"

namespace nomzub {
namespace {

using proxy::PlanningDb;

HRESULT Fail(const std::string& cause) {
  LogServiceError(cause);
  return E_FAIL;
}

// Opens url for writing with the schema at version, then runs work inside one transaction.
HRESULT WithSchema(const std::string& url, int version,
                   const std::function<bool(PlanningDb&, std::string*)>& work) {
  std::string error;
  std::unique_ptr<PlanningDb> db =
      proxy::OpenPlanningDb(url, proxy::DbAccess::kCreate, nullptr, &error);
  if (!db || !proxy::MigrateSchema(*db, RedactServerUrl(url), version, &error)) {
    return Fail(error);
  }
  if (!work) return S_OK;
  if (!db->RunScript("BEGIN") || !work(*db, &error) || !db->RunScript("COMMIT")) {
    if (error.empty()) error = db->error();
    db->RunScript("ROLLBACK");
    return Fail("cannot write to planning database " + RedactServerUrl(url) + ": " + error);
  }
  return S_OK;
}

}  // namespace

HRESULT InitPlanningDatabase(const std::string& url) {
  return WithSchema(url, proxy::kSchemaVersion, nullptr);
}

int PlanningSchemaVersion() { return proxy::kSchemaVersion; }

HRESULT MigratePlanningDatabase(const std::string& url, int version) {
  if (version < 1 || version > proxy::kSchemaVersion) {
    return Fail("no schema version " + std::to_string(version) + " (this build knows 1 to " +
                std::to_string(proxy::kSchemaVersion) + ")");
  }
  return WithSchema(url, version, nullptr);
}

HRESULT LoadSamplePlanningData(const std::string& url) {
  return WithSchema(url, proxy::kSchemaVersion, [](PlanningDb& db, std::string* error) {
    return proxy::StoreProject(db, proxy::BuildSampleProject(), "Sample: a gearbox assembly line",
                               error) &&
           proxy::StoreAccount(db, kSampleLogin, kSamplePassword, error);
  });
}

HRESULT LoadSyntheticPlanningData(const std::string& url, const std::string& project,
                                  int productCount) {
  if (productCount < 4 || project.empty()) {
    return Fail("a synthetic project needs a name and at least 4 products");
  }
  return WithSchema(url, proxy::kSchemaVersion, [&](PlanningDb& db, std::string* error) {
    return proxy::StoreProject(db, proxy::BuildSyntheticProject(project, productCount),
                               "Synthetic: " + std::to_string(productCount) + " products", error);
  });
}

HRESULT AddPlanningAccount(const std::string& url, const std::string& login,
                           const std::string& password) {
  if (login.empty()) return Fail("an account needs a login");
  return WithSchema(url, proxy::kSchemaVersion, [&](PlanningDb& db, std::string* error) {
    return proxy::StoreAccount(db, login, password, error);
  });
}

HRESULT RunPlanningSql(const std::string& url, const std::string& sql,
                       std::vector<std::vector<std::string>>* rows) {
  std::string error;
  std::unique_ptr<PlanningDb> db =
      proxy::OpenPlanningDb(url, proxy::DbAccess::kCreate, nullptr, &error);
  if (!db) return Fail(error);
  if (!db->Run(sql, {}, rows)) {
    return Fail("SQL failed on " + RedactServerUrl(url) + ": " + db->error());
  }
  return S_OK;
}

std::string HashPlanningPassword(const std::string& password, const std::string& salt,
                                 int iterations) {
  return proxy::ToHex(proxy::Pbkdf2HmacSha256(password, salt, iterations, 32));
}

int PlanningPasswordIterations() { return proxy::kPasswordIterations; }

uint64_t PlanningHashIterationsRun() { return proxy::Pbkdf2IterationsRun(); }

}  // namespace nomzub
