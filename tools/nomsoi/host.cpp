// The global options, the checks made before the module is called, the exit status and the
// progress line of nomsoi.
#include "host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "NOMSOIUtility.h"
#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBLog.h"

namespace nomsoi {
namespace {

namespace fs = std::filesystem;

// Where the log goes after ApplyGlobalOptions, so that the progress line can share standard error
// with it.
struct LogDestination {
  bool on_stderr = true;
  nomzub::LogFormat format = nomzub::LogFormat::kText;
};

LogDestination& CurrentLogDestination() {
  static LogDestination destination;
  return destination;
}

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// The working directory as the shell shows it: $PWD when it names the working directory (a path
// through a symbolic link stays as the user typed it), else the physical one.
std::string WorkingDirectory() {
  const char* pwd = std::getenv("PWD");
  struct stat named, actual;
  if (pwd != nullptr && pwd[0] == '/' && stat(pwd, &named) == 0 && stat(".", &actual) == 0 &&
      named.st_dev == actual.st_dev && named.st_ino == actual.st_ino)
    return pwd;
  std::error_code ec;
  const fs::path current = fs::current_path(ec);
  return ec ? std::string("/") : current.string();
}

// A short text for a Windows error number as the platform layer reports it.
std::string WindowsErrorText(DWORD error) {
  switch (error) {
    case 2:
      return "file not found";
    case 3:
      return "path not found";
    case 5:
      return "access denied";
    case 32:
      return "in use by another process";
    case 53:
      return "network share not mapped (see --share)";
    case 112:
      return "disk full";
    case 123:
      return "a name Windows refuses";
    case 206:
      return "path too long";
    default:
      return "Windows error " + std::to_string(error);
  }
}

// Maps a module path to the native file system; on failure stores why in *problem.
bool MapToNative(const std::string& path, std::string* native, std::string* problem) {
  DWORD error = 0;
  if (nomplat::ToNativePath(path, native, &error)) return true;
  *problem = error == 3 ? "cannot be mapped: drive not mapped (see --drive)"
                        : "cannot be mapped: " + WindowsErrorText(error);
  return false;
}

std::string ExistingDirectoryProblem(const std::string& dir) {
  std::error_code ec;
  if (dir.empty()) return "an empty directory name";
  if (!fs::is_directory(dir, ec)) return Quoted(dir) + " is not a directory";
  return "";
}

// "X=DIR": a drive letter and an existing native directory.
std::string DriveMappingProblem(const std::string& value) {
  if (value.size() < 3 || !std::isalpha(static_cast<unsigned char>(value[0])) || value[1] != '=')
    return "expected X=DIR (a drive letter, '=', a directory), got " + Quoted(value);
  return ExistingDirectoryProblem(value.substr(2));
}

struct ShareMapping {
  std::string prefix;  // "\\server\share", backslashes only
  std::string dir;
};

// Splits "\\server\share=DIR" (either separator); false when the prefix is not of that form.
bool ParseShareMapping(const std::string& value, ShareMapping* mapping) {
  const std::string::size_type equals = value.find('=');
  if (equals == std::string::npos) return false;
  std::string prefix = value.substr(0, equals);
  for (char& c : prefix) {
    if (c == '/') c = '\\';
  }
  if (prefix.size() < 5 || prefix[0] != '\\' || prefix[1] != '\\') return false;
  const std::string::size_type split = prefix.find('\\', 2);
  if (split == std::string::npos || split == 2 || split + 1 == prefix.size()) return false;
  if (prefix.find('\\', split + 1) != std::string::npos) return false;
  mapping->prefix = prefix;
  mapping->dir = value.substr(equals + 1);
  return true;
}

std::string ShareMappingProblem(const std::string& value) {
  ShareMapping mapping;
  if (!ParseShareMapping(value, &mapping))
    return "expected \\\\SERVER\\SHARE=DIR (a network share, '=', a directory), got " +
           Quoted(value);
  return ExistingDirectoryProblem(mapping.dir);
}

int ApplyLogOptions(const GlobalOptions& options) {
  const bool log_given = options.log_option->count() > 0;
  const bool format_given = options.log_format_option->count() > 0;
  const char* env_target = std::getenv("NOMZUB_LOG");
  const char* env_format = std::getenv("NOMZUB_LOG_FORMAT");
  const std::string target = log_given ? options.log : (env_target ? env_target : "");
  LogDestination& destination = CurrentLogDestination();
  const std::string format_name =
      format_given ? options.log_format : (env_format ? env_format : "");
  if (!nomzub::ParseLogFormat(format_name, &destination.format))
    destination.format = nomzub::LogFormat::kText;
  destination.on_stderr = target.empty() || target == "-";
  if (!log_given && !format_given) return kExitOk;
  if (nomzub::ConfigureLog(destination.on_stderr ? "-" : target, destination.format))
    return kExitOk;
  const std::string source = log_given ? "--log" : "NOMZUB_LOG";
  std::fprintf(stderr, "nomsoi: %s: cannot open %s for appending (expected a writable file)\n",
               source.c_str(), Quoted(target).c_str());
  return kExitUsage;
}

}  // namespace

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
  options.log_option =
      app.add_option("--log", options.log,
                     "Append the log to FILE (\"-\": standard error, the default; overrides "
                     "NOMZUB_LOG)")
          ->type_name("FILE");
  options.log_format_option =
      app.add_option("--log-format", options.log_format,
                     "Log records as text (time, level, message), raw (level, tab, message) or "
                     "jsonl (one JSON object a line); overrides NOMZUB_LOG_FORMAT")
          ->type_name("FORMAT")
          ->check(CLI::IsMember({"text", "raw", "jsonl"}));
  options.code_page_option =
      app.add_option("--code-page", options.code_page,
                     "Code page of the narrow strings: 65001 (UTF-8), 1252, 932, 936, 949, 950 or "
                     "another single-byte page; overrides NOMZUB_CODE_PAGE")
          ->type_name("N");
  app.add_option("--drive", options.drives,
                 "Map the Windows drive X: to the directory DIR (repeatable; Z: is \"/\" "
                 "unless mapped)")
      ->type_name("X=DIR")
      ->allow_extra_args(false)
      ->check(CLI::Validator([](std::string& value) { return DriveMappingProblem(value); }, "",
                             "DRIVE"));
  app.add_option("--share", options.shares,
                 "Map the network share \\\\S\\P to the directory DIR (repeatable)")
      ->type_name("\\\\S\\P=DIR")
      ->allow_extra_args(false)
      ->check(CLI::Validator([](std::string& value) { return ShareMappingProblem(value); }, "",
                             "SHARE"));
}

