// Code pages: the process's ANSI code page, multibyte stepping, comparison and search, and
// conversions through iconv with Windows' replacement of invalid input.
#include "platform/codepage.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>
#include <vector>

#include "platform/win32.h"
#include "platform/winerror.h"
#include "services/NOMZUBLog.h"

namespace nomplat {
namespace {

constexpr UINT kFallbackPage = 1252;

// iconv's name for UTF-16 in the host's byte order (char16_t), and U+FFFD in it.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr const char* kUtf16 = "UTF-16LE";
constexpr std::string_view kUtf16Replacement("\xFD\xFF", 2);
#else
constexpr const char* kUtf16 = "UTF-16BE";
constexpr std::string_view kUtf16Replacement("\xFF\xFD", 2);
#endif
constexpr const char* kUtf8Name = "UTF-8";
constexpr std::string_view kUtf8Replacement = "\xEF\xBF\xBD";
constexpr std::string_view kAcpReplacement = "?";

// 0 until the process's code page is first needed or set.
std::atomic<UINT> g_acp{0};

bool IsDoubleBytePage(UINT cp) { return cp == 932 || cp == 936 || cp == 949 || cp == 950; }

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

// One character of s[0, n) starting at i: its value and its length in bytes. A lead byte counts
// as a single byte when it is the last byte or is followed by a zero byte.
struct MbChar {
  unsigned value;
  size_t size;
};
MbChar CharAt(UINT cp, const unsigned char* s, size_t n, size_t i) {
  if (i + 1 < n && s[i + 1] != 0 && IsLeadByteIn(cp, s[i])) {
    return {(static_cast<unsigned>(s[i]) << 8) | s[i + 1], 2};
  }
  return {s[i], 1};
}

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

// --- iconv -----------------------------------------------------------------------------------

// Per-thread cache of open conversions (an iconv descriptor must not be shared between threads).
class ConverterCache {
 public:
  ~ConverterCache() {
    for (const Entry& e : entries_) iconv_close(e.cd);
  }
  // The conversion from -> to, reset to its initial state; (iconv_t)-1 when iconv lacks it.
  iconv_t Get(const std::string& from, const std::string& to) {
    for (const Entry& e : entries_) {
      if (e.from == from && e.to == to) {
        iconv(e.cd, nullptr, nullptr, nullptr, nullptr);
        return e.cd;
      }
    }
    iconv_t cd = iconv_open(to.c_str(), from.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) return cd;
    entries_.push_back({from, to, cd});
    return cd;
  }

