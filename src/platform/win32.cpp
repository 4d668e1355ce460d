// The Windows file, error and process calls of the module, over the current Env.
#include "platform/win32.h"

#include <cstring>

#include "platform/env.h"
#include "platform/path_syntax.h"
#include "platform/winerror.h"

namespace nomplat {
namespace {

thread_local DWORD t_lastError = 0;

}  // namespace

BOOL CopyFileA(const char* src, const char* dst, BOOL failIfExists) {
  if (src == nullptr || dst == nullptr) {
    SetLastError(kErrorInvalidParameter);
    return FALSE;
  }
  const DWORD error = CurrentEnv()->CopyFile(src, dst, failIfExists != FALSE);
  if (error != 0) {
    SetLastError(error);
    return FALSE;
  }
  return TRUE;
}

DWORD GetLastError() { return t_lastError; }

void SetLastError(DWORD code) { t_lastError = code; }

const char* PathFindFileNameA(const char* path) {
  if (path == nullptr) return nullptr;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(path);
  const unsigned char* name = p;
  for (; *p != 0; p = _mbsinc(p)) {
    const char c = static_cast<char>(*p);
    const char next = static_cast<char>(p[1]);
    if ((IsSeparator(c) || c == ':') && next != 0 && !IsSeparator(next)) name = p + 1;
  }
  return reinterpret_cast<const char*>(name);
}

DWORD GetEnvironmentVariableA(const char* name, char* buf, DWORD size) {
  std::string value;
  if (name == nullptr || !CurrentEnv()->GetEnvironmentVariable(name, &value)) {
    SetLastError(name == nullptr ? kErrorInvalidParameter : kErrorEnvVarNotFound);
    value.clear();
  }
  if (buf == nullptr) size = 0;
  if (value.size() >= size) return value.empty() ? 0 : static_cast<DWORD>(value.size() + 1);
  std::memcpy(buf, value.c_str(), value.size() + 1);
  return static_cast<DWORD>(value.size());
}

bool CanOpenForReading(const std::string& path) { return CurrentEnv()->CanOpenForReading(path); }

}  // namespace nomplat
