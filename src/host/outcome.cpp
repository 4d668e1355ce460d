// The outcome's exit status, summary line and JSON report.
#include "outcome.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "host_internal.h"
#include "platform/codepage.h"
#include "platform/fd.h"
#include "platform/winerror.h"
#include "services/NOMZUBLog.h"

namespace nomsoi {
namespace {

// How many missing and failed files the summary names before it refers to the report.
constexpr size_t kListedInSummary = 20;

std::string Json(const std::string& text) {
  std::string out = "\"";
  nomzub::AppendJsonString(nomplat::AcpToUtf8(text), &out);
  return out + "\"";
}

std::string JsonItems(const std::vector<OutcomeItem>& items, bool with_error) {
  std::string out = "[";
  for (size_t i = 0; i < items.size(); ++i) {
    const OutcomeItem& item = items[i];
    out += i == 0 ? "\n    {" : ",\n    {";
    out += "\"kind\":" + Json(item.kind) + ",\"source\":" + Json(item.source) +
           ",\"target\":" + Json(item.target) + ",\"referrer\":" + Json(item.referrer);
    if (with_error) {
      out += ",\"error\":" + std::to_string(item.error) +
             ",\"error_text\":" + Json(nomplat::DescribeWindowsError(item.error));
    }
    out += "}";
  }
  return out + (items.empty() ? "]" : "\n  ]");
}

std::string ModuleResultText(HRESULT result) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result));
  return text;
}
}  // namespace

int ExitStatusOf(const Outcome& outcome) {
  if (!outcome.failed.empty() || !outcome.module_failures.empty()) return kExitFailed;
  if (!outcome.missing.empty()) return kExitMissing;
  return kExitOk;
}

void PrintSummary(const std::string& command, const Outcome& outcome, const std::string& output,
                  const HRESULT* module_result) {
  std::string line = "nomsoi " + command + ": " + std::to_string(outcome.documents) +
                     " documents, " + std::to_string(outcome.geometry) + " geometry files, " +
                     std::to_string(outcome.resources) + " resources, " +
                     std::to_string(outcome.bytes) + " bytes copied; " +
                     std::to_string(outcome.missing.size()) + " missing, " +
                     std::to_string(outcome.failed.size()) + " failed; output " + output;
  if (module_result != nullptr) line += "; module result " + ModuleResultText(*module_result);
  line += "\n";
  size_t listed = 0;
  for (const std::string& failure : outcome.module_failures) {
    if (listed++ < kListedInSummary) line += "  module: " + failure + "\n";
  }
  for (const OutcomeItem& item : outcome.missing) {
    if (listed++ >= kListedInSummary) continue;
    line += "  missing " + item.kind + " '" + item.source + "'";
    if (!item.referrer.empty()) line += " (named by '" + item.referrer + "')";
    line += "\n";
  }
  for (const OutcomeItem& item : outcome.failed) {
    if (listed++ >= kListedInSummary) continue;
    line += "  failed " + item.kind + " '" + item.source + "' -> '" + item.target +
            "': " + nomplat::DescribeWindowsError(item.error) + "\n";
  }
  if (listed > kListedInSummary) {
    line += "  ... and " + std::to_string(listed - kListedInSummary) +
            " more (--report FILE lists them all)\n";
  }
  WriteToStderr(line);
}

std::string WriteReport(const std::string& path, const std::string& command, int status,
                        const Outcome& outcome, const std::string& output,
                        const HRESULT* module_result) {
  std::string json = "{\n  \"command\":" + Json(command) +
                     ",\n  \"status\":" + std::to_string(status) +
                     ",\n  \"output\":" + Json(output);
  if (module_result != nullptr)
    json += ",\n  \"module_result\":" + Json(ModuleResultText(*module_result));
  json += ",\n  \"documents\":" + std::to_string(outcome.documents) +
          ",\n  \"geometry\":" + std::to_string(outcome.geometry) +
          ",\n  \"resources\":" + std::to_string(outcome.resources) +
          ",\n  \"bytes\":" + std::to_string(outcome.bytes);
  json += ",\n  \"module_failures\":[";
  for (size_t i = 0; i < outcome.module_failures.size(); ++i)
    json += (i == 0 ? "" : ",") + Json(outcome.module_failures[i]);
  json += "],\n  \"copied\":" + JsonItems(outcome.copied, false) +
          ",\n  \"missing\":" + JsonItems(outcome.missing, false) +
          ",\n  \"failed\":" + JsonItems(outcome.failed, true) + "\n}\n";
  nomplat::Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!fd) return "cannot write the report '" + path + "': " + std::strerror(errno);
  DWORD error = nomplat::WriteAll(fd.get(), json.data(), json.size());
  const DWORD close_error = fd.Close();
  if (error == 0) error = close_error;
  return error == 0
             ? ""
             : "cannot write the report '" + path + "': " + nomplat::DescribeWindowsError(error);
}

}  // namespace nomsoi