 private:
  struct Entry {
    std::string from, to;
    iconv_t cd;
  };
  std::vector<Entry> entries_;
};

iconv_t Converter(const std::string& from, const std::string& to) {
  thread_local ConverterCache cache;
  return cache.Get(from, to);
}

// How many bytes of the input at p (left bytes remaining) make the character that could not be
// converted: one code-page character, one UTF-8 sequence (a single byte when it is malformed) or
// one UTF-16 character (a surrogate pair counts as one).
using StepFn = size_t (*)(UINT cp, const char* p, size_t left);
size_t Utf8Step(const unsigned char* p, size_t left) {
  const size_t length = p[0] >= 0xF8   ? 1
                        : p[0] >= 0xF0 ? 4
                        : p[0] >= 0xE0 ? 3
                        : p[0] >= 0xC0 ? 2
                                       : 1;
  if (length > left) return 1;
  for (size_t k = 1; k < length; ++k) {
    if ((p[k] & 0xC0) != 0x80) return 1;
  }
  return length;
}
size_t CodePageStep(UINT cp, const char* p, size_t left) {
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(p);
  return cp == CP_UTF8 ? Utf8Step(bytes, left) : CharAt(cp, bytes, left, 0).size;
}
size_t Utf16Step(UINT, const char* p, size_t left) {
  if (left < 4) return left < 2 ? left : 2;
  char16_t first, second;
  std::memcpy(&first, p, 2);
  std::memcpy(&second, p + 2, 2);
  const bool pair = first >= 0xD800 && first <= 0xDBFF && second >= 0xDC00 && second <= 0xDFFF;
  return pair ? 4 : 2;
}

// One direction of conversion: iconv names, how to skip a bad source character and what to
// write for it.
struct Conversion {
  std::string from;
  std::string to;
  UINT sourcePage;  // stepping of a byte source; unused for a UTF-16 source
  StepFn step;
  std::string_view replacement;
};

// Converts size bytes at data. Every page is validated before it gets here, so a conversion
// that iconv cannot open lacks resources: that is an out-of-memory condition.
std::string Transcode(const Conversion& conv, const char* data, size_t size) {
  std::string out;
  iconv_t cd = Converter(conv.from, conv.to);
  if (cd == reinterpret_cast<iconv_t>(-1)) throw NOMOutOfMemory();
  char* in = const_cast<char*>(data);
  size_t inLeft = size;
  char buffer[4096];
  while (inLeft > 0) {
    char* outPtr = buffer;
    size_t outLeft = sizeof buffer;
    const size_t rc = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    const int err = errno;
    out.append(buffer, static_cast<size_t>(outPtr - buffer));
    if (rc != static_cast<size_t>(-1) || err == E2BIG) continue;
    // EILSEQ (invalid or unrepresentable) or EINVAL (cut short at the end): replace one
    // character and go on, as Windows does without its strict flags.
    const size_t skip = conv.step(conv.sourcePage, in, inLeft);
    out.append(conv.replacement);
    in += skip;
    inLeft -= skip;
  }
  return out;
}

bool IsAscii(const char* p, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (static_cast<unsigned char>(p[i]) >= 0x80) return false;
  }
  return true;
}

bool IsAscii(const std::u16string& s) {
  for (char16_t c : s) {
    if (c >= 0x80) return false;
  }
  return true;
}

// size bytes at src in code page `page` (iconv name `name`) as UTF-16.
std::u16string ToUtf16(UINT page, const std::string& name, const char* src, size_t size) {
  if (IsAscii(src, size)) return std::u16string(src, src + size);
  const std::string bytes =
      Transcode({name, kUtf16, page, CodePageStep, kUtf16Replacement}, src, size);
  std::u16string wide(bytes.size() / sizeof(char16_t), u'\0');
  std::memcpy(wide.data(), bytes.data(), wide.size() * sizeof(char16_t));
  return wide;
}

// UTF-16 text in the encoding iconv calls `to`; replacement stands for what it cannot hold.
std::string FromUtf16(const std::u16string& text, const std::string& to,
                      std::string_view replacement) {
  if (IsAscii(text)) return std::string(text.begin(), text.end());
  return Transcode({kUtf16, to, 0, Utf16Step, replacement},
                   reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
}

// --- supported pages -------------------------------------------------------------------------

// iconv's names for a Windows code page, the likeliest first.
std::vector<std::string> IconvCandidates(UINT cp) {
  if (cp == CP_UTF8) return {kUtf8Name};
  if (cp >= 28591 && cp <= 28605) return {"ISO-8859-" + std::to_string(cp - 28590)};
  if (cp == 20866) return {"KOI8-R"};
  if (cp == 21866) return {"KOI8-U"};
  const std::string number = std::to_string(cp);
  return {"CP" + number, "WINDOWS-" + number};
}

// True when name converts the bytes 0x01-0x7F to the same code points (the module looks for
// ASCII separators and dots in the raw bytes) and, for a page not known as double-byte, every
// other byte on its own (a page with longer sequences would need stepping rules we do not have).
bool IsUsablePage(UINT cp, const std::string& name) {
  if (cp == CP_UTF8) return true;
  iconv_t cd = Converter(name, kUtf16);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  for (unsigned b = 1; b < 0x100; ++b) {
    char byte = static_cast<char>(b);
    char* in = &byte;
    size_t inLeft = 1;
    char16_t unit[2];
    char* outPtr = reinterpret_cast<char*>(unit);
    size_t outLeft = sizeof unit;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    const size_t rc = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    if (b < 0x80) {
      if (rc == static_cast<size_t>(-1) || outLeft != 2 || unit[0] != b) return false;
    } else if (rc == static_cast<size_t>(-1) && errno == EINVAL && !IsDoubleBytePage(cp)) {
      return false;  // an incomplete sequence: a multibyte page
    }
  }
  return true;
}

// Looks up (once per page) whether cp can be used and under which iconv name.
bool PageName(UINT cp, std::string* name) {
  // Function-local so that it is ready whenever a static initializer elsewhere converts text.
  static std::mutex mutex;
  static std::map<UINT, std::string> names;  // "" for a page that cannot be used
  std::lock_guard<std::mutex> lock(mutex);
  auto it = names.find(cp);
  if (it == names.end()) {
    std::string usable;
    for (const std::string& candidate : IconvCandidates(cp)) {
      if (IsUsablePage(cp, candidate)) {
        usable = candidate;
        break;
      }
    }
    it = names.emplace(cp, usable).first;
  }
  *name = it->second;
  return !name->empty();
}

bool IsSupportedPage(UINT cp) {
  std::string name;
  return PageName(cp, &name);
}

// The iconv name of the process's code page (always usable: SetACP checks it).
std::string AcpName() {
  std::string name;
  PageName(GetACP(), &name);
  return name;
}

}  // namespace

UINT CodePageOfCodeset(const char* codeset) {
  std::string key;
  for (const char* p = codeset; *p; ++p) {
    if (*p != '-' && *p != '_')
      key += static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
  }
  static const std::map<std::string, UINT> kNames = {
      // The C locale's ASCII: file names on this platform are UTF-8, of which ASCII is a part.
      {"ANSIX3.41968", CP_UTF8},
      {"ASCII", CP_UTF8},
      {"USASCII", CP_UTF8},
      {"UTF8", CP_UTF8},
      {"SHIFTJIS", 932},
      {"SJIS", 932},
      {"WINDOWS31J", 932},
      {"GBK", 936},
      {"GB2312", 936},
      {"EUCCN", 936},
      {"GB18030", 936},
      {"EUCKR", 949},
      {"UHC", 949},
      {"BIG5", 950},
      {"BIG5HKSCS", 950},
      {"KOI8R", 20866},
      {"KOI8U", 21866},
  };
  const auto it = kNames.find(key);
  if (it != kNames.end()) return it->second;
  // Numbered families: ISO-8859-n is Windows' 28590 + n; CPn and WINDOWS-n are page n.
  static const struct {
    const char* prefix;
    unsigned long base;
  } kFamilies[] = {{"ISO8859", 28590}, {"CP", 0}, {"WINDOWS", 0}};
  for (const auto& family : kFamilies) {
    const size_t n = std::strlen(family.prefix);
    if (key.compare(0, n, family.prefix) != 0 || key.size() == n) continue;
    char* end = nullptr;
    const unsigned long number = family.base + std::strtoul(key.c_str() + n, &end, 10);
    return *end == '\0' && number > family.base && number <= 65535 ? static_cast<UINT>(number) : 0;
  }
  return 0;
}

namespace {

// The page named by NOMZUB_CODE_PAGE; 0 when it is unset, and also when it is not a supported
// page number, which *problem then describes.
UINT PageFromEnvironment(std::string* problem) {
  const char* value = std::getenv("NOMZUB_CODE_PAGE");
  if (value == nullptr || *value == '\0') return 0;
  char* end = nullptr;
  const unsigned long number = std::strtoul(value, &end, 10);
  if (*end == '\0' && std::isdigit(static_cast<unsigned char>(*value)) && number <= 65535 &&
      IsSupportedPage(static_cast<UINT>(number))) {
    return static_cast<UINT>(number);
  }
  *problem = std::string("NOMZUB_CODE_PAGE=\"") + value +
             "\" is not a supported code page number; using the locale's";
  return 0;
}

// The page of the user's locale (LC_CTYPE from the environment), read without touching the
// process's own locale.
UINT PageFromLocale() {
  locale_t loc = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(0));
  if (loc == static_cast<locale_t>(0)) return 0;
  const UINT cp = CodePageOfCodeset(nl_langinfo_l(CODESET, loc));
  freelocale(loc);
  return cp != 0 && IsSupportedPage(cp) ? cp : 0;
}

// The page the process starts with; *problem describes an unusable NOMZUB_CODE_PAGE.
UINT StartPage(std::string* problem) {
  if (const UINT cp = PageFromEnvironment(problem)) return cp;
  if (const UINT cp = PageFromLocale()) return cp;
  return kFallbackPage;
}

}  // namespace

