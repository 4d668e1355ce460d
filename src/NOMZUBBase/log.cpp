// The product log: records go to an installed sink or to the default file sink. The default sink
// formats each record at once and keeps it in a buffer of whole records, written in blocks on a
// descriptor opened with O_APPEND (standard error or a file): right after a level-0 error record,
// when the buffer reaches a block, at the latest about a second after a record was buffered (a
// background flusher), when the target changes or a sink is installed, on FlushLog and when the
// process exits. Writes happen under the sink's mutex and blocks hold whole records, so records
// of concurrent writers never interleave and stay in the order they were logged. A crash (or
// SIGKILL, or _exit without FlushLog) loses the records of the last second at most, none that a
// level-0 error record or FlushLog came after. A host can have chosen records echoed to standard
// error while the log goes to a file (they wait in a second buffer written with the first), or
// keep chosen records off standard error while the log goes there.
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <thread>

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
// A record of this level that reports an error (the module's error prefix) is written at once,
// with every record buffered before it: whoever watches the log sees a failure when it happens.
// The module logs its progress at the same level, so the level alone would write every line.
constexpr int32_t kImmediateLevel = 0;
constexpr char kErrorPrefix[] = "****** ERROR";

bool HasErrorPrefix(const std::string& message) {
  return message.compare(0, sizeof kErrorPrefix - 1, kErrorPrefix) == 0;
}

bool WrittenAtOnce(const std::string& message, int32_t level) {
  return level == kImmediateLevel && HasErrorPrefix(message);
}
// Buffered records are written when they reach this many bytes...
constexpr size_t kBlockBytes = 64 * 1024;
// ...or when the oldest of them has waited this long.
constexpr std::chrono::seconds kFlushInterval(1);
// How long FlushLog waits for a write in progress on another thread, and for a pipe or terminal
// to accept more, before it gives up.
constexpr std::chrono::seconds kFlushLogPatience(1);

using Clock = std::chrono::steady_clock;

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

// The end of the next write of a block to a target that is not a regular file: the whole
// records from start that fit in PIPE_BUF bytes (a write a pipe never splits between writers),
// or the one record at start when it is longer. Every record ends with its only newline.
size_t ChunkEnd(const std::string& block, size_t start) {
  const size_t limit = start + PIPE_BUF;
  if (limit >= block.size()) return block.size();
  const size_t last = block.rfind('\n', limit - 1);
  if (last != std::string::npos && last >= start) return last + 1;
  const size_t next = block.find('\n', limit);
  return next == std::string::npos ? block.size() : next + 1;
}

// Waits until fd can take a write of PIPE_BUF bytes without blocking, or until deadline. True
// when it can (or when the write would fail at once: a closed reader, a bad descriptor).
bool WaitWritable(int fd, Clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd entry{fd, POLLOUT, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(std::max<long long>(0, left.count())));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return true;  // let write() report it
    if (ready == 0) return false;
  }
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
// Configured by ConfigureLog or, on first use, from the environment. Records are buffered whole
// and written in blocks (see the top of this file).
//
// The flusher is a detached thread started with the first buffered record, with every signal
// blocked (a host that waits for its signals with sigwait keeps receiving them). It only waits on
// the condition variable and writes; it never keeps the process alive, since exit() ends every
// thread. At exit, a handler (atexit and at_quick_exit) writes what is buffered and from then on
// every record is written at once, so records logged by later exit handlers and static
// destructors are kept too. The sink itself is never destroyed, so the flusher and those late
// records never meet a destroyed mutex. A fork waits for a write in progress (pthread_atfork
// takes the mutex); the child drops the records buffered by the parent, which writes them
// itself, and starts a flusher of its own when it buffers a record.
class FileSink {
 public:
  static FileSink& Instance() {
    static FileSink* sink = new FileSink;  // never destroyed: records may come during exit
    return *sink;
  }

