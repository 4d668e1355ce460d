// The account hashes through OpenSSL's PBKDF2, a maintained and hardware-accelerated
// implementation: hundreds of thousands of rounds per login cost a fraction of a second.
#include "NOMZUBProxy/sha256.h"

#include <openssl/evp.h>

#include <atomic>
#include <climits>

namespace nomzub::proxy {
namespace {

std::atomic<uint64_t> g_iterations_run{0};

}  // namespace

std::string Pbkdf2HmacSha256(const std::string& password, const std::string& salt, int iterations,
                             size_t length) {
  if (iterations < 1 || password.size() > INT_MAX || salt.size() > INT_MAX || length > INT_MAX) {
    return "";
  }
  g_iterations_run += static_cast<uint64_t>(iterations);
  std::string derived(length, '\0');
  if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()),
                        reinterpret_cast<const unsigned char*>(salt.data()),
                        static_cast<int>(salt.size()), iterations, EVP_sha256(),
                        static_cast<int>(length),
                        reinterpret_cast<unsigned char*>(derived.data())) != 1) {
    return "";
  }
  return derived;
}

uint64_t Pbkdf2IterationsRun() { return g_iterations_run.load(); }

std::string ToHex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    hex += kDigits[c >> 4];
    hex += kDigits[c & 15];
  }
  return hex;
}

}  // namespace nomzub::proxy