int ApplyGlobalOptions(const GlobalOptions& options) {
  if (options.code_page_option->count() > 0 &&
      !nomplat::SetACP(static_cast<UINT>(options.code_page))) {
    std::fprintf(stderr,
                 "nomsoi: --code-page: %d is not supported (expected 65001, 1252, 932, 936, 949, "
                 "950 or another single-byte code page that iconv knows)\n",
                 options.code_page);
    return kExitUsage;
  }
  for (const std::string& drive : options.drives) nomplat::MapDrive(drive[0], drive.substr(2));
  for (const std::string& share : options.shares) {
    ShareMapping mapping;
    ParseShareMapping(share, &mapping);
    nomplat::MapShare(mapping.prefix, mapping.dir);
  }
  return ApplyLogOptions(options);
}

int ExitForResult(const std::string& command, HRESULT hr) {
  if (hr >= 0) return kExitOk;
  std::fprintf(stderr, "nomsoi %s: failed with result 0x%08X\n", command.c_str(),
               static_cast<unsigned>(hr));
  return kExitFailed;
}

int Refuse(const std::string& command, const std::string& message) {
  std::fprintf(stderr, "nomsoi %s: %s\n", command.c_str(), message.c_str());
  return kExitUsage;
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
  if (hr == E_FAIL) return "is not well-formed XML (expected an XML document)";
  if ((static_cast<uint32_t>(hr) & 0xFFFF0000u) == 0x80070000u) {
    const DWORD error = static_cast<DWORD>(hr) & 0xFFFFu;
    if (error == 2 || error == 3) return "does not exist (expected an XML document)";
    return "cannot be read: " + WindowsErrorText(error);
  }
  char code[16];
  std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
  return std::string("cannot be read: ") + code;
}

int CheckXmlDocument(const std::string& command, const std::string& option,
                     const std::string& path) {
  const std::string problem = XmlDocumentProblem(path);
  if (problem.empty()) return kExitOk;
  return Refuse(command, option + ": " + Quoted(path) + " " + problem);
}

int CheckOutputDirectory(const std::string& command, const std::string& option,
                         const std::string& dir) {
  if (dir.empty()) return Refuse(command, option + ": expected a directory, got an empty path");
  std::string native;
  std::string problem;
  if (!MapToNative(dir, &native, &problem))
    return Refuse(command, option + ": " + Quoted(dir) + " " + problem);
  std::error_code ec;
  if (fs::exists(native, ec) && !fs::is_directory(native, ec))
    return Refuse(command, option + ": " + Quoted(dir) + " exists and is not a directory");
  return kExitOk;
}

int PrepareOutputDirectory(const std::string& command, const std::string& option,
                           const std::string& dir) {
  if (int status = CheckOutputDirectory(command, option, dir)) return status;
  const DWORD error = nomplat::CurrentEnv()->CreateDirectories(dir);
  if (error != 0)
    return Refuse(command, option + ": directory " + Quoted(dir) +
                               " cannot be created: " + WindowsErrorText(error));
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

bool LogGoesToStderr() { return CurrentLogDestination().on_stderr; }

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

}  // namespace nomsoi
