// PBKDF2-HMAC-SHA-256 (OpenSSL's): the salted password hashes of the accounts table.
#ifndef NOM_NOMZUBPROXY_SHA256_H_
#define NOM_NOMZUBPROXY_SHA256_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace nomzub::proxy {

// PBKDF2 with HMAC-SHA-256 (RFC 8018): length bytes of key derived from password and salt in
// iterations rounds (at least 1). "" when OpenSSL fails (out of memory) or an argument is out of
// its range, which no stored hash equals.
std::string Pbkdf2HmacSha256(const std::string& password, const std::string& salt, int iterations,
                             size_t length);

// How many PBKDF2 iterations this process has run so far, over every call.
uint64_t Pbkdf2IterationsRun();

// Lower-case hexadecimal text of bytes.
std::string ToHex(const std::string& bytes);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_SHA256_H_
