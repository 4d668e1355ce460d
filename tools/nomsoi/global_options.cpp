// The options every command of nomsoi takes: the log, how much is said on standard error, the code
// page, the drive and share maps.
#include "global_options.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace nomsoi {
namespace {

namespace fs = std::filesystem;

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

// The log's target and format: an option given overrides its environment variable; with
// neither option the log stays as the environment configured it.
int ApplyLogOptions(const GlobalOptions& options) {
  const bool log_given = options.log_option->count() > 0;
  const bool format_given = options.log_format_option->count() > 0;
  if (!log_given && !format_given) return kExitOk;
  const char* env_target = std::getenv("NOMZUB_LOG");
  const char* env_format = std::getenv("NOMZUB_LOG_FORMAT");
  const std::string target = log_given ? options.log : env_target ? env_target : "";
  LogFormat format = LogFormat::kText;
  ParseLogFormat(format_given ? options.log_format : env_format ? env_format : "", &format);
  const std::string problem = ConfigureLog(target, format);
  if (problem.empty()) return kExitOk;
  std::fprintf(stderr, "nomsoi: %s: %s\n", log_given ? "--log" : "NOMZUB_LOG", problem.c_str());
  return kExitUsage;
}

}  // namespace

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
  CLI::Option* quiet = app.add_flag(
      "-q,--quiet", options.quiet,
      "Errors only: no summary or progress line when a command succeeds, and of a log on "
      "standard error only the error records (\"****** ERROR\" at level 0 from the module, at "
      "level 2 from the services); refusals, failures, missing files and their summary are still "
      "shown. A log written to a file (--log FILE) is never filtered");
  CLI::Option* verbose = app.add_flag(
      "-v,--verbose", options.verbose,
      "Also write the services' level-2 log records (their causes and information) to standard "
      "error when the log goes to a file, as the file gets them (on standard error the log has "
      "them already)");
  quiet->excludes(verbose);
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
  SetVerbosity(options.quiet     ? Verbosity::kQuiet
               : options.verbose ? Verbosity::kVerbose
                                 : Verbosity::kNormal);
  if (options.code_page_option->count() > 0) {
    const std::string problem = SetCodePage(static_cast<uint32_t>(options.code_page));
    if (!problem.empty()) {
      std::fprintf(stderr, "nomsoi: --code-page: %s\n", problem.c_str());
      return kExitUsage;
    }
  }
  // The values were checked when the command line was parsed.
  for (const std::string& drive : options.drives) MapDrive(drive[0], drive.substr(2));
  for (const std::string& share : options.shares) {
    ShareMapping mapping;
    ParseShareMapping(share, &mapping);
    MapShare(mapping.prefix, mapping.dir);
  }
  return ApplyLogOptions(options);
}

}  // namespace nomsoi
