// BSTRs: UTF-16 strings preceded by their length in bytes (4 bytes) and followed by a zero unit.
#include <cstdlib>
#include <cstring>

#include "platform/codepage.h"

namespace nomplat {

BSTR SysAllocStringLen(const OLECHAR* src, UINT len) {
  constexpr size_t kPrefix = sizeof(uint32_t);
  if (len > (UINT32_MAX - kPrefix - sizeof(OLECHAR)) / sizeof(OLECHAR)) return nullptr;
  const size_t bytes = static_cast<size_t>(len) * sizeof(OLECHAR);
  char* block = static_cast<char*>(std::malloc(kPrefix + bytes + sizeof(OLECHAR)));
  if (block == nullptr) return nullptr;
  const uint32_t byteLength = static_cast<uint32_t>(bytes);
  std::memcpy(block, &byteLength, kPrefix);
  BSTR text = reinterpret_cast<BSTR>(block + kPrefix);
  if (src != nullptr) {
    std::memcpy(text, src, bytes);
  } else {
    std::memset(text, 0, bytes);
  }
  text[len] = 0;
  return text;
}

void SysFreeString(BSTR s) {
  if (s != nullptr) std::free(reinterpret_cast<char*>(s) - sizeof(uint32_t));
}

UINT SysStringLen(BSTR s) {
  if (s == nullptr) return 0;
  uint32_t byteLength;
  std::memcpy(&byteLength, reinterpret_cast<char*>(s) - sizeof(uint32_t), sizeof byteLength);
  return byteLength / sizeof(OLECHAR);
}

}  // namespace nomplat
