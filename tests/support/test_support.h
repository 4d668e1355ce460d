// Helpers shared by the tests: captured log lines, temporary directories, small file utilities.
#ifndef NOM_TESTS_SUPPORT_TEST_SUPPORT_H_
#define NOM_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "services/NOMZUBLog.h"
#include "support/fault_injection_env.h"

namespace nomtest {

// One log record as the sink received it.
struct LogLine {
  int32_t level;
  std::string message;
  bool operator==(const LogLine& o) const { return level == o.level && message == o.message; }
};
std::ostream& operator<<(std::ostream& os, const LogLine& line);

// Captures every log record while it lives, then restores the previous sink.
class LogCapture : public nomzub::LogSink {
 public:
  LogCapture();
  ~LogCapture() override;
  void Write(const std::string& message, int32_t level) override;
  const std::vector<LogLine>& lines() const { return lines_; }
  // The messages alone, in order.
  std::vector<std::string> messages() const;
  // Only the records of the given level.
  std::vector<std::string> messages(int32_t level) const;
  void clear() { lines_.clear(); }

 private:
  nomzub::LogSink* previous_;
  std::vector<LogLine> lines_;
};

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  // Native path, no trailing slash.
  const std::string& path() const { return path_; }
  // path() + "/" + relative.
  std::string Sub(const std::string& relative) const;

 private:
  std::string path_;
};

// Sets (or, with nullopt, unsets) an environment variable while it lives, then restores it.
class ScopedEnvVar {
 public:
  ScopedEnvVar(std::string name, const std::optional<std::string>& value);
  ~ScopedEnvVar();
  ScopedEnvVar(const ScopedEnvVar&) = delete;
  ScopedEnvVar& operator=(const ScopedEnvVar&) = delete;

 private:
  std::string name_;
  std::optional<std::string> previous_;
};

// Makes dir the working directory while it lives; restores the previous one after. A failed
// restore stops the run, since later tests must not run in the wrong directory.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& dir);
  ~ScopedWorkingDirectory();
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;
  // False when dir could not be made the working directory.
  bool ok() const { return ok_; }

 private:
  std::string previous_;
  bool ok_ = false;
};

// The records of the module itself (levels 0 and 1), without the services' own diagnostics (2).
std::vector<LogLine> ModuleLines(const LogCapture& capture);

// Writes a file (creating its parent directories).
void WriteFile(const std::string& path, const std::string& contents);
// The file's contents; "" when it cannot be read.
std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);
// The names of the entries of a directory, sorted.
std::vector<std::string> ListDir(const std::string& path);
// Turns a native absolute path into a module path through the default "Z:" drive ("Z:\tmp\x").
std::string ZPath(const std::string& nativePath);

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_TEST_SUPPORT_H_
