// Opening a planning database: the server text chooses the engine.
#include "NOMZUBProxy/planning_db.h"

#include "NOMZUBProxy/planning_engines.h"
#include "services/NOMZUBConnector.h"

namespace nomzub::proxy {
namespace {

bool StartsWith(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

std::unique_ptr<PlanningDb> OpenPlanningDb(const std::string& url, DbAccess access,
                                           const DbCredentials* credentials, std::string* error) {
  if (IsSqliteUrl(url)) return OpenSqliteDb(url, access, error);
  if (StartsWith(url, "postgresql://") || StartsWith(url, "postgres://")) {
    return OpenPostgresDb(url, access, credentials, error);
  }
  *error = url.empty() ? std::string(
                             "no planning server configured: set NOMZUB_SERVER or pass "
                             "--server (sqlite:PATH or postgresql://...)")
                       : "unsupported planning server URL '" + RedactServerUrl(url) +
                             "': expected sqlite:PATH or postgresql://...";
  return nullptr;
}

bool IsSqliteUrl(const std::string& url) { return StartsWith(url, kSqlitePrefix); }

}  // namespace nomzub::proxy
