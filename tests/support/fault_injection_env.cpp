// An Env for tests that counts the calls of each operation and fails the chosen ones.
#include "support/fault_injection_env.h"

namespace nomplat {

void FaultInjectionEnv::FailOn(Op op, int nth, DWORD error, bool sticky) {
  std::lock_guard<std::mutex> lock(mu_);
  plans_[op].push_back({nth, error, sticky});
}

int FaultInjectionEnv::Count(Op op) const {
  std::lock_guard<std::mutex> lock(mu_);
  return counts_[op];
}

void FaultInjectionEnv::Reset() {
  std::lock_guard<std::mutex> lock(mu_);
  for (int op = 0; op < kOpCount; ++op) {
    counts_[op] = 0;
    plans_[op].clear();
  }
}

DWORD FaultInjectionEnv::Tick(Op op) {
  std::lock_guard<std::mutex> lock(mu_);
  const int call = ++counts_[op];
  for (const Plan& plan : plans_[op]) {
    if (call == plan.nth || (plan.sticky && call > plan.nth)) return plan.error;
  }
  return 0;
}

bool FaultInjectionEnv::CanOpenForReading(const std::string& path) {
  return Tick(kCanOpenForReading) == 0 && EnvWrapper::CanOpenForReading(path);
}

DWORD FaultInjectionEnv::CopyFile(const std::string& src, const std::string& dst,
                                  bool failIfExists) {
  const DWORD error = Tick(kCopyFile);
  return error != 0 ? error : EnvWrapper::CopyFile(src, dst, failIfExists);
}

DWORD FaultInjectionEnv::ReadFile(const std::string& path, std::string* contents) {
  const DWORD error = Tick(kReadFile);
  if (error == 0) return EnvWrapper::ReadFile(path, contents);
  contents->clear();
  return error;
}

DWORD FaultInjectionEnv::WriteFileAtomic(const std::string& path, const std::string& contents) {
  const DWORD error = Tick(kWriteFileAtomic);
  return error != 0 ? error : EnvWrapper::WriteFileAtomic(path, contents);
}

DWORD FaultInjectionEnv::WriteFileAtomicFrom(const std::string& path, ContentSource& source) {
  const DWORD error = Tick(kWriteFileAtomic);
  return error != 0 ? error : EnvWrapper::WriteFileAtomicFrom(path, source);
}

DWORD FaultInjectionEnv::CreateDirectories(const std::string& path) {
  const DWORD error = Tick(kCreateDirectories);
  return error != 0 ? error : EnvWrapper::CreateDirectories(path);
}

bool FaultInjectionEnv::GetEnvironmentVariable(const std::string& name, std::string* value) {
  if (Tick(kGetEnvironmentVariable) == 0) return EnvWrapper::GetEnvironmentVariable(name, value);
  value->clear();
  return false;
}

}  // namespace nomplat
