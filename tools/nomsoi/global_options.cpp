// The options every command of nomsoi takes: the log, the code page, the drive and share maps.
#include "global_options.h"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
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
  nomplat::Env* env = nomplat::CurrentEnv();
  std::string env_target, env_format;
  env->GetEnvironmentVariable("NOMZUB_LOG", &env_target);
  env->GetEnvironmentVariable("NOMZUB_LOG_FORMAT", &env_format);
  const std::string target = log_given ? options.log : env_target;
  LogDestination& destination = CurrentLogDestination();
  const std::string format_name = format_given ? options.log_format : env_format;
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

bool LogGoesToStderr() { return CurrentLogDestination().on_stderr; }

}  // namespace nomsoi
