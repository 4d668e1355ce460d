// Settings the platform layer takes from the environment (NOMZUB_CODE_PAGE, NOMZUB_DRIVES,
// NOMZUB_SHARES, NOMZUB_CONFINE, NOMZUB_CASE_SENSITIVE): always read through the current Env, so
// that a test can set them, and never while a lock is held, since an Env may itself log or the log
// may be the caller. Internal to libNOMZUBBase.
#ifndef NOM_PLATFORM_ENV_SETTINGS_H_
#define NOM_PLATFORM_ENV_SETTINGS_H_

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace nomplat {

// The variable's value through CurrentEnv(); nullopt when it is unset.
std::optional<std::string> EnvironmentValue(const char* name);

// Locks mutex and returns the lock once *loaded is true. While it is false, read() is called
// first without the lock (it reads the environment) and then load(result) with it; load must set
// *loaded. When a reset clears *loaded between the two, the environment is read again.
template <typename Read, typename Load>
std::unique_lock<std::mutex> LockLoaded(std::mutex& mutex, const std::atomic<bool>& loaded,
                                        Read read, Load load) {
  for (;;) {
    std::optional<decltype(read())> settings;
    if (!loaded.load(std::memory_order_acquire)) settings.emplace(read());
    std::unique_lock<std::mutex> lock(mutex);
    if (loaded.load(std::memory_order_relaxed)) return lock;
    if (settings) {
      load(std::move(*settings));
      return lock;
    }
  }
}

}  // namespace nomplat

#endif  // NOM_PLATFORM_ENV_SETTINGS_H_
