// The Env in force, the defaults of Env's optional operations, and EnvWrapper.
#include "platform/env.h"

#include <atomic>

#include "platform/env_settings.h"
#include "platform/paths.h"

namespace nomplat {
namespace {

// The Env installed by SetCurrentEnv; null for the default.
std::atomic<Env*> g_current{nullptr};

}  // namespace

Env::~Env() = default;

ContentSource::~ContentSource() = default;

DWORD Env::WriteFileAtomicFrom(const std::string& path, ContentSource& source) {
  std::string contents;
  const DWORD error = source.WriteTo([&contents](const char* data, size_t size) {
    contents.append(data, size);
    return DWORD{0};
  });
  return error != 0 ? error : WriteFileAtomic(path, contents);
}

DWORD Env::FreeBytes(const std::string& dir, uint64_t* bytes) {
  return nomplat::FreeBytes(dir, bytes);
}

Env* CurrentEnv() {
  Env* env = g_current.load(std::memory_order_acquire);
  return env != nullptr ? env : Env::Default();
}

Env* SetCurrentEnv(Env* env) {
  Env* previous = g_current.exchange(env, std::memory_order_acq_rel);
  return previous != nullptr ? previous : Env::Default();
}

std::optional<std::string> EnvironmentValue(const char* name) {
  std::string value;
  if (!CurrentEnv()->GetEnvironmentVariable(name, &value)) return std::nullopt;
  return value;
}

// --- EnvWrapper ---------------------------------------------------------------------------------

bool EnvWrapper::CanOpenForReading(const std::string& path) {
  return target_->CanOpenForReading(path);
}
DWORD EnvWrapper::CopyFile(const std::string& src, const std::string& dst, bool failIfExists) {
  return target_->CopyFile(src, dst, failIfExists);
}
DWORD EnvWrapper::ReadFile(const std::string& path, std::string* contents) {
  return target_->ReadFile(path, contents);
}
DWORD EnvWrapper::WriteFileAtomic(const std::string& path, const std::string& contents) {
  return target_->WriteFileAtomic(path, contents);
}
DWORD EnvWrapper::WriteFileAtomicFrom(const std::string& path, ContentSource& source) {
  return target_->WriteFileAtomicFrom(path, source);
}
DWORD EnvWrapper::CreateDirectories(const std::string& path) {
  return target_->CreateDirectories(path);
}
DWORD EnvWrapper::FreeBytes(const std::string& dir, uint64_t* bytes) {
  return target_->FreeBytes(dir, bytes);
}
bool EnvWrapper::GetEnvironmentVariable(const std::string& name, std::string* value) {
  return target_->GetEnvironmentVariable(name, value);
}

}  // namespace nomplat
