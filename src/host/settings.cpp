// The process settings a host makes before a run: the log, the code page, the drive and share
// maps, the confinement roots; and the library's version.
#include <atomic>
#include <cctype>
#include <filesystem>
#include <mutex>

#include "host_internal.h"
#include "host_version.h"
#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "services/NOMZUBLog.h"

namespace nomsoi {
namespace {

namespace fs = std::filesystem;

// Where the log was last configured to go: unknown until ConfigureLog succeeds.
struct LogPlace {
  std::mutex mu;
  bool configured = false;
  bool on_stderr = true;
};

LogPlace& CurrentLogPlace() {
  static LogPlace* const place = new LogPlace;  // used until exit
  return *place;
}

std::atomic<Verbosity>& CurrentVerbosityStore() {
  static std::atomic<Verbosity> verbosity{Verbosity::kNormal};
  return verbosity;
}

bool IsStderrTarget(const std::string& target) { return target.empty() || target == "-"; }

std::string ExistingDirectoryProblem(const std::string& dir) {
  std::error_code ec;
  if (dir.empty()) return "an empty directory name";
  if (!fs::is_directory(dir, ec)) return Quoted(dir) + " is not a directory";
  return "";
}

// The public format is the log service's own, value for value: converting is a cast.
static_assert(static_cast<int>(LogFormat::kText) == static_cast<int>(nomzub::LogFormat::kText) &&
                  static_cast<int>(LogFormat::kRaw) == static_cast<int>(nomzub::LogFormat::kRaw) &&
                  static_cast<int>(LogFormat::kJsonl) ==
                      static_cast<int>(nomzub::LogFormat::kJsonl),
              "LogFormat mirrors nomzub::LogFormat");

nomzub::LogFormat ServiceFormat(LogFormat format) { return static_cast<nomzub::LogFormat>(format); }

}  // namespace

const char* LibraryVersion() { return kLibraryVersion; }

bool ParseLogFormat(const std::string& name, LogFormat* format) {
  nomzub::LogFormat parsed;
  if (!nomzub::ParseLogFormat(name, &parsed)) return false;
  *format = static_cast<LogFormat>(parsed);
  return true;
}

std::string ConfigureLog(const std::string& target, LogFormat format) {
  const bool on_stderr = IsStderrTarget(target);
  if (!nomzub::ConfigureLog(on_stderr ? "-" : target, ServiceFormat(format)))
    return "cannot open " + Quoted(target) + " for appending (expected a writable file)";
  LogPlace& place = CurrentLogPlace();
  std::lock_guard<std::mutex> lock(place.mu);
  place.configured = true;
  place.on_stderr = on_stderr;
  return "";
}

bool LogGoesToStderr() {
  LogPlace& place = CurrentLogPlace();
  {
    std::lock_guard<std::mutex> lock(place.mu);
    if (place.configured) return place.on_stderr;
  }
  std::string target;
  nomplat::CurrentEnv()->GetEnvironmentVariable("NOMZUB_LOG", &target);
  return IsStderrTarget(target);
}

void SetVerbosity(Verbosity verbosity) {
  CurrentVerbosityStore().store(verbosity, std::memory_order_relaxed);
  nomzub::SetStderrLogFilter(verbosity == Verbosity::kQuiet ? nomzub::IsErrorRecord : nullptr);
  nomzub::SetLogEcho(verbosity == Verbosity::kVerbose ? nomzub::IsServiceRecord : nullptr);
}

Verbosity CurrentVerbosity() { return CurrentVerbosityStore().load(std::memory_order_relaxed); }

bool FlushLog() { return nomzub::FlushLog(); }

std::string SetCodePage(uint32_t code_page) {
  if (nomplat::SetACP(code_page)) return "";
  return std::to_string(code_page) +
         " is not supported (expected 65001, 1252, 932, 936, 949, 950 or another single-byte "
         "code page that iconv knows)";
}

std::string MapDrive(char letter, const std::string& native_dir) {
  if (!std::isalpha(static_cast<unsigned char>(letter)))
    return "expected a drive letter, got " + Quoted(std::string(1, letter));
  const std::string problem = ExistingDirectoryProblem(native_dir);
  if (!problem.empty()) return problem;
  nomplat::MapDrive(letter, native_dir);
  return "";
}

std::string MapShare(const std::string& share, const std::string& native_dir) {
  std::string prefix = share;
  for (char& c : prefix) {
    if (c == '/') c = '\\';
  }
  const std::string::size_type split = prefix.size() < 5 ? std::string::npos : prefix.find('\\', 2);
  if (prefix.size() < 5 || prefix[0] != '\\' || prefix[1] != '\\' || split == std::string::npos ||
      split == 2 || split + 1 == prefix.size() || prefix.find('\\', split + 1) != std::string::npos)
    return "expected \\\\SERVER\\SHARE (a network share), got " + Quoted(share);
  const std::string problem = ExistingDirectoryProblem(native_dir);
  if (!problem.empty()) return problem;
  nomplat::MapShare(prefix, native_dir);
  return "";
}

void SetConfinementRoots(const std::vector<std::string>& native_dirs) {
  nomplat::SetConfinementRoots(native_dirs);
}

}  // namespace nomsoi
