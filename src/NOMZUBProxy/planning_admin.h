// Administration of a planning database: schema creation and the sample project.
#ifndef NOM_NOMZUBPROXY_PLANNING_ADMIN_H_
#define NOM_NOMZUBPROXY_PLANNING_ADMIN_H_

#include <cstdint>
#include <string>
#include <vector>

#include "win_types.h"

namespace nomzub {

// Creates the planning schema at url ("sqlite:PATH" or "postgresql://..."), or upgrades an older
// version of it. S_OK; E_FAIL with the cause at level 2 (unreachable server, a schema newer than
// this build, a file that is not a database).
NOM_API HRESULT InitPlanningDatabase(const std::string& url);
// Creates the schema when needed and loads the sample project (replacing an earlier copy of it).
// S_OK; E_FAIL with the cause at level 2.
NOM_API HRESULT LoadSamplePlanningData(const std::string& url);

// The sample project and the account LoadSamplePlanningData creates (SQLite authenticates it; a
// PostgreSQL server authenticates its own roles).
constexpr char kSampleProject[] = "AssemblyLine";
constexpr char kSampleLogin[] = "planner";
constexpr char kSamplePassword[] = "planner";

// The schema version this build reads and writes.
NOM_API int PlanningSchemaVersion();

// Creates the schema at url up to version (1 .. PlanningSchemaVersion()), or upgrades it to that
// version; a database already at or above it is left alone. S_OK; E_FAIL with the cause at
// level 2, as InitPlanningDatabase.
NOM_API HRESULT MigratePlanningDatabase(const std::string& url, int version);

// Creates the schema when needed and stores a synthetic project of productCount products (at
// least 4; see the measurement in bench/) under the name project, replacing an earlier copy.
// S_OK; E_FAIL with the cause at level 2.
NOM_API HRESULT LoadSyntheticPlanningData(const std::string& url, const std::string& project,
                                          int productCount);

// Creates or replaces an account of the database's accounts table: a fresh salt and
// PlanningPasswordIterations() rounds, the count stored with the hash. S_OK; E_FAIL (level 2),
// also for a password longer than kMaxPasswordBytes (nothing written).
NOM_API HRESULT AddPlanningAccount(const std::string& url, const std::string& login,
                                   const std::string& password);

// Runs one SQL statement against the database at url with the URL's own credentials (for
// maintenance and tests), storing any result rows in *rows (NULL reads as "") when rows is not
// null. S_OK; E_FAIL with the cause at level 2.
NOM_API HRESULT RunPlanningSql(const std::string& url, const std::string& sql,
                               std::vector<std::vector<std::string>>* rows);

// The hexadecimal PBKDF2-HMAC-SHA-256 hash (32 bytes) that the accounts table stores for
// password with that salt text and iteration count (at least 1; "" otherwise).
NOM_API std::string HashPlanningPassword(const std::string& password, const std::string& salt,
                                         int iterations);

// The iteration count new accounts get (600,000); every SQLite login check runs at least as many.
NOM_API int PlanningPasswordIterations();

// How many PBKDF2 iterations this process has run so far (accounts stored, logins checked), for
// tests and measurements of the work a login costs.
NOM_API uint64_t PlanningHashIterationsRun();

}  // namespace nomzub

#endif  // NOM_NOMZUBPROXY_PLANNING_ADMIN_H_
