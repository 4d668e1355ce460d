// Basic types shared by the exported class and the services it imports: result codes, the
// narrow string's ordering, and the identifier map types. Everything but the exported classes lives
// in namespace nomsoi, so that these headers can be included beside X11, GLib or <windows.h>-like
// headers that define the same Windows names.
#ifndef NOMSOI_TYPES_H_
#define NOMSOI_TYPES_H_

#include <cstdint>
#include <deque>
#include <map>
#include <new>
#include <string>

#define NOM_API __attribute__((visibility("default")))

namespace nomsoi {

// A 32-bit signed result code: 0 is success, a negative value a failure.
typedef int32_t HRESULT;
// A 32-bit boolean as the connection operations return it: 1 true, 0 false.
typedef int32_t BOOL;
typedef uint32_t DWORD;
typedef uint32_t UINT;
typedef uint32_t ULONG;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005u);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);

// Turns a Windows system error number into a result code (0x8007xxxx); 0 stays 0.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD code) {
  return code == 0 ? 0 : static_cast<HRESULT>((code & 0xFFFFu) | 0x80070000u);
}

}  // namespace nomsoi

// Raised when a string conversion runs out of memory; carries E_OUTOFMEMORY. Not caught by the
// module: it reaches the host.
class NOM_API NOMOutOfMemory : public std::bad_alloc {
 public:
  nomsoi::HRESULT code() const noexcept { return nomsoi::E_OUTOFMEMORY; }
  const char* what() const noexcept override { return "out of memory (0x8007000E)"; }
};

// Orders narrow strings as the process's multibyte comparison does: character by character, a
// double-byte character counting as (lead << 8) | trail. Case-sensitive.
struct NOMMbsLess {
  NOM_API bool operator()(const std::string& a, const std::string& b) const;
};

namespace nomsoi {

// OID -> every ident path at which the object occurs.
typedef std::map<std::string, std::deque<std::string>, NOMMbsLess> NOMOIDIdentPathsMap;
// Key -> value (operation OID -> ident path, process ident -> name or OID).
typedef std::map<std::string, std::string, NOMMbsLess> NOMStringMap;
// OID -> process ident, several per OID.
typedef std::multimap<std::string, std::string, NOMMbsLess> NOMStringMultimap;

}  // namespace nomsoi

#endif  // NOMSOI_TYPES_H_
