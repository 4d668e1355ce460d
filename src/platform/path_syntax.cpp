// Path strings: module path syntax and native path strings.
#include "platform/path_syntax.h"

#include <cstdlib>
#include <memory>

namespace nomplat {

bool ShareKey(const std::string& unc, std::string* key, std::string* spelling) {
  if (unc.size() < 2 || !IsSeparator(unc[0]) || !IsSeparator(unc[1])) return false;
  size_t serverEnd = 2;
  while (serverEnd < unc.size() && !IsSeparator(unc[serverEnd])) ++serverEnd;
  size_t shareEnd = serverEnd + 1;
  while (shareEnd < unc.size() && !IsSeparator(unc[shareEnd])) ++shareEnd;
  if (serverEnd == 2 || serverEnd >= unc.size() || shareEnd == serverEnd + 1) return false;
  for (size_t i = shareEnd; i < unc.size(); ++i) {
    if (!IsSeparator(unc[i])) return false;
  }
  key->assign("\\\\");
  for (size_t i = 2; i < shareEnd; ++i) *key += i == serverEnd ? '\\' : AsciiLower(unc[i]);
  if (spelling != nullptr) {
    *spelling = "\\\\" + unc.substr(2, serverEnd - 2) + "\\" +
                unc.substr(serverEnd + 1, shareEnd - serverEnd - 1);
  }
  return true;
}

std::vector<std::string_view> Components(std::string_view rest, bool absolute,
                                         bool backslashSeparates) {
  std::vector<std::string_view> names;
  size_t i = 0;
  while (i < rest.size()) {
    size_t end = i;
    while (end < rest.size() && rest[end] != '/' && !(backslashSeparates && rest[end] == '\\')) {
      ++end;
    }
    const std::string_view name = rest.substr(i, end - i);
    if (name == "..") {
      if (!names.empty() && names.back() != "..") {
        names.pop_back();
      } else if (!absolute) {
        names.push_back(name);
      }
    } else if (!name.empty() && name != ".") {
      names.push_back(name);
    }
    i = end + 1;
  }
  return names;
}

bool IsRefusedName(std::string_view path) {
  const size_t start = path.size() >= 2 && path[1] == ':' ? 2 : 0;
  size_t componentStart = start;
  for (size_t i = start; i <= path.size(); ++i) {
    if (i == path.size() || IsSeparator(path[i])) {
      const std::string_view name = path.substr(componentStart, i - componentStart);
      if (!name.empty() && name != "." && name != ".." &&
          (name.back() == '.' || name.back() == ' ')) {
        return true;
      }
      componentStart = i + 1;
      continue;
    }
    const unsigned char c = static_cast<unsigned char>(path[i]);
    if (c < 0x20 || c == ':' || c == '<' || c == '>' || c == '"' || c == '|' || c == '?' ||
        c == '*') {
      return true;
    }
  }
  return false;
}

void AppendName(std::string* path, std::string_view name) {
  if (!path->empty() && path->back() != '/') *path += '/';
  path->append(name.data(), name.size());
}

void AppendNames(std::string* path, const std::vector<std::string_view>& names, size_t from) {
  for (size_t k = from; k < names.size(); ++k) AppendName(path, names[k]);
}

std::string TrimDirectory(std::string dir) {
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

std::string ParentDirectory(std::string p) {
  p = TrimDirectory(std::move(p));
  const size_t slash = p.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : p.substr(0, slash);
}

std::string LexicalAbsolute(std::string_view p) {
  if (p.empty() || p[0] != '/') return std::string();
  std::string plain = "/";
  AppendNames(&plain, Components(p, /*absolute=*/true, /*backslashSeparates=*/false), 0);
  return plain;
}

bool RealPath(const std::string& p, std::string* real) {
  std::unique_ptr<char, decltype(&std::free)> resolved(realpath(p.c_str(), nullptr), &std::free);
  if (!resolved) return false;
  *real = resolved.get();
  return true;
}

}  // namespace nomplat
