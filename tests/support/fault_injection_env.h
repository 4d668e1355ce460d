// An Env for tests that counts the calls of each operation and fails the chosen ones.
#ifndef NOM_TESTS_SUPPORT_FAULT_INJECTION_ENV_H_
#define NOM_TESTS_SUPPORT_FAULT_INJECTION_ENV_H_

#include <mutex>
#include <string>
#include <vector>

#include "platform/env.h"
#include "win_types.h"

namespace nomplat {

// Counts calls per operation and fails the chosen ones: the nth call (1-based) of an operation,
// or every call from the nth on, with a chosen Windows error; every other call goes to the target.
// A failed existence test answers false, a failed read clears the contents, a failed variable
// look-up answers "unset". Not thread-safe.
class FaultInjectionEnv : public EnvWrapper {
 public:
  enum Op {
    kCanOpenForReading,
    kCopyFile,
    kReadFile,
    kWriteFileAtomic,
    kCreateDirectories,
    kGetEnvironmentVariable,
    kOpCount
  };
  // target must outlive this Env; it is not owned.
  explicit FaultInjectionEnv(Env* target) : EnvWrapper(target) {}
  // Fails call number nth (1-based) of op with error; with sticky, every later call too.
  void FailOn(Op op, int nth, DWORD error, bool sticky = false);
  // How many calls of op were made since construction or Reset, failed ones included.
  int Count(Op op) const;
  // Forgets counts and planned failures.
  void Reset();

  bool CanOpenForReading(const std::string& path) override;
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override;
  DWORD ReadFile(const std::string& path, std::string* contents) override;
  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override;
  // Counts and fails as WriteFileAtomic does.
  DWORD WriteFileAtomicFrom(const std::string& path, ContentSource& source) override;
  DWORD CreateDirectories(const std::string& path) override;
  bool GetEnvironmentVariable(const std::string& name, std::string* value) override;

 private:
  struct Plan {
    int nth = 0;
    DWORD error = 0;
    bool sticky = false;
  };
  // Counts a call of op; returns the error to fail it with, or 0.
  DWORD Tick(Op op);
  mutable std::mutex mu_;  // calls may come from several threads (the generator's writers)
  int counts_[kOpCount] = {};
  std::vector<Plan> plans_[kOpCount];
};

}  // namespace nomplat

#endif  // NOM_TESTS_SUPPORT_FAULT_INJECTION_ENV_H_
