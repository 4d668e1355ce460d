// Storing and checking the accounts of an SQLite planning database.
#include "NOMZUBProxy/accounts.h"

#include <algorithm>
#include <random>

#include "NOMZUBProxy/sha256.h"
#include "services/NOMZUBConnector.h"

namespace nomzub::proxy {
namespace {

// Bytes of hash PBKDF2 derives, stored as hexadecimal text.
constexpr size_t kHashBytes = 32;

std::string HashText(const std::string& password, const std::string& salt, int iterations) {
  return ToHex(Pbkdf2HmacSha256(password, salt, iterations, kHashBytes));
}

// Whether two hash texts are equal, in a time that depends on their length only.
bool SameHash(const std::string& a, const std::string& b) {
  unsigned char diff = a.size() == b.size() && !a.empty() ? 0 : 1;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) diff |= a[i] ^ b[i];
  return diff == 0;
}

}  // namespace

bool PasswordFits(const std::string& password) { return password.size() <= kMaxPasswordBytes; }

bool StoreAccount(PlanningDb& db, const std::string& login, const std::string& password,
                  std::string* error) {
  if (!PasswordFits(password)) {
    *error = "the password of account '" + login + "' is longer than " +
             std::to_string(kMaxPasswordBytes) + " bytes (the limit)";
    return false;
  }
  std::random_device random;
  std::string salt_bytes;
  for (int i = 0; i < 16; ++i) salt_bytes += static_cast<char>(random());
  const std::string salt = ToHex(salt_bytes);
  const std::string hash = HashText(password, salt, kPasswordIterations);
  if (db.Run("DELETE FROM accounts WHERE login = ?", {login}, nullptr) &&
      db.Run("INSERT INTO accounts (login, salt, iterations, password_hash) VALUES (?, ?, ?, ?)",
             {login, salt, std::to_string(kPasswordIterations), hash}, nullptr)) {
    return true;
  }
  *error = db.error();
  return false;
}

// An account stored with fewer rounds (the older format) is topped up with dummy rounds, and an
// unknown login is hashed against a dummy salt, so that every check costs what the check of a
// current account costs.
bool CheckLogin(PlanningDb& db, const DbCredentials& credentials, std::string* error) {
  Rows rows;
  if (!db.Run("SELECT salt, iterations, password_hash FROM accounts WHERE login = ?",
              {credentials.login}, &rows)) {
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
    match = SameHash(HashText(credentials.password, rows[0][0], iterations), rows[0][2]);
    rounds_left -= std::min(iterations, kPasswordIterations);
  }
  if (rounds_left > 0) {
    // Rounds whose result is not used.
    static const char kDummySalt[] = "00000000000000000000000000000000";
    Pbkdf2HmacSha256(credentials.password, kDummySalt, rounds_left, kHashBytes);
  }
  if (!match) {
    *error = "login refused for '" + credentials.login + "': unknown login or wrong password";
  }
  return match;
}

}  // namespace nomzub::proxy
