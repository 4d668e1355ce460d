// The two engines behind PlanningDb, opened by OpenPlanningDb.
#ifndef NOM_NOMZUBPROXY_PLANNING_ENGINES_H_
#define NOM_NOMZUBPROXY_PLANNING_ENGINES_H_

#include <memory>
#include <string>

#include "NOMZUBProxy/planning_db.h"

namespace nomzub::proxy {

// What an SQLite server text starts with; the path follows.
constexpr char kSqlitePrefix[] = "sqlite:";

// Opens "sqlite:PATH" (PATH a native or module path): an existing file for kReadOnly, created
// when missing for kCreate. Null with *error naming the database and the cause.
std::unique_ptr<PlanningDb> OpenSqliteDb(const std::string& url, DbAccess access,
                                         std::string* error);

// Connects to a PostgreSQL URL, read-only for kReadOnly; credentials, when given, override the
// URL's user and password. Null with *error naming the server, every password hidden.
std::unique_ptr<PlanningDb> OpenPostgresDb(const std::string& url, DbAccess access,
                                           const DbCredentials* credentials, std::string* error);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PLANNING_ENGINES_H_
