// Fixtures shared by the portability-layer tests: process state they change and must restore.
#ifndef NOM_TESTS_PLATFORM_TEST_UTIL_H_
#define NOM_TESTS_PLATFORM_TEST_UTIL_H_

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace nomtest {

// Sets (or, with null, unsets) an environment variable while it lives; restores it after.
class ScopedEnvironmentVariable {
 public:
  ScopedEnvironmentVariable(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) {
      had_ = true;
      old_ = old;
    }
    Set(value);
  }
  ~ScopedEnvironmentVariable() { Set(had_ ? old_.c_str() : nullptr); }
  ScopedEnvironmentVariable(const ScopedEnvironmentVariable&) = delete;
  ScopedEnvironmentVariable& operator=(const ScopedEnvironmentVariable&) = delete;

 private:
  void Set(const char* value) {
    if (value != nullptr) {
      setenv(name_.c_str(), value, 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  std::string name_;
  bool had_ = false;
  std::string old_;
};

// Makes dir the working directory while it lives; restores the previous one after.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& dir) {
    char* current = getcwd(nullptr, 0);
    previous_ = current != nullptr ? current : "/";
    std::free(current);
    ok_ = chdir(dir.c_str()) == 0;
  }
  // Later tests must not run in the wrong directory: a failed restore stops the run.
  ~ScopedWorkingDirectory() {
    if (chdir(previous_.c_str()) != 0) std::abort();
  }
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;
  bool ok() const { return ok_; }

 private:
  std::string previous_;
  bool ok_ = false;
};

}  // namespace nomtest

#endif  // NOM_TESTS_PLATFORM_TEST_UTIL_H_
