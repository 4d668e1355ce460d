// Conversions between the process's code page, UTF-8 and UTF-16 through iconv, with Windows'
// replacement of what cannot be converted.
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/codepage.h"
#include "platform/codepage_internal.h"
#include "platform/utf8.h"
#include "platform/win32.h"
#include "platform/winerror.h"

namespace nomplat {
namespace {

// U+FFFD in UTF-16 of the host's byte order and in UTF-8; "?" in a code page.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr std::string_view kUtf16Replacement("\xFD\xFF", 2);
#else
constexpr std::string_view kUtf16Replacement("\xFF\xFD", 2);
#endif
constexpr std::string_view kUtf8Replacement = "\xEF\xBF\xBD";
constexpr std::string_view kAcpReplacement = "?";

// Per-thread cache of open conversions (an iconv descriptor must not be shared between threads).
class ConverterCache {
 public:
  ~ConverterCache() {
    for (const Entry& e : entries_) iconv_close(e.cd);
  }
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

// How many bytes of the input at p (left bytes remaining) make the character that could not be
// converted: one code-page character, one UTF-8 sequence (a single byte when it is malformed) or
// one UTF-16 character (a surrogate pair counts as one).
using StepFn = size_t (*)(UINT cp, const char* p, size_t left);
size_t CodePageStep(UINT cp, const char* p, size_t left) {
  if (cp == CP_UTF8) {
    const size_t length = Utf8SequenceLength(std::string_view(p, left), 0);
    return length == 0 ? 1 : length;
  }
  return CharAt(cp, reinterpret_cast<const unsigned char*>(p), left, 0).size;
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

// size bytes at src in code page `page` (iconv name `name`) as UTF-16.
std::u16string ToUtf16(UINT page, const std::string& name, const char* src, size_t size) {
  if (IsAscii(src, size)) return std::u16string(src, src + size);
  const std::string bytes =
      Transcode({name, kUtf16Name, page, CodePageStep, kUtf16Replacement}, src, size);
  std::u16string wide(bytes.size() / sizeof(char16_t), u'\0');
  std::memcpy(wide.data(), bytes.data(), wide.size() * sizeof(char16_t));
  return wide;
}

// The iconv name of the process's code page (always usable: SetACP checks it).
std::string AcpName() {
  std::string name;
  PageName(GetACP(), &name);
  return name;
}

}  // namespace

iconv_t Converter(const std::string& from, const std::string& to) {
  thread_local ConverterCache cache;
  return cache.Get(from, to);
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

bool AcpTextIsUtf8(const std::string& text) {
  return GetACP() == CP_UTF8 || IsAscii(text.data(), text.size());
}

std::string AcpToUtf8(const std::string& text) {
  if (AcpTextIsUtf8(text)) return text;
  return Transcode({AcpName(), kUtf8Name, GetACP(), CodePageStep, kUtf8Replacement}, text.data(),
                   text.size());
}

std::string Utf8ToAcp(const std::string& text) {
  if (GetACP() == CP_UTF8 || IsAscii(text.data(), text.size())) return text;
  return Transcode({kUtf8Name, AcpName(), CP_UTF8, CodePageStep, kAcpReplacement}, text.data(),
                   text.size());
}

std::string Utf16ToUtf8(const std::u16string& text) {
  for (const char16_t unit : text) {
    if (unit >= 0x80) {
      return Transcode({kUtf16Name, kUtf8Name, 0, Utf16Step, kUtf8Replacement},
                       reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
    }
  }
  return std::string(text.begin(), text.end());
}

}  // namespace nomplat
