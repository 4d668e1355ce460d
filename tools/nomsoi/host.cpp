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
#include "services/NOMZUBConnector.h"
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

void AddConnectionOptions(CLI::App& command, ConnectionOptions& options) {
  command
      .add_option("--server", options.server,
                  "Planning data server: sqlite:PATH or postgresql://... (default: NOMZUB_SERVER)")
      ->type_name("URL")
      ->envname("NOMZUB_SERVER")
      ->required();
  command.add_option("--login", options.login, "Account name on the server")
      ->type_name("L")
      ->required();
  command.add_option("--password", options.password, "Password of the account")
      ->type_name("P")
      ->required();
  command.add_option("--project", options.project, "Name of the planning project")
      ->type_name("NAME")
      ->required();
  command
      .add_option("--filters", options.filters,
                  "Filter expression restricting the objects loaded (default: everything)")
      ->type_name("EXPR");
}

BOOL ConnectToServer(NOMSOIUtility& utility, const ConnectionOptions& options) {
  nomzub::SetConfiguredServer(options.server);
  return utility.ConnectServer(options.login, options.password, options.project, options.filters);
}

int ReportNotConnected(const std::string& command, const ConnectionOptions& options) {
  std::fprintf(stderr,
               "nomsoi %s: not connected to %s (login %s, project %s); the log says which step "
               "failed and why\n",
               command.c_str(), Quoted(options.server).c_str(), Quoted(options.login).c_str(),
               Quoted(options.project).c_str());
  return kExitFailed;
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

int PrepareOutputDirectory(const std::string& command, const std::string& option,
                           const std::string& dir) {
  if (dir.empty()) return Refuse(command, option + ": expected a directory, got an empty path");
  std::string native;
  std::string problem;
  if (!MapToNative(dir, &native, &problem))
    return Refuse(command, option + ": " + Quoted(dir) + " " + problem);
  std::error_code ec;
  if (fs::exists(native, ec) && !fs::is_directory(native, ec))
    return Refuse(command, option + ": " + Quoted(dir) + " exists and is not a directory");
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

// Counts the copies of the platform layer and draws the progress line; takes over the log while
// the log goes to standard error, so that a record never lands in the middle of the line.
class ProgressLine::Display : public nomplat::EnvWrapper, public nomzub::LogSink {
 public:
  explicit Display(const LogDestination& log)
      : EnvWrapper(nomplat::CurrentEnv()), format_(log.format), takes_log_(log.on_stderr) {
    previous_env_ = nomplat::SetCurrentEnv(this);
    if (takes_log_) previous_sink_ = nomzub::SetLogSink(this);
  }

  ~Display() override {
    Erase();
    if (takes_log_) nomzub::SetLogSink(previous_sink_);
    nomplat::SetCurrentEnv(previous_env_);
  }

  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override {
    const DWORD error = EnvWrapper::CopyFile(src, dst, failIfExists);
    if (error == 0) {
      ++files_;
      bytes_ += SizeOf(dst);
      DrawIfDue();
    }
    return error;
  }

  void Write(const std::string& message, int32_t level) override {
    Erase();
    if (previous_sink_ != nullptr) {
      previous_sink_->Write(message, level);
    } else {
      WriteToStderr(nomzub::FormatLogRecord(format_, message, level));
    }
  }

 private:
  static uint64_t SizeOf(const std::string& module_path) {
    std::string native;
    DWORD error = 0;
    struct stat info;
    if (!nomplat::ToNativePath(module_path, &native, &error) || stat(native.c_str(), &info) != 0)
      return 0;
    return static_cast<uint64_t>(info.st_size);
  }

  static void WriteToStderr(const std::string& text) {
    std::string::size_type done = 0;
    while (done < text.size()) {
      const ssize_t n = write(STDERR_FILENO, text.data() + done, text.size() - done);
      if (n <= 0) return;
      done += static_cast<std::string::size_type>(n);
    }
  }

  void DrawIfDue() {
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_draw_ < std::chrono::milliseconds(100)) return;
    last_draw_ = now;
    char line[96];
    std::snprintf(line, sizeof line, "\rcopied %" PRIu64 " documents, %" PRIu64 " bytes\033[K",
                  files_, bytes_);
    WriteToStderr(line);
    drawn_ = true;
  }

  void Erase() {
    if (!drawn_) return;
    WriteToStderr("\r\033[K");
    drawn_ = false;
  }

  nomzub::LogFormat format_;
  bool takes_log_;
  nomplat::Env* previous_env_ = nullptr;
  nomzub::LogSink* previous_sink_ = nullptr;
  uint64_t files_ = 0;
  uint64_t bytes_ = 0;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_draw_;
};

ProgressLine::ProgressLine() {
  if (isatty(STDERR_FILENO)) display_ = std::make_unique<Display>(CurrentLogDestination());
}

ProgressLine::~ProgressLine() = default;

}  // namespace nomsoi
