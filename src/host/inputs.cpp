// The checks a host makes of its inputs before the module runs, and the full paths it gives it.
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

#include "host_internal.h"
#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/winerror.h"
#include "NOMZUBVGXTranslator/well_formed.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXGen.h"

namespace nomsoi {
namespace {

namespace fs = std::filesystem;

// The working directory as the shell shows it: $PWD when it names the working directory (a path
// through a symbolic link stays as the user typed it), else the physical one.
std::string WorkingDirectory() {
  std::string pwd;
  struct stat named, actual;
  if (nomplat::CurrentEnv()->GetEnvironmentVariable("PWD", &pwd) && !pwd.empty() && pwd[0] == '/' &&
      stat(pwd.c_str(), &named) == 0 && stat(".", &actual) == 0 && named.st_dev == actual.st_dev &&
      named.st_ino == actual.st_ino)
    return pwd;
  std::error_code ec;
  const fs::path current = fs::current_path(ec);
  return ec ? std::string("/") : current.string();
}

// Maps a module path to the native file system; on failure stores why in *problem.
bool MapToNative(const std::string& path, std::string* native, std::string* problem) {
  DWORD error = 0;
  if (nomplat::ToNativePath(path, native, &error)) return true;
  *problem = error == 3    ? "cannot be mapped: drive not mapped (see --drive)"
             : error == 53 ? "cannot be mapped: network share not mapped (see --share)"
                           : "cannot be mapped: " + nomplat::DescribeWindowsError(error);
  return false;
}

}  // namespace

std::string NotWellFormedCause(const std::string& module_path) {
  std::string text;
  if (nomplat::CurrentEnv()->ReadFile(module_path, &text) != 0) return "";
  bool converted = false;
  std::string cause = nomzub::DecodeXmlBytes(&text, &converted);
  if (cause.empty()) cause = nomzub::CheckWellFormed(text);
  return cause.empty() ? nomzub::XmlBytesProblem(text) : cause;
}

std::string NativePath(const std::string& module_path) {
  std::string native;
  DWORD error = 0;
  return nomplat::ToNativePath(module_path, &native, &error) ? native : module_path;
}

std::string XmlDocumentProblem(const std::string& path) {
  if (path.empty()) return "is empty (expected the path of an XML document)";
  std::string native;
  std::string problem;
  if (!MapToNative(path, &native, &problem)) return problem;
  std::error_code ec;
  if (fs::is_directory(native, ec)) return "is a directory (expected an XML document)";
  NOMZUBDOMWrapper document;
  const HRESULT hr = document.OpenDocument(path);
  if (hr >= 0) return "";
  if (hr == E_FAIL) {
    const std::string cause = NotWellFormedCause(path);
    return "is not well-formed XML" + (cause.empty() ? "" : ": " + cause) +
           " (expected an XML document)";
  }
  if ((static_cast<uint32_t>(hr) & 0xFFFF0000u) == 0x80070000u) {
    const DWORD error = static_cast<DWORD>(hr) & 0xFFFFu;
    if (error == 2 || error == 3) return "does not exist (expected an XML document)";
    return "cannot be read: " + nomplat::DescribeWindowsError(error);
  }
  char code[16];
  std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
  return std::string("cannot be read: ") + code;
}

std::string OutputDirectoryProblem(const std::string& dir) {
  if (dir.empty()) return "expected a directory, got an empty path";
  std::string native;
  std::string problem;
  if (!MapToNative(dir, &native, &problem)) return Quoted(dir) + " " + problem;
  std::error_code ec;
  if (fs::exists(native, ec) && !fs::is_directory(native, ec))
    return Quoted(dir) + " exists and is not a directory";
  return "";
}

int PrepareOutputDirectory(const std::string& command, const std::string& option,
                           const std::string& dir) {
  const std::string problem = OutputDirectoryProblem(dir);
  if (!problem.empty()) return Refuse(command, option + ": " + problem);
  const DWORD error = nomplat::CurrentEnv()->CreateDirectories(dir);
  if (error != 0)
    return Refuse(command, option + ": directory " + Quoted(dir) +
                               " cannot be created: " + nomplat::DescribeWindowsError(error));
  return kExitOk;
}

bool LiesDirectlyIn(const std::string& file, const std::string& dir) {
  std::string native_file;
  std::string native_dir;
  DWORD error = 0;
  if (!nomplat::ToNativePath(file, &native_file, &error) ||
      !nomplat::ToNativePath(dir, &native_dir, &error))
    return false;
  std::error_code ec;
  const fs::path parent = fs::weakly_canonical(fs::absolute(native_file).parent_path(), ec);
  if (ec) return false;
  const fs::path directory = fs::weakly_canonical(fs::absolute(native_dir), ec);
  return !ec && parent == directory;
}

std::string FullPath(const std::string& path) {
  if (path.empty() || path[0] == '/' || path[0] == '\\') return path;
  if (path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':')
    return path;
  std::vector<std::string> names;
  const auto add = [&names](const std::string& text) {
    size_t start = 0;
    while (start <= text.size()) {
      size_t end = text.find_first_of("/\\", start);
      if (end == std::string::npos) end = text.size();
      const std::string name = text.substr(start, end - start);
      if (name == "..") {
        if (!names.empty()) names.pop_back();
      } else if (!name.empty() && name != ".") {
        names.push_back(name);
      }
      start = end + 1;
    }
  };
  add(nomplat::Utf8ToAcp(WorkingDirectory()));
  add(path);
  std::string full;
  for (const std::string& name : names) full += "/" + name;
  return full.empty() ? "/" : full;
}

void OpenPackage(const std::string& main_path, const std::string& view_path) {
  nomzub::RegisterPackage(main_path, view_path);
}

}  // namespace nomsoi