UINT DefaultACP() {
  std::string problem;
  const UINT cp = StartPage(&problem);
  if (!problem.empty()) nomzub::LogServiceError(problem);
  return cp;
}

UINT GetACP() {
  UINT cp = g_acp.load(std::memory_order_acquire);
  if (cp != 0) return cp;
  std::string problem;
  const UINT initial = StartPage(&problem);
  // A concurrent first call or SetACP may have won; either value is then the answer.
  if (g_acp.compare_exchange_strong(cp, initial, std::memory_order_acq_rel) && !problem.empty()) {
    // Straight to standard error, not through the log: the log converts text with GetACP while
    // it holds its lock, so this first call may come from inside it.
    std::fputs(("****** ERROR:\t " + problem + "\n").c_str(), stderr);
  }
  return g_acp.load(std::memory_order_acquire);
}

bool SetACP(UINT codePage) {
  if (!IsSupportedPage(codePage)) return false;
  g_acp.store(codePage, std::memory_order_release);
  return true;
}

bool IsLeadByte(unsigned char b) { return IsLeadByteIn(GetACP(), b); }

const unsigned char* _mbsinc(const unsigned char* p) {
  return p + (p[0] != 0 && p[1] != 0 && IsLeadByte(p[0]) ? 2 : 1);
}

