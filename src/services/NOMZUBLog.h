// The product log (NOMZUBBase).
#ifndef NOM_SERVICES_NOMZUBLOG_H_
#define NOM_SERVICES_NOMZUBLOG_H_

#include <string>

#include "win_types.h"

class NOM_API NOMZUBLog {
 public:
  // Appends one record: the message exactly as given and its level. Goes to the installed sink
  // (nomzub::SetLogSink) or, by default, to NOMZUB_LOG (a file; "-" or unset: standard error) in
  // the NOMZUB_LOG_FORMAT format (text, raw or jsonl; see FormatLogRecord). The default sink
  // buffers records and writes them in blocks of whole records, in the order they were logged
  // (records of concurrent callers never interleave): a level-0 error record (one that starts
  // "****** ERROR") is written, with every record before it, before WriteMsg returns; others
  // within about a second, when 64 KiB are waiting, at exit or on nomzub::FlushLog. Only a
  // crash or an end without exit handlers (SIGKILL, _exit without FlushLog) loses records: those
  // of the last second at most.
  // Never throws; a record that cannot be written is dropped.
  static void WriteMsg(std::string message, int32_t level);
};

namespace nomzub {

enum class LogFormat { kText, kRaw, kJsonl };

// Receives every record; tests install one to capture lines.
class NOM_API LogSink {
 public:
  virtual ~LogSink();
  virtual void Write(const std::string& message, int32_t level) = 0;
};

// Installs sink (null: the configured file) and returns the one it replaces. Records the default
// sink holds are written to its target first.
NOM_API LogSink* SetLogSink(LogSink* sink);

// Chooses the default sink's target ("-" or empty: standard error) and format, overriding the
// environment; records buffered until then go to the previous target. Returns false, and keeps
// the previous target, when the file cannot be opened.
NOM_API bool ConfigureLog(const std::string& target, LogFormat format);
// Writes the records the default sink holds to its target now: for a host about to end the
// process without exit handlers (_exit on a signal) or wanting its log complete on disk. Returns
// true when nothing is left buffered (also when nothing was). Waits at most about a second for
// another thread's write in progress and for a pipe or terminal to take more; false, the records
// kept, when it gave up (a log nobody reads). Safe from any thread, not from a signal handler.
NOM_API bool FlushLog();
// Forgets ConfigureLog, after writing the buffered records to the old target: the next record
// of the default sink reads NOMZUB_LOG and NOMZUB_LOG_FORMAT again (through the current Env) and
// opens that target. Log targets are native file paths, opened for appending and created when
// missing; a target or format named by the environment that cannot be used is reported on standard
// error, which then receives the log.
NOM_API void ResetLogConfiguration();
// Chooses records by their message and level (the record as logged, before formatting).
using LogRecordFilter = bool (*)(const std::string& message, int32_t level);
// While the default sink's target is not standard error, also writes each record for which echo
// returns true to standard error, exactly as formatted for the target (the same line, timestamp
// included), in the same blocks and at the same moments as the target gets it, so the echo is
// never later than the record's flush rules allow. A target that is the file standard error is
// open on gets no echo (nothing is doubled). null, the default, echoes nothing; records buffered
// before the call keep the echo they had.
NOM_API void SetLogEcho(LogRecordFilter echo);
// While the default sink's target is standard error ("-", or NOMZUB_LOG unset), writes only
// the records for which keep returns true and drops the others; a log written to a file is never
// filtered. null, the default, keeps every record.
NOM_API void SetStderrLogFilter(LogRecordFilter keep);
// True for a level-2 record: the services' own diagnostics, information and errors alike.
NOM_API bool IsServiceRecord(const std::string& message, int32_t level);
// True for an error record: one that starts "****** ERROR" at level 0 (the module's errors) or at
// level 2 (the services'); false for every other record, level-1 ones included.
NOM_API bool IsErrorRecord(const std::string& message, int32_t level);
// Parses "text", "raw" or "jsonl"; false for anything else.
NOM_API bool ParseLogFormat(const std::string& name, LogFormat* format);
// Formats one record as the format writes it, newline included; always exactly one line. text:
// timestamp, " L", level, a space, the message converted from the process's code page to UTF-8
// (an invalid byte sequence becomes U+FFFD). raw: level, a tab, the message's bytes in the code
// page. In both, a control character (0x00-0x1F, 0x7F) other than tab is written as "\n", "\r"
// or "\xHH" (upper-case hex); tabs and backslashes stay as they are. jsonl: one JSON object
// with time, level and the message in UTF-8, escaped as JSON. An empty message gives an empty
// message field. Throws only when out of memory.
NOM_API std::string FormatLogRecord(LogFormat format, const std::string& message, int32_t level);

// Writes one record to the configured target (ConfigureLog or the environment), whatever sink is
// installed: a sink that watches the records forwards them with it. Never throws.
NOM_API void WriteToConfiguredLog(const std::string& message, int32_t level);
// Appends text (UTF-8) to out as the inside of a JSON string: quotes, backslashes and control
// characters escaped; an invalid UTF-8 byte becomes U+FFFD.
NOM_API void AppendJsonString(const std::string& text, std::string* out);

// The services' own diagnostics: level 2, "Info:\t " or "****** ERROR:\t " before the text.
NOM_API void LogServiceInfo(const std::string& text);
NOM_API void LogServiceError(const std::string& text);

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBLOG_H_
