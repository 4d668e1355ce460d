// Multibyte strings in the process's code page: stepping, comparison and search by character, so
// that a trail byte is never taken for the ASCII character it equals.
#include <cstring>
#include <string_view>

#include "platform/codepage.h"
#include "platform/codepage_internal.h"

namespace nomplat {
namespace {

const unsigned char* Bytes(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

int CompareIn(UINT cp, const unsigned char* a, size_t na, const unsigned char* b, size_t nb) {
  if (!IsDoubleBytePage(cp)) {
    // Every byte is one character: the byte order is the character order.
    const int c = std::memcmp(a, b, na < nb ? na : nb);
    if (c != 0) return c < 0 ? -1 : 1;
    return na == nb ? 0 : (na < nb ? -1 : 1);
  }
  size_t i = 0, j = 0;
  while (i < na && j < nb) {
    const MbChar ca = CharAt(cp, a, na, i);
    const MbChar cb = CharAt(cp, b, nb, j);
    if (ca.value != cb.value) return ca.value < cb.value ? -1 : 1;
    i += ca.size;
    j += cb.size;
  }
  if (i < na) return 1;
  return j < nb ? -1 : 0;
}

size_t FindIn(UINT cp, const unsigned char* hay, size_t nh, const unsigned char* needle,
              size_t nn) {
  if (!IsDoubleBytePage(cp)) {
    return std::string_view(reinterpret_cast<const char*>(hay), nh)
        .find(std::string_view(reinterpret_cast<const char*>(needle), nn));
  }
  if (nn == 0) return 0;
  for (size_t i = 0; i + nn <= nh; i += CharAt(cp, hay, nh, i).size) {
    if (std::memcmp(hay + i, needle, nn) == 0) return i;
  }
  return std::string::npos;
}

size_t FindLastIn(UINT cp, const unsigned char* s, size_t n, unsigned c) {
  size_t found = std::string::npos;
  for (size_t i = 0; i < n;) {
    const MbChar ch = CharAt(cp, s, n, i);
    if (ch.value == c) found = i;
    i += ch.size;
  }
  return found;
}

}  // namespace

bool IsLeadByteIn(UINT cp, unsigned char b) {
  switch (cp) {
    case 932:
      return (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC);
    case 936:
    case 949:
    case 950:
      return b >= 0x81 && b <= 0xFE;
    default:
      return false;
  }
}

MbChar CharAt(UINT cp, const unsigned char* s, size_t n, size_t i) {
  if (i + 1 < n && s[i + 1] != 0 && IsLeadByteIn(cp, s[i])) {
    return {(static_cast<unsigned>(s[i]) << 8) | s[i + 1], 2};
  }
  return {s[i], 1};
}

const unsigned char* _mbsinc(const unsigned char* p) {
  if (p[0] < 0x80) return p + 1;  // no code page has a lead byte below 0x81
  return p + (p[1] != 0 && IsLeadByteIn(GetACP(), p[0]) ? 2 : 1);
}

int MbsCompare(const std::string& a, const std::string& b) {
  return CompareIn(GetACP(), Bytes(a), a.size(), Bytes(b), b.size());
}

std::string::size_type MbsFind(const std::string& hay, const std::string& needle) {
  return FindIn(GetACP(), Bytes(hay), hay.size(), Bytes(needle), needle.size());
}

std::string::size_type MbsFindLast(const std::string& s, char c) {
  return FindLastIn(GetACP(), Bytes(s), s.size(), static_cast<unsigned char>(c));
}

}  // namespace nomplat

bool NOMMbsLess::operator()(const std::string& a, const std::string& b) const {
  return nomplat::MbsCompare(a, b) < 0;
}
