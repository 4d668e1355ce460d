// The product log: records go to an installed sink or to the default file sink, one write() per
// record on a descriptor opened with O_APPEND, so that records of concurrent writers never
// interleave and a crash loses no record that WriteMsg returned from.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/fd.h"
#include "platform/utf8.h"
#include "services/NOMZUBLog.h"

namespace nomzub {
namespace {

constexpr char kLogVariable[] = "NOMZUB_LOG";
constexpr char kFormatVariable[] = "NOMZUB_LOG_FORMAT";
constexpr int32_t kServiceLevel = 2;

std::atomic<LogSink*> g_sink{nullptr};

// "2026-11-22T10:00:00.123Z": the current time in UTC with milliseconds.
std::string UtcTimestamp() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  const long long ms = duration_cast<milliseconds>(since_epoch).count();
  const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<int>(ms % 1000));
  return text;
}

// True for the bytes a text or raw record escapes: the control characters 0x00-0x1F and 0x7F,
// except the tab that the module's own prefixes hold. None of them is ever part of a multibyte
// character in a supported code page (UTF-8 and double-byte trail bytes are 0x40 or above, and
// single-byte pages keep ASCII as it is), so testing each byte is exact.
bool IsEscapedControl(unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7F; }

// True for the bytes that end a run of text converted as a whole: every control byte, tab
// included, so that a lead byte left dangling before it cannot swallow it in the conversion.
bool IsControl(unsigned char c) { return c < 0x20 || c == 0x7F; }

// Appends control byte c as it appears in a record: a tab as itself, newline and carriage return
// as "\n" and "\r", any other as "\x" and two upper-case hex digits. A backslash in the message
// is not doubled (the module's messages are full of Windows paths), so the escapes only keep one
// record on one line; they are not meant to be reversed.
void AppendControl(unsigned char c, std::string* out) {
  static const char kHex[] = "0123456789ABCDEF";
  switch (c) {
    case '\t':
      *out += '\t';
      break;
    case '\n':
      *out += "\\n";
      break;
    case '\r':
      *out += "\\r";
      break;
    default:
      *out += "\\x";
      *out += kHex[c >> 4];
      *out += kHex[c & 0xF];
  }
}

// The message of a raw record: its bytes exactly, in the process's code page, apart from the
// escaped control characters.
std::string RawMessage(const std::string& message) {
  std::string out;
  out.reserve(message.size());
  for (const char byte : message) {
    const unsigned char c = static_cast<unsigned char>(byte);
    if (IsEscapedControl(c)) {
      AppendControl(c, &out);
    } else {
      out += byte;
    }
  }
  return out;
}

// The message of a text record: converted from the process's code page to valid UTF-8, an
// invalid byte sequence becoming U+FFFD, with the control characters escaped. Runs between
// control bytes are converted one at a time.
std::string TextMessage(const std::string& message) {
  bool plain = true;  // printable ASCII and tabs: nothing to convert or escape
  for (const char byte : message) {
    const unsigned char c = static_cast<unsigned char>(byte);
    if (c >= 0x80 || IsEscapedControl(c)) {
      plain = false;
      break;
    }
  }
  if (plain) return message;

  std::string out;
  out.reserve(message.size() + message.size() / 2);
  size_t start = 0;
  for (size_t i = 0; i <= message.size(); ++i) {
    if (i < message.size() && !IsControl(static_cast<unsigned char>(message[i]))) continue;
    // The UTF-8 code page passes a message through unconverted, so it may hold any bytes.
    if (i > start) {
      nomplat::AppendValidUtf8(nomplat::AcpToUtf8(message.substr(start, i - start)), &out);
    }
    if (i < message.size()) AppendControl(static_cast<unsigned char>(message[i]), &out);
    start = i + 1;
  }
  return out;
}

// Writes all of record with as few write() calls as the kernel allows (one for a regular file
// or a terminal). A record the descriptor refuses is dropped.
void WriteRecord(int fd, const std::string& record) {
  nomplat::WriteAll(fd, record.data(), record.size());
}

// Appends ASCII character c as the inside of a JSON string holds it: quotes, backslashes and
// control characters escaped.
void AppendJsonAscii(unsigned char c, std::string* out) {
  static const char kHex[] = "0123456789abcdef";
  switch (c) {
    case '"':
      *out += "\\\"";
      break;
    case '\\':
      *out += "\\\\";
      break;
    case '\b':
      *out += "\\b";
      break;
    case '\f':
      *out += "\\f";
      break;
    case '\n':
      *out += "\\n";
      break;
    case '\r':
      *out += "\\r";
      break;
    case '\t':
      *out += "\\t";
      break;
    default:
      if (c < 0x20) {
        *out += "\\u00";
        *out += kHex[c >> 4];
        *out += kHex[c & 0xF];
      } else {
        *out += static_cast<char>(c);
      }
  }
}

// The default sink: standard error or a file opened for appending, in one of the formats.
// Configured by ConfigureLog or, on first use, from the environment.
class FileSink {
 public:
  static FileSink& Instance() {
    static FileSink* sink = new FileSink;  // never destroyed: records may come during exit
    return *sink;
  }

