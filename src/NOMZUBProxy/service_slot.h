// Where a process-wide service that can be replaced keeps its replacement: the one idiom behind
// nomzub::SetConnector, SetObjectFactory and SetGeneratorBackend.
#ifndef NOM_NOMZUBPROXY_SERVICE_SLOT_H_
#define NOM_NOMZUBPROXY_SERVICE_SLOT_H_

#include <atomic>

namespace nomzub::proxy {

// The service in force: the real one, what Set installed, or none. Constant-initialised, so it
// may be used before main and from any thread.
template <typename Service>
class ServiceSlot {
 public:
  // real gives the real service (it may make it on first use); none, when not null, is the
  // sentinel that stands for "no service".
  constexpr ServiceSlot(Service* (*real)(), Service* none) : real_(real), none_(none) {}

  // The service in force; null while none is installed.
  Service* Get() const {
    Service* installed = installed_.load();
    if (installed == nullptr) return real_();
    return installed == none_ ? nullptr : installed;
  }

  // Installs replacement (null: the real one) and returns the one it replaces: the real one's
  // address while that was in force, the sentinel while none was.
  Service* Set(Service* replacement) {
    Service* previous = installed_.exchange(replacement);
    return previous != nullptr ? previous : real_();
  }

 private:
  Service* (*real_)();
  Service* none_;
  std::atomic<Service*> installed_{nullptr};
};

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_SERVICE_SLOT_H_
