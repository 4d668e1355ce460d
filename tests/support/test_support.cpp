#include "support/test_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>

namespace fs = std::filesystem;

namespace nomtest {

std::ostream& operator<<(std::ostream& os, const LogLine& line) {
  return os << "{" << line.level << ", \"" << line.message << "\"}";
}

LogCapture::LogCapture() : previous_(nomzub::SetLogSink(this)) {}

LogCapture::~LogCapture() { nomzub::SetLogSink(previous_); }

void LogCapture::Write(const std::string& message, int32_t level) {
  lines_.push_back({level, message});
}

std::vector<std::string> LogCapture::messages() const {
  std::vector<std::string> out;
  for (const LogLine& l : lines_) out.push_back(l.message);
  return out;
}

std::vector<std::string> LogCapture::messages(int32_t level) const {
  std::vector<std::string> out;
  for (const LogLine& l : lines_) {
    if (l.level == level) out.push_back(l.message);
  }
  return out;
}

TempDir::TempDir() {
  std::string templ = (fs::temp_directory_path() / "nomsoi-test-XXXXXX").string();
  char* made = mkdtemp(templ.data());
  path_ = made ? std::string(made) : std::string();
}

TempDir::~TempDir() {
  std::error_code ec;
  // Read-only files and directories made by a test must not stop the clean-up.
  for (auto it = fs::recursive_directory_iterator(path_, ec); !ec && it != fs::end(it);
       it.increment(ec)) {
    fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  }
  fs::remove_all(path_, ec);
}

std::string TempDir::Sub(const std::string& relative) const { return path_ + "/" + relative; }

std::vector<LogLine> ModuleLines(const LogCapture& capture) {
  std::vector<LogLine> out;
  for (const LogLine& line : capture.lines()) {
    if (line.level != 2) out.push_back(line);
  }
  return out;
}

ScopedEnvVar::ScopedEnvVar(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)) {
  if (const char* old = std::getenv(name_.c_str())) previous_ = old;
  if (value) {
    setenv(name_.c_str(), value->c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

ScopedEnvVar::~ScopedEnvVar() {
  if (previous_) {
    setenv(name_.c_str(), previous_->c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

ScopedWorkingDirectory::ScopedWorkingDirectory(const std::string& dir) {
  char* current = getcwd(nullptr, 0);
  previous_ = current != nullptr ? current : "/";
  std::free(current);
  ok_ = chdir(dir.c_str()) == 0;
}

ScopedWorkingDirectory::~ScopedWorkingDirectory() {
  if (chdir(previous_.c_str()) != 0) std::abort();
}

void WriteFile(const std::string& path, const std::string& contents) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool FileExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListDir(const std::string& path) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(path, ec)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string ZPath(const std::string& nativePath) {
  std::string out = "Z:";
  for (char c : nativePath) out += (c == '/') ? '\\' : c;
  return out;
}

}  // namespace nomtest
