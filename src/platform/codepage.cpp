// The process's code page: the page it starts with (NOMZUB_CODE_PAGE, else the locale's), the
// pages it may use and their iconv names, and Windows' numbers for locale codesets.
#include "platform/codepage.h"

#include <langinfo.h>
#include <locale.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/codepage_internal.h"
#include "platform/env_settings.h"

namespace nomplat {
namespace {

constexpr UINT kFallbackPage = 1252;

// 0 until the process's code page is first needed or set.
std::atomic<UINT> g_acp{0};

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
  iconv_t cd = Converter(name, kUtf16Name);
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

bool IsSupportedPage(UINT cp) {
  std::string name;
  return PageName(cp, &name);
}

// The page named by NOMZUB_CODE_PAGE (read through the current Env); 0 when it is unset, and
// also when it is not a supported page number, which *problem then describes.
UINT PageFromEnvironment(std::string* problem) {
  const std::optional<std::string> value = EnvironmentValue("NOMZUB_CODE_PAGE");
  if (!value || value->empty()) return 0;
  char* end = nullptr;
  const unsigned long number = std::strtoul(value->c_str(), &end, 10);
  if (*end == '\0' && std::isdigit(static_cast<unsigned char>((*value)[0])) && number <= 65535 &&
      IsSupportedPage(static_cast<UINT>(number))) {
    return static_cast<UINT>(number);
  }
  *problem =
      "NOMZUB_CODE_PAGE=\"" + *value + "\" is not a supported code page number; using the locale's";
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

bool IsDoubleBytePage(UINT cp) { return cp == 932 || cp == 936 || cp == 949 || cp == 950; }

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

}  // namespace nomplat
