// Multibyte strings in the process's ANSI code page (ACP), with the stepping and comparison rules
// of the Windows runtime, conversion to UTF-8 and UTF-16, and BSTRs.
#ifndef NOM_PLATFORM_CODEPAGE_H_
#define NOM_PLATFORM_CODEPAGE_H_

#include <string>

#include "win_types.h"

typedef char16_t OLECHAR;
// A length-prefixed UTF-16 string as SysAllocStringLen makes it; null is the empty string.
typedef OLECHAR* BSTR;

constexpr UINT CP_ACP = 0;
constexpr UINT CP_THREAD_ACP = 3;
constexpr UINT CP_UTF8 = 65001;

namespace nomplat {

// The process's code page, chosen on first use: NOMZUB_CODE_PAGE (read through the current Env)
// when set to a supported page number, else 65001 when the locale's codeset is UTF-8 or ASCII (the
// C locale), else the locale's codeset as a Windows number (1252 when it has none). A
// NOMZUB_CODE_PAGE that is not a supported page is reported on standard error and ignored.
NOM_API UINT GetACP();
// Sets the process's code page (65001, 1252, 932, 936, 949, 950 or another single-byte page that
// iconv knows). Returns false and changes nothing for a page it cannot convert.
NOM_API bool SetACP(UINT codePage);
// The Windows code page of a locale codeset as nl_langinfo names it ("UTF-8", "SHIFT_JIS",
// "ISO-8859-1", ...); ASCII counts as 65001. 0 when the codeset has no Windows page.
NOM_API UINT CodePageOfCodeset(const char* codeset);

// Sets the process's code page for the lifetime of this object and restores the previous one.
// ok() is false (and nothing changed) when the page is not supported.
class ScopedCodePage {
 public:
  explicit ScopedCodePage(UINT codePage) : previous_(GetACP()), ok_(SetACP(codePage)) {}
  ~ScopedCodePage() { SetACP(previous_); }
  ScopedCodePage(const ScopedCodePage&) = delete;
  ScopedCodePage& operator=(const ScopedCodePage&) = delete;
  // True when the page was set.
  bool ok() const { return ok_; }

 private:
  UINT previous_;
  bool ok_;
};

// Next character after p: two bytes on for a lead byte of the process's code page followed by a
// non-zero byte (932: 0x81-0x9F and 0xE0-0xFC; 936, 949, 950: 0x81-0xFE), else one.
NOM_API const unsigned char* _mbsinc(const unsigned char* p);

// <0, 0, >0 as a orders before, equal to or after b, character by character in the process's
// code page; a double-byte character counts as (lead << 8) | trail, a single byte as its unsigned
// value, so in 932 "\xA1" orders before "\x81\x40". A prefix orders first.
NOM_API int MbsCompare(const std::string& a, const std::string& b);
// Byte offset of the first occurrence of needle in hay that starts at a character boundary;
// npos when none. An empty needle matches at 0.
NOM_API std::string::size_type MbsFind(const std::string& hay, const std::string& needle);
// Byte offset of the last single-byte character c in s (never a trail byte equal to c); npos
// when none.
NOM_API std::string::size_type MbsFindLast(const std::string& s, char c);

// Converts src (cbMultiByte bytes, or through its terminating zero when -1) from code page cp
// (CP_ACP and CP_THREAD_ACP: the process's code page) to UTF-16. With cchWideChar 0 returns the
// number of UTF-16 units needed (terminator included when cbMultiByte is -1); else writes at most
// cchWideChar units to dst and returns the number written, 0 when dst is too small (last error
// 122). 0 with last error 87 for a null or empty src or an unsupported page. A byte that starts
// no valid character becomes U+FFFD. flags are accepted and ignored.
NOM_API int MultiByteToWideChar(UINT cp, DWORD flags, const char* src, int cbMultiByte,
                                OLECHAR* dst, int cchWideChar);
// Text in the process's code page to UTF-8 (an invalid byte becomes U+FFFD), and UTF-8 to the
// code page (a character it cannot represent, or an invalid byte, becomes '?'). Used for file
// names and XML text; unchanged under 65001 and for ASCII text.
NOM_API std::string AcpToUtf8(const std::string& text);
NOM_API std::string Utf8ToAcp(const std::string& text);
// Whether AcpToUtf8 gives text back unchanged (65001, or ASCII text), so that a caller can use
// text as it is.
NOM_API bool AcpTextIsUtf8(const std::string& text);
// UTF-16 text to UTF-8; an unpaired surrogate becomes U+FFFD.
NOM_API std::string Utf16ToUtf8(const std::u16string& text);

// A BSTR of len units, copied from src when it is not null (else zero-filled); null when out of
// memory. Free it with SysFreeString.
NOM_API BSTR SysAllocStringLen(const OLECHAR* src, UINT len);
// Frees a BSTR; null is ignored.
NOM_API void SysFreeString(BSTR s);
// The length in units of a BSTR; 0 for null.
NOM_API UINT SysStringLen(BSTR s);

}  // namespace nomplat

#endif  // NOM_PLATFORM_CODEPAGE_H_
