// Multibyte strings in the process's ANSI code page (ACP), with the stepping, comparison and
// search rules of the Windows runtime, and conversion to UTF-16.
#ifndef NOM_PLATFORM_CODEPAGE_H_
#define NOM_PLATFORM_CODEPAGE_H_

#include <string>

#include "NOMSOITypes.h"

typedef char16_t OLECHAR;
// A length-prefixed UTF-16 string as SysAllocStringLen makes it; null is the empty string.
typedef OLECHAR* BSTR;

constexpr UINT CP_ACP = 0;
constexpr UINT CP_THREAD_ACP = 3;
constexpr UINT CP_UTF8 = 65001;

namespace nomplat {

// The process's code page: NOMZUB_CODE_PAGE when set to a number, else 65001 when the locale's
// codeset is UTF-8 or ASCII (the C locale), else the locale's codeset as a Windows number (1252
// when it has none).
NOM_API UINT GetACP();
// Sets the process's code page (65001, 1252, 932, 936, 949, 950 or another single-byte page that
// iconv knows). Returns false and changes nothing for a page it cannot convert.
NOM_API bool SetACP(UINT codePage);
// The Windows code page of a locale codeset as nl_langinfo names it ("UTF-8", "SHIFT_JIS",
// "ISO-8859-1", ...); ASCII counts as 65001. 0 when the codeset has no Windows page.
NOM_API UINT CodePageOfCodeset(const char* codeset);
// True when byte b starts a double-byte character in the current code page.
NOM_API bool IsLeadByte(unsigned char b);
// The code page the process starts with, worked out now from NOMZUB_CODE_PAGE and the locale as
// GetACP describes; a NOMZUB_CODE_PAGE that is not a supported page is logged and ignored. Does
// not change the process's code page.
NOM_API UINT DefaultACP();

// Sets the process's code page for the lifetime of this object and restores the previous one.
// ok() is false (and nothing changed) when the page is not supported.
class ScopedCodePage {
 public:
  explicit ScopedCodePage(UINT codePage) : previous_(GetACP()), ok_(SetACP(codePage)) {}
  ~ScopedCodePage() { SetACP(previous_); }
  ScopedCodePage(const ScopedCodePage&) = delete;
  ScopedCodePage& operator=(const ScopedCodePage&) = delete;
  bool ok() const { return ok_; }

 private:
  UINT previous_;
  bool ok_;
};

// Next character after p: two bytes on for a lead byte followed by a non-zero byte, else one.
NOM_API const unsigned char* _mbsinc(const unsigned char* p);
// <0, 0, >0 as a orders before, equal to or after b, character by character; a double-byte
// character counts as (lead << 8) | trail, a single byte as its unsigned value.
NOM_API int _mbscmp(const unsigned char* a, const unsigned char* b);
// First occurrence of needle starting at a character boundary of hay; null when none. An empty
// needle matches at hay.
NOM_API const unsigned char* _mbsstr(const unsigned char* hay, const unsigned char* needle);
// Last occurrence of the single-byte character c at a character boundary; null when none.
NOM_API const unsigned char* _mbsrchr(const unsigned char* s, unsigned int c);

// std::string conveniences over the functions above. Indexes are byte offsets; npos when none.
NOM_API int MbsCompare(const std::string& a, const std::string& b);
NOM_API std::string::size_type MbsFind(const std::string& hay, const std::string& needle);
NOM_API std::string::size_type MbsFindLast(const std::string& s, char c);

// Converts src (cbMultiByte bytes, or through its terminating zero when -1) from code page cp
// (CP_ACP and CP_THREAD_ACP: the process's code page) to UTF-16. With cchWideChar 0 returns the
// number of UTF-16 units needed (terminator included when cbMultiByte is -1); else writes at most
// cchWideChar units to dst and returns the number written, 0 when dst is too small. An invalid
// byte becomes U+FFFD. flags are accepted and ignored.
NOM_API int MultiByteToWideChar(UINT cp, DWORD flags, const char* src, int cbMultiByte,
                                OLECHAR* dst, int cchWideChar);
// UTF-16 text to the process's code page; a character it cannot represent becomes '?'.
NOM_API std::string WideToAcp(const std::u16string& text);
// Text in the process's code page to UTF-8, and back (used for file names and XML text).
NOM_API std::string AcpToUtf8(const std::string& text);
NOM_API std::string Utf8ToAcp(const std::string& text);
NOM_API std::u16string Utf8ToUtf16(const std::string& text);
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
