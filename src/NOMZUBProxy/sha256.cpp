// SHA-256 and the constructions built on it, written out so the accounts need no crypto library.
#include "NOMZUBProxy/sha256.h"

#include <cstring>

namespace nomzub::proxy {
namespace {

constexpr uint32_t kRoundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t RotateRight(uint32_t v, int n) { return (v >> n) | (v << (32 - n)); }

// Folds one 64-byte block into the state.
void Compress(uint32_t state[8], const uint8_t block[64]) {
  uint32_t w[64];
  for (int i = 0; i < 16; ++i) {
    w[i] = uint32_t{block[4 * i]} << 24 | uint32_t{block[4 * i + 1]} << 16 |
           uint32_t{block[4 * i + 2]} << 8 | uint32_t{block[4 * i + 3]};
  }
  for (int i = 16; i < 64; ++i) {
    uint32_t s0 = RotateRight(w[i - 15], 7) ^ RotateRight(w[i - 15], 18) ^ (w[i - 15] >> 3);
    uint32_t s1 = RotateRight(w[i - 2], 17) ^ RotateRight(w[i - 2], 19) ^ (w[i - 2] >> 10);
    w[i] = w[i - 16] + s0 + w[i - 7] + s1;
  }
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
  for (int i = 0; i < 64; ++i) {
    uint32_t s1 = RotateRight(e, 6) ^ RotateRight(e, 11) ^ RotateRight(e, 25);
    uint32_t t1 = h + s1 + ((e & f) ^ (~e & g)) + kRoundConstants[i] + w[i];
    uint32_t s0 = RotateRight(a, 2) ^ RotateRight(a, 13) ^ RotateRight(a, 22);
    uint32_t t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + t1;
    d = c;
    c = b;
    b = a;
    a = t1 + t2;
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
  state[4] += e;
  state[5] += f;
  state[6] += g;
  state[7] += h;
}

std::string AsString(const Sha256Digest& digest) {
  return std::string(digest.begin(), digest.end());
}

}  // namespace

Sha256Digest Sha256(const std::string& data) {
  uint32_t state[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                       0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  const auto* bytes = reinterpret_cast<const uint8_t*>(data.data());
  size_t full = data.size() / 64 * 64;
  for (size_t i = 0; i < full; i += 64) Compress(state, bytes + i);
  // The tail, the 0x80 marker, zero padding and the bit length fill one or two more blocks.
  uint8_t tail[128] = {};
  size_t rest = data.size() - full;
  std::memcpy(tail, bytes + full, rest);
  tail[rest] = 0x80;
  size_t tail_size = rest < 56 ? 64 : 128;
  uint64_t bits = uint64_t{data.size()} * 8;
  for (int i = 0; i < 8; ++i) tail[tail_size - 1 - i] = static_cast<uint8_t>(bits >> (8 * i));
  for (size_t i = 0; i < tail_size; i += 64) Compress(state, tail + i);
  Sha256Digest digest;
  for (int i = 0; i < 32; ++i) digest[i] = static_cast<uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
  return digest;
}

Sha256Digest HmacSha256(const std::string& key, const std::string& message) {
  std::string block_key = key.size() > 64 ? AsString(Sha256(key)) : key;
  block_key.resize(64, '\0');
  std::string inner(64, '\0');
  std::string outer(64, '\0');
  for (int i = 0; i < 64; ++i) {
    inner[i] = static_cast<char>(block_key[i] ^ 0x36);
    outer[i] = static_cast<char>(block_key[i] ^ 0x5c);
  }
  return Sha256(outer + AsString(Sha256(inner + message)));
}

std::string Pbkdf2HmacSha256(const std::string& password, const std::string& salt, int iterations,
                             size_t length) {
  std::string derived;
  for (uint32_t block = 1; derived.size() < length; ++block) {
    std::string counter = {static_cast<char>(block >> 24), static_cast<char>(block >> 16),
                           static_cast<char>(block >> 8), static_cast<char>(block)};
    Sha256Digest u = HmacSha256(password, salt + counter);
    Sha256Digest t = u;
    for (int i = 1; i < iterations; ++i) {
      u = HmacSha256(password, AsString(u));
      for (size_t j = 0; j < t.size(); ++j) t[j] ^= u[j];
    }
    derived += AsString(t);
  }
  derived.resize(length);
  return derived;
}

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