  void Write(const std::string& message, int32_t level) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!configured_) ConfigureFromEnvironmentLocked();
    WriteRecord(fd_, FormatLogRecord(format_, message, level));
  }

  bool Configure(const std::string& target, LogFormat format) {
    std::lock_guard<std::mutex> lock(mutex_);
    int fd = STDERR_FILENO;
    if (!OpenTarget(target, &fd)) return false;
    ReplaceTargetLocked(fd, format);
    return true;
  }

  void Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    configured_ = false;
  }

 private:
  FileSink() = default;

  // "-" and "" name standard error; anything else a file, opened for appending. False (errno
  // set) when the file cannot be opened.
  static bool OpenTarget(const std::string& target, int* fd) {
    if (target.empty() || target == "-") {
      *fd = STDERR_FILENO;
      return true;
    }
    *fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    return *fd >= 0;
  }

  void ReplaceTargetLocked(int fd, LogFormat format) {
    if (fd_ != STDERR_FILENO) ::close(fd_);
    fd_ = fd;
    format_ = format;
    configured_ = true;
  }

  void ConfigureFromEnvironmentLocked() {
    nomplat::Env* env = nomplat::CurrentEnv();
    std::string target, format_name;
    env->GetEnvironmentVariable(kLogVariable, &target);
    const bool format_set = env->GetEnvironmentVariable(kFormatVariable, &format_name);

    LogFormat format = LogFormat::kText;
    const bool format_ok = !format_set || ParseLogFormat(format_name, &format);
    int fd = STDERR_FILENO;
    const bool target_ok = OpenTarget(target, &fd);
    const int open_error = errno;
    ReplaceTargetLocked(target_ok ? fd : STDERR_FILENO, format);

    if (!format_ok) {
      WriteRecord(
          fd_, FormatLogRecord(format_,
                               "****** ERROR:\t Unknown log format \"" + format_name + "\" in " +
                                   kFormatVariable + " (expected text, raw or jsonl); using text",
                               kServiceLevel));
    }
    if (!target_ok) {
      WriteRecord(fd_,
                  FormatLogRecord(format_,
                                  "****** ERROR:\t Cannot open log file " + target + " named by " +
                                      kLogVariable + ": " + std::strerror(open_error) +
                                      "; logging to standard error",
                                  kServiceLevel));
    }
  }

  std::mutex mutex_;
  bool configured_ = false;
  int fd_ = STDERR_FILENO;
  LogFormat format_ = LogFormat::kText;
};

}  // namespace

void AppendJsonString(const std::string& text, std::string* out) {
  nomplat::AppendValidUtf8(text, out, AppendJsonAscii);
}

LogSink::~LogSink() = default;

LogSink* SetLogSink(LogSink* sink) { return g_sink.exchange(sink); }

bool ConfigureLog(const std::string& target, LogFormat format) {
  return FileSink::Instance().Configure(target, format);
}

void ResetLogConfiguration() { FileSink::Instance().Reset(); }

bool ParseLogFormat(const std::string& name, LogFormat* format) {
  if (name == "text") {
    *format = LogFormat::kText;
  } else if (name == "raw") {
    *format = LogFormat::kRaw;
  } else if (name == "jsonl") {
    *format = LogFormat::kJsonl;
  } else {
    return false;
  }
  return true;
}

std::string FormatLogRecord(LogFormat format, const std::string& message, int32_t level) {
  const std::string level_text = std::to_string(level);
  switch (format) {
    case LogFormat::kRaw:
      return level_text + "\t" + RawMessage(message) + "\n";
    case LogFormat::kJsonl: {
      std::string record =
          "{\"time\":\"" + UtcTimestamp() + "\",\"level\":" + level_text + ",\"message\":\"";
      AppendJsonString(nomplat::AcpToUtf8(message), &record);
      record += "\"}\n";
      return record;
    }
    case LogFormat::kText:
      break;
  }
  return UtcTimestamp() + " L" + level_text + " " + TextMessage(message) + "\n";
}

void WriteToConfiguredLog(const std::string& message, int32_t level) {
  try {
    FileSink::Instance().Write(message, level);
  } catch (...) {
    // As WriteMsg: a record that cannot be written is dropped.
  }
}

void LogServiceInfo(const std::string& text) {
  NOMZUBLog::WriteMsg("Info:\t " + text, kServiceLevel);
}

void LogServiceError(const std::string& text) {
  NOMZUBLog::WriteMsg("****** ERROR:\t " + text, kServiceLevel);
}

}  // namespace nomzub

void NOMZUBLog::WriteMsg(std::string message, int32_t level) {
  try {
    if (nomzub::LogSink* sink = nomzub::g_sink.load()) {
      sink->Write(message, level);
    } else {
      nomzub::FileSink::Instance().Write(message, level);
    }
  } catch (...) {
    // A record that cannot be formatted or written (out of memory, a throwing sink) is dropped:
    // logging never makes the caller fail.
  }
}
