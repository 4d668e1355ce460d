// What the code page files share: the lead-byte tables, stepping by character, the supported
// pages' iconv names and the per-thread iconv descriptors. Internal to libNOMZUBBase.
#ifndef NOM_PLATFORM_CODEPAGE_INTERNAL_H_
#define NOM_PLATFORM_CODEPAGE_INTERNAL_H_

#include <iconv.h>

#include <cstddef>
#include <string>

#include "win_types.h"

namespace nomplat {

// iconv's name for UTF-16 in the host's byte order (char16_t), and UTF-8's.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr const char* kUtf16Name = "UTF-16LE";
#else
constexpr const char* kUtf16Name = "UTF-16BE";
#endif
constexpr const char* kUtf8Name = "UTF-8";

// True for the double-byte pages: 932, 936, 949 and 950.
bool IsDoubleBytePage(UINT cp);
// True when byte b starts a double-byte character in page cp (932: 0x81-0x9F and 0xE0-0xFC; 936,
// 949, 950: 0x81-0xFE); false in every other page.
bool IsLeadByteIn(UINT cp, unsigned char b);

// One character of a multibyte string: its value ((lead << 8) | trail for a double-byte one) and
// its length in bytes.
struct MbChar {
  unsigned value;
  size_t size;
};
// The character of s[0, n) in page cp that starts at i (i < n). A lead byte counts as a single
// byte when it is the last byte or is followed by a zero byte.
MbChar CharAt(UINT cp, const unsigned char* s, size_t n, size_t i);

// Whether page cp can be used, and under which iconv name (*name; "" when it cannot). Looked up
// once per page and remembered; safe from any thread.
bool PageName(UINT cp, std::string* name);

// This thread's open iconv conversion from -> to, reset to its initial state; (iconv_t)-1 when
// iconv lacks it. Owned by the thread's cache (closed at thread exit): never iconv_close it.
iconv_t Converter(const std::string& from, const std::string& to);

}  // namespace nomplat

#endif  // NOM_PLATFORM_CODEPAGE_INTERNAL_H_
