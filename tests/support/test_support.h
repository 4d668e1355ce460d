// Helpers shared by the tests: captured log lines, temporary directories, small file utilities.
#ifndef NOM_TESTS_SUPPORT_TEST_SUPPORT_H_
#define NOM_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <string>
#include <utility>
#include <vector>

#include "services/NOMZUBLog.h"

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
