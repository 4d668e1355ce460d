// The run monitor, the summary line and the JSON report.
#include "outcome.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

#include "NOMZUBVGXTranslator/error_text.h"
#include "host.h"
#include "module_thread.h"
#include "platform/codepage.h"
#include "platform/paths.h"

namespace nomsoi {
namespace {

// The module's own lines for a stage that failed; Pack & Go's result is left out, since what the
// copies did tells more than the last document's code.
const char* const kStageFailures[] = {
    "****** ERROR:\t Error in VGX files Generation.",
    "****** ERROR:\t Error in Applying Positions.",
    "****** ERROR:\t ERROR:\t Error in generating MappingXML.",
    "****** ERROR:\t GenerateMappingXML failed...",
    "Info:\t Failed to get SOI.vgxXml file path",
};

// How many missing and failed files the summary names before it refers to the report.
constexpr size_t kListedInSummary = 20;

bool EndsWithIgnoringCase(const std::string& text, const std::string& suffix) {
  if (text.size() < suffix.size()) return false;
  for (size_t i = 0; i < suffix.size(); ++i) {
    const char a = text[text.size() - suffix.size() + i];
    const char b = suffix[i];
    if ((a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) != (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b))
      return false;
  }
  return true;
}

std::string NativeOf(const std::string& module_path) {
  std::string native;
  DWORD error = 0;
  return nomplat::ToNativePath(module_path, &native, &error) ? native : module_path;
}

bool SameFile(const std::string& first, const std::string& second) {
  nomplat::FileFacts a, b;
  return nomplat::StatModulePath(first, &a) == 0 && nomplat::StatModulePath(second, &b) == 0 &&
         a.exists && b.exists && a.device == b.device && a.inode == b.inode;
}

uint64_t SizeOf(const std::string& module_path) {
  nomplat::FileFacts facts;
  return nomplat::StatModulePath(module_path, &facts) == 0 ? facts.size : 0;
}

void WriteToStderr(const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(STDERR_FILENO, text.data() + done, text.size() - done);
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

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
             ",\"error_text\":" + Json(nomzub::DescribeWindowsError(item.error));
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

// The progress line on a terminal: "copied N documents, M bytes", redrawn at most ten times a
// second and erased before a log record is written to the same terminal.
class RunMonitor::Progress {
 public:
  void Update(const Outcome& outcome) {
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_draw_ < std::chrono::milliseconds(100)) return;
    last_draw_ = now;
    char line[128];
    std::snprintf(line, sizeof line, "\rcopied %" PRIu64 " documents, %" PRIu64 " bytes\033[K",
                  outcome.documents, outcome.bytes);
    WriteToStderr(line);
    drawn_ = true;
  }
  void Erase() {
    if (!drawn_) return;
    WriteToStderr("\r\033[K");
    drawn_ = false;
  }
  ~Progress() { Erase(); }

 private:
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_draw_;
};

RunMonitor::RunMonitor(const PreflightResult* plan, std::map<std::string, std::string> redirects)
    : EnvWrapper(nomplat::CurrentEnv()), plan_(plan) {
  if (plan_ != nullptr) {
    for (const PlannedItem& item : plan_->items) by_source_.emplace(item.source, &item);
  }
  for (auto& redirect : redirects) redirects_[NativeOf(redirect.first)] = redirect.second;
  if (isatty(STDERR_FILENO)) progress_ = std::make_unique<Progress>();
  previous_env_ = nomplat::SetCurrentEnv(this);
  previous_sink_ = nomzub::SetLogSink(this);
}

RunMonitor::~RunMonitor() {
  progress_.reset();
  nomzub::SetLogSink(previous_sink_);
  nomplat::SetCurrentEnv(previous_env_);
}

std::string RunMonitor::Redirected(const std::string& path) const {
  if (redirects_.empty()) return path;
  const auto found = redirects_.find(NativeOf(path));
  return found == redirects_.end() ? path : found->second;
}

std::string RunMonitor::KindOf(const std::string& source, const std::string& target) const {
  const auto found = by_source_.find(source);
  if (found != by_source_.end()) return ItemKindName(found->second->kind);
  if (EndsWithIgnoringCase(target, ".vgxGeom")) return "geometry";
  if (EndsWithIgnoringCase(target, ".vgxXml")) return "document";
  return "resource";
}

std::string RunMonitor::ReferrerOf(const std::string& source) const {
  const auto found = by_source_.find(source);
  return found == by_source_.end() ? std::string() : found->second->referrer;
}

void RunMonitor::NoteCopied(const std::string& src, const std::string& dst) {
  if (!copied_targets_.insert(dst).second) return;
  OutcomeItem item{KindOf(src, dst), src, dst, ReferrerOf(src), 0};
  if (item.kind == "document") {
    ++outcome_.documents;
  } else if (item.kind == "geometry") {
    ++outcome_.geometry;
  } else {
    ++outcome_.resources;
  }
  outcome_.bytes += SizeOf(dst);
  outcome_.copied.push_back(std::move(item));
  if (progress_) progress_->Update(outcome_);
}

void RunMonitor::NoteMissing(const std::string& path, const std::string& target) {
  if (!missing_sources_.insert(path).second) return;
  const auto found = by_source_.find(path);
  OutcomeItem item{KindOf(path, target.empty() ? path : target), path, target, ReferrerOf(path), 0};
  if (found != by_source_.end() && item.target.empty()) item.target = found->second->target;
  outcome_.missing.push_back(std::move(item));
}

void RunMonitor::NoteFailed(std::string kind, const std::string& src, const std::string& dst,
                            DWORD error) {
  if (!failures_.insert(kind + '\n' + src + '\n' + dst).second) return;
  outcome_.failed.push_back({std::move(kind), src, dst, ReferrerOf(src), error});
}

bool RunMonitor::CanOpenForReading(const std::string& path) {
  const bool readable = EnvWrapper::CanOpenForReading(path);
  if (!readable) NoteMissing(path, "");
  return readable;
}

DWORD RunMonitor::CopyFile(const std::string& src, const std::string& dst, bool failIfExists) {
  std::lock_guard<std::mutex> gate(WriteGate());
  const DWORD error = EnvWrapper::CopyFile(src, dst, failIfExists);
  if (error == 0) {
    NoteCopied(src, dst);
  } else if (SameFile(src, dst)) {
    NoteCopied(src, dst);  // already in place: copying a file onto itself changes nothing
  } else if ((error == 2 || error == 3) && !EnvWrapper::CanOpenForReading(src)) {
    NoteMissing(src, dst);
  } else {
    NoteFailed(KindOf(src, dst), src, dst, error);
  }
  return error;
}

DWORD RunMonitor::WriteFileAtomic(const std::string& path, const std::string& contents) {
  std::lock_guard<std::mutex> gate(WriteGate());
  const std::string target = Redirected(path);
  const DWORD error = EnvWrapper::WriteFileAtomic(target, contents);
  if (error != 0) NoteFailed("save", path, target, error);
  return error;
}

DWORD RunMonitor::WriteFileAtomicFrom(const std::string& path, nomplat::ContentSource& source) {
  std::lock_guard<std::mutex> gate(WriteGate());
  const std::string target = Redirected(path);
  const DWORD error = EnvWrapper::WriteFileAtomicFrom(target, source);
  if (error != 0) NoteFailed("save", path, target, error);
  return error;
}

void RunMonitor::Write(const std::string& message, int32_t level) {
  if (level < 2) {
    for (const char* failure : kStageFailures) {
      if (message == failure) outcome_.module_failures.push_back(message);
    }
  }
  if (progress_ && LogGoesToStderr()) progress_->Erase();
  if (previous_sink_ != nullptr) {
    previous_sink_->Write(message, level);
  } else {
    nomzub::WriteToConfiguredLog(message, level);
  }
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
            "': " + nomzub::DescribeWindowsError(item.error) + "\n";
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
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return "cannot write the report '" + path + "': " + std::strerror(errno);
  size_t done = 0;
  while (done < json.size()) {
    const ssize_t n = write(fd, json.data() + done, json.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  const int write_error = done == json.size() ? 0 : errno;
  const int close_error = close(fd) == 0 ? 0 : errno;
  const int error = write_error != 0 ? write_error : close_error;
  return error == 0 ? "" : "cannot write the report '" + path + "': " + std::strerror(error);
}

}  // namespace nomsoi