  void Write(const std::string& message, int32_t level) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!configured_) ConfigureFromEnvironmentLocked();
    AddRecordLocked(message, level);
  }

  void SetEcho(LogRecordFilter echo) {
    std::lock_guard<std::mutex> lock(mutex_);
    echo_ = echo;
  }

  void SetStderrFilter(LogRecordFilter keep) {
    std::lock_guard<std::mutex> lock(mutex_);
    stderr_filter_ = keep;
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
    WriteBufferLocked(nullptr);
    configured_ = false;
  }

  // Writes the buffer, waiting as long as that takes.
  void Flush() {
    std::lock_guard<std::mutex> lock(mutex_);
    WriteBufferLocked(nullptr);
  }

  // Writes the buffer, waiting no more than kFlushLogPatience for the mutex and for a target
  // that is not a regular file to accept each write. False when records are left buffered.
  bool FlushWithPatience() {
    const Clock::time_point deadline = Clock::now() + kFlushLogPatience;
    std::unique_lock<std::mutex> lock(mutex_, std::defer_lock);
    while (!lock.try_lock()) {
      if (Clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return WriteBufferLocked(&deadline);
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

  // Writes what the old target has buffered, then switches to fd.
  void ReplaceTargetLocked(int fd, LogFormat format) {
    WriteBufferLocked(nullptr);
    if (fd_ != STDERR_FILENO) ::close(fd_);
    fd_ = fd;
    struct stat facts;
    regular_file_ = ::fstat(fd, &facts) == 0 && S_ISREG(facts.st_mode);
    format_ = format;
    configured_ = true;
  }

  // Formats one record for the target and buffers it, unless the target is standard error and
  // the host's filter keeps it off; a record the echo chooses while the target is not standard
  // error is also buffered, as formatted, for standard error.
  void AddRecordLocked(const std::string& message, int32_t level) {
    const bool to_stderr = fd_ == STDERR_FILENO;
    if (to_stderr && stderr_filter_ != nullptr && !stderr_filter_(message, level)) return;
    const bool echoed = !to_stderr && echo_ != nullptr && echo_(message, level);
    const std::string record = FormatLogRecord(format_, message, level);
    AppendLocked(record, echoed, WrittenAtOnce(message, level));
  }

  // Buffers record (and its echo) and writes the buffers when they must go now: immediate, a
  // full block, after exit began, or with no flusher to write them later.
  void AppendLocked(const std::string& record, bool echoed, bool immediate) {
    const bool was_empty = buffer_.empty() && echo_buffer_.empty();
    buffer_ += record;
    if (echoed) echo_buffer_ += record;
    if (immediate || exiting_ || buffer_.size() >= kBlockBytes ||
        echo_buffer_.size() >= kBlockBytes || !StartFlusherLocked()) {
      WriteBufferLocked(nullptr);
    } else if (was_empty) {
      oldest_ = Clock::now();
      wake_->notify_one();
    }
  }

  // Writes the buffered records to the target, then their echo to standard error, and empties
  // the buffers. False, with the records not written kept, when a target that is not a regular
  // file does not accept them by deadline (see WriteRecords). The echo is dropped, not written,
  // when the target turns out to be the file standard error is open on: nothing is doubled.
  bool WriteBufferLocked(const Clock::time_point* deadline) {
    if (!WriteRecords(fd_, regular_file_, &buffer_, deadline)) return false;
    if (echo_buffer_.empty()) return true;
    struct stat target, error_output;
    const bool error_output_known = ::fstat(STDERR_FILENO, &error_output) == 0;
    if (error_output_known && ::fstat(fd_, &target) == 0 && target.st_dev == error_output.st_dev &&
        target.st_ino == error_output.st_ino) {
      echo_buffer_.clear();
      return true;
    }
    return WriteRecords(STDERR_FILENO, error_output_known && S_ISREG(error_output.st_mode),
                        &echo_buffer_, deadline);
  }

  // Writes the records of *records to fd and empties it. A regular file takes them in one
  // write; any other target in writes of whole records of at most PIPE_BUF bytes, each waited
  // for until deadline when one is given: false, with the records not written kept, when the
  // target does not accept them in time. Records the target refuses are dropped.
  static bool WriteRecords(int fd, bool regular_file, std::string* records,
                           const Clock::time_point* deadline) {
    if (records->empty()) return true;
    if (regular_file) {
      nomplat::WriteAll(fd, records->data(), records->size());
    } else {
      for (size_t done = 0; done < records->size();) {
        if (deadline != nullptr && !WaitWritable(fd, *deadline)) {
          records->erase(0, done);
          return false;
        }
        const size_t end = ChunkEnd(*records, done);
        if (nomplat::WriteAll(fd, records->data() + done, end - done) != 0) break;
        done = end;
      }
    }
    records->clear();
    if (records->capacity() > 4 * kBlockBytes) std::string().swap(*records);  // a huge record
    return true;
  }

  // Starts the flusher unless it runs; false when no thread can be started (every record is
  // then written at once).
  bool StartFlusherLocked() {
    if (flusher_running_) return true;
    if (flusher_failed_) return false;
    RegisterProcessHandlersLocked();
    sigset_t all, previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);  // the new thread inherits the mask
    try {
      std::thread([this] { RunFlusher(); }).detach();
      flusher_running_ = true;
    } catch (...) {
      flusher_failed_ = true;
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return flusher_running_;
  }

  // The flusher: sleeps while nothing is buffered, then writes the buffer once its oldest record
  // has waited kFlushInterval, unless a writer (a level-0 record, a full block) did it first.
  void RunFlusher() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      std::condition_variable* wake = wake_;
      wake->wait(lock, [this] { return !buffer_.empty() || !echo_buffer_.empty(); });
      while (!buffer_.empty() || !echo_buffer_.empty()) {
        const Clock::time_point due = oldest_ + kFlushInterval;
        if (Clock::now() >= due) {
          WriteBufferLocked(nullptr);
        } else {
          wake->wait_until(lock, due);
        }
      }
    }
  }

  void RegisterProcessHandlersLocked() {
    if (handlers_registered_) return;
    handlers_registered_ = true;
    std::atexit(FlushAtExit);
    std::at_quick_exit(FlushAtExit);
    pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
  }

  static void FlushAtExit() {
    FileSink& sink = Instance();
    std::lock_guard<std::mutex> lock(sink.mutex_);
    sink.WriteBufferLocked(nullptr);
    sink.exiting_ = true;
  }

  static void BeforeFork() { Instance().mutex_.lock(); }
  static void AfterForkInParent() { Instance().mutex_.unlock(); }
  // The child has no flusher and a condition variable that may count the parent's flusher as a
  // waiter: it gets a new one (the old one is left alone, never destroyed).
  static void AfterForkInChild() {
    FileSink& sink = Instance();
    sink.buffer_.clear();
    sink.echo_buffer_.clear();
    sink.flusher_running_ = false;
    if (auto* fresh = new (std::nothrow) std::condition_variable) sink.wake_ = fresh;
    sink.mutex_.unlock();
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
      AddRecordLocked("****** ERROR:\t Unknown log format \"" + format_name + "\" in " +
                          kFormatVariable + " (expected text, raw or jsonl); using text",
                      kServiceLevel);
    }
    if (!target_ok) {
      AddRecordLocked("****** ERROR:\t Cannot open log file " + target + " named by " +
                          kLogVariable + ": " + std::strerror(open_error) +
                          "; logging to standard error",
                      kServiceLevel);
    }
  }

  std::mutex mutex_;
  // Wakes the flusher when the buffer stops being empty.
  std::condition_variable* wake_ = new std::condition_variable;
  bool configured_ = false;
  int fd_ = STDERR_FILENO;
  bool regular_file_ = false;  // the target is a regular file: blocks go in one write
  LogFormat format_ = LogFormat::kText;
  std::string buffer_;                       // whole records, not yet written
  std::string echo_buffer_;                  // the echoed ones among them, for standard error
  LogRecordFilter echo_ = nullptr;           // records also written to standard error
  LogRecordFilter stderr_filter_ = nullptr;  // records kept when the target is standard error
  Clock::time_point oldest_;                 // when the first record now in buffer_ was buffered
  bool flusher_running_ = false;
  bool flusher_failed_ = false;
  bool handlers_registered_ = false;
  bool exiting_ = false;  // the exit handler ran: every record is written at once
};

}  // namespace

void AppendJsonString(const std::string& text, std::string* out) {
  nomplat::AppendValidUtf8(text, out, AppendJsonAscii);
}

LogSink::~LogSink() = default;

LogSink* SetLogSink(LogSink* sink) {
  try {
    FileSink::Instance().Flush();
  } catch (...) {
    // The sink is installed whatever happened to the buffered records.
  }
  return g_sink.exchange(sink);
}

bool FlushLog() {
  try {
    return FileSink::Instance().FlushWithPatience();
  } catch (...) {
    return false;
  }
}

bool ConfigureLog(const std::string& target, LogFormat format) {
  return FileSink::Instance().Configure(target, format);
}

void ResetLogConfiguration() { FileSink::Instance().Reset(); }

void SetLogEcho(LogRecordFilter echo) { FileSink::Instance().SetEcho(echo); }

void SetStderrLogFilter(LogRecordFilter keep) { FileSink::Instance().SetStderrFilter(keep); }

bool IsServiceRecord(const std::string& /*message*/, int32_t level) {
  return level == kServiceLevel;
}

bool IsErrorRecord(const std::string& message, int32_t level) {
  return (level == kImmediateLevel || level == kServiceLevel) && HasErrorPrefix(message);
}

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
