// The accounts of an SQLite planning database: logins stored and checked with salted
// PBKDF2-HMAC-SHA-256 hashes. (A PostgreSQL server checks its own roles.)
#ifndef NOM_NOMZUBPROXY_ACCOUNTS_H_
#define NOM_NOMZUBPROXY_ACCOUNTS_H_

#include <string>

#include "NOMZUBProxy/planning_db.h"

namespace nomzub::proxy {

// The iteration count new accounts get, and the work every login check does at the least.
// Accounts stored with a smaller count (4096 before) still verify with their own count.
constexpr int kPasswordIterations = 600000;

// The largest iteration count a stored account may name; a larger one is treated as damaged.
constexpr int kMaxStoredIterations = 10000000;

// Whether password is short enough for an account (at most nomzub::kMaxPasswordBytes bytes).
bool PasswordFits(const std::string& password);

// Creates or replaces an account: a fresh random salt, PBKDF2-HMAC-SHA-256 of the password in
// kPasswordIterations rounds, the count stored beside the hash. Runs inside the caller's
// transaction. False with *error when the password does not fit (nothing is hashed or written)
// or the database fails.
bool StoreAccount(PlanningDb& db, const std::string& login, const std::string& password,
                  std::string* error);

// Checks credentials against the accounts table: PBKDF2-HMAC-SHA-256 of the password with the
// account's salt and iteration count must equal the stored hash. Every check runs at least
// kPasswordIterations rounds, an unknown login (or a damaged account row) included, so the time a
// refusal takes does not tell whether the login exists. True on a match; false with *error when
// the login is refused or the accounts cannot be read.
bool CheckLogin(PlanningDb& db, const DbCredentials& credentials, std::string* error);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_ACCOUNTS_H_
