// Writing projects and accounts into a planning database.
#ifndef NOM_NOMZUBPROXY_PROJECT_STORE_H_
#define NOM_NOMZUBPROXY_PROJECT_STORE_H_

#include <string>

#include "NOMZUBProxy/planning_db.h"
#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// Replaces the project of that name (every row of it) with project. Runs inside the caller's
// transaction. False with the database's message in *error.
bool StoreProject(PlanningDb& db, const Project& project, const std::string& description,
                  std::string* error);

// Creates or replaces an account: a fresh random salt, PBKDF2-HMAC-SHA-256 of the password in
// kPasswordIterations rounds, the count stored beside the hash. False with *error when the
// password is longer than nomzub::kMaxPasswordBytes (nothing is hashed or written) or the
// database fails.
bool StoreAccount(PlanningDb& db, const std::string& login, const std::string& password,
                  std::string* error);

// The iteration count new accounts get, and the work every login check does at the least.
// Accounts stored with a smaller count (4096 before) still verify with their own count.
constexpr int kPasswordIterations = 600000;

// The largest iteration count a stored account may name; a larger one is treated as damaged.
constexpr int kMaxStoredIterations = 10000000;

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PROJECT_STORE_H_