int _mbscmp(const unsigned char* a, const unsigned char* b) {
  return CompareIn(GetACP(), a, std::strlen(reinterpret_cast<const char*>(a)), b,
                   std::strlen(reinterpret_cast<const char*>(b)));
}

const unsigned char* _mbsstr(const unsigned char* hay, const unsigned char* needle) {
  const size_t at = FindIn(GetACP(), hay, std::strlen(reinterpret_cast<const char*>(hay)), needle,
                           std::strlen(reinterpret_cast<const char*>(needle)));
  return at == std::string::npos ? nullptr : hay + at;
}

const unsigned char* _mbsrchr(const unsigned char* s, unsigned int c) {
  const size_t n = std::strlen(reinterpret_cast<const char*>(s));
  if (c == 0) return s + n;
  const size_t at = FindLastIn(GetACP(), s, n, c);
  return at == std::string::npos ? nullptr : s + at;
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

int MultiByteToWideChar(UINT cp, DWORD /*flags*/, const char* src, int cbMultiByte, OLECHAR* dst,
                        int cchWideChar) {
  const UINT page = (cp == CP_ACP || cp == CP_THREAD_ACP) ? GetACP() : cp;
  std::string name;
  if (src == nullptr || cbMultiByte == 0 || cbMultiByte < -1 || cchWideChar < 0 ||
      (cchWideChar > 0 && dst == nullptr) || !PageName(page, &name)) {
    SetLastError(kErrorInvalidParameter);
    return 0;
  }
  const size_t size = cbMultiByte == -1 ? std::strlen(src) + 1 : static_cast<size_t>(cbMultiByte);
  const std::u16string wide = ToUtf16(page, name, src, size);
  if (wide.size() > static_cast<size_t>(INT_MAX)) {
    SetLastError(kErrorInvalidParameter);
    return 0;
  }
  const int units = static_cast<int>(wide.size());
  if (cchWideChar == 0) return units;
  if (units > cchWideChar) {
    SetLastError(kErrorInsufficientBuffer);
    return 0;
  }
  std::memcpy(dst, wide.data(), wide.size() * sizeof(OLECHAR));
  return units;
}

std::string WideToAcp(const std::u16string& text) {
  return FromUtf16(text, AcpName(), kAcpReplacement);
}

std::string AcpToUtf8(const std::string& text) {
  const UINT acp = GetACP();
  if (acp == CP_UTF8 || IsAscii(text.data(), text.size())) return text;
  return Transcode({AcpName(), kUtf8Name, acp, CodePageStep, kUtf8Replacement}, text.data(),
                   text.size());
}

std::string Utf8ToAcp(const std::string& text) {
  if (GetACP() == CP_UTF8 || IsAscii(text.data(), text.size())) return text;
  return Transcode({kUtf8Name, AcpName(), CP_UTF8, CodePageStep, kAcpReplacement}, text.data(),
                   text.size());
}

std::u16string Utf8ToUtf16(const std::string& text) {
  return ToUtf16(CP_UTF8, kUtf8Name, text.data(), text.size());
}

std::string Utf16ToUtf8(const std::u16string& text) {
  return FromUtf16(text, kUtf8Name, kUtf8Replacement);
}

// A BSTR is preceded by its length in bytes (4 bytes) and followed by a zero unit.
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

bool NOMMbsLess::operator()(const std::string& a, const std::string& b) const {
  return nomplat::MbsCompare(a, b) < 0;
}
