// SHA-256, HMAC-SHA-256 and PBKDF2-HMAC-SHA-256: the salted password hashes of the accounts table.
#ifndef NOM_NOMZUBPROXY_SHA256_H_
#define NOM_NOMZUBPROXY_SHA256_H_

#include <array>
#include <cstdint>
#include <string>

namespace nomzub::proxy {

using Sha256Digest = std::array<uint8_t, 32>;

// The SHA-256 digest of data (FIPS 180-4).
Sha256Digest Sha256(const std::string& data);

// HMAC-SHA-256 of message under key (RFC 2104).
Sha256Digest HmacSha256(const std::string& key, const std::string& message);

// PBKDF2 with HMAC-SHA-256 (RFC 8018), length bytes of derived key.
std::string Pbkdf2HmacSha256(const std::string& password, const std::string& salt, int iterations,
                             size_t length);

// Lower-case hexadecimal text of bytes.
std::string ToHex(const std::string& bytes);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_SHA256_H_
