// Fakes and scoped installers for the services the utility object, the connection and the dump
// drivers call: a recording connector, a recording generator backend, an object factory with
// chosen names, a DOM hook that records or breaks wrapper calls, and guards for the code page,
// the identifier cache, the registered package and the static maps.
#ifndef NOM_TESTS_SUPPORT_DRIVER_FAKES_H_
#define NOM_TESTS_SUPPORT_DRIVER_FAKES_H_

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "services/NOMZUBConnector.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBObjectFactory.h"
#include "services/NOMZUBVGXGenerator.h"
#include "support/test_support.h"
#include "win_types.h"

namespace nomtest {

// A connector that records every call as text ("SetLogin(u,p)", "Connect(2)", ...) and returns a
// chosen code per operation (S_OK unless set). It writes no log line.
class RecordingConnector : public NOMZUBConnector {
 public:
  RecordingConnector() = default;

  // Makes the operation named op ("SetDataSource", "SetLogin", "Connect", "SetProject",
  // "SetFilters", "Cleanup", "Disconnect") return code from now on.
  void SetResult(const std::string& op, HRESULT code) { results_[op] = code; }
  // The calls made so far, in order.
  const std::vector<std::string>& calls() const { return calls_; }
  void ClearCalls() { calls_.clear(); }

  HRESULT SetDataSource(NOMZUBDataSource source) override;
  HRESULT SetLogin(const std::string& login, const std::string& password) override;
  HRESULT Connect(tagCOINIT apartment) override;
  HRESULT SetProject(const std::string& project) override;
  HRESULT SetFilters(const std::string& filters) override;
  HRESULT Cleanup(int32_t flag) override;
  HRESULT Disconnect(int32_t flag) override;

 private:
  // Records call and returns the result chosen for op.
  HRESULT Record(const std::string& op, const std::string& call);

  std::map<std::string, HRESULT> results_;
  std::vector<std::string> calls_;
};

// Makes NOMZUBConnector::Instance() return connector (nomzub::kNoConnector: null) while it lives,
// then puts back the one it replaced.
class ScopedConnector {
 public:
  explicit ScopedConnector(NOMZUBConnector* connector)
      : previous_(nomzub::SetConnector(connector)) {}
  ~ScopedConnector() { nomzub::SetConnector(previous_); }
  ScopedConnector(const ScopedConnector&) = delete;
  ScopedConnector& operator=(const ScopedConnector&) = delete;

 private:
  NOMZUBConnector* previous_;
};

// A generator backend that records its calls ("GenerateVGXPackage(a|b|c|d)", "ApplyStates",
// "ApplySimPositionBlobs") and returns chosen codes (S_OK unless set). An optional action runs
// inside GenerateVGXPackage, before it returns (for instance to write and register a package).
class FakeGenerator : public nomzub::GeneratorBackend {
 public:
  void set_generate_result(HRESULT code) { generate_result_ = code; }
  void set_states_result(HRESULT code) { states_result_ = code; }
  void set_positions_result(HRESULT code) { positions_result_ = code; }
  void set_on_generate(std::function<void()> action) { on_generate_ = std::move(action); }
  const std::vector<std::string>& calls() const { return calls_; }

  HRESULT GenerateVGXPackage(const std::string& input, const std::string& soiDirectory,
                             const std::string& name, const std::string& option) override;
  HRESULT ApplyStates() override;
  HRESULT ApplySimPositionBlobs() override;

 private:
  HRESULT generate_result_ = S_OK;
  HRESULT states_result_ = S_OK;
  HRESULT positions_result_ = S_OK;
  std::function<void()> on_generate_;
  std::vector<std::string> calls_;
};

// Installs backend as the generator backend while it lives, then puts back the previous one.
class ScopedGeneratorBackend {
 public:
  explicit ScopedGeneratorBackend(nomzub::GeneratorBackend* backend)
      : previous_(nomzub::SetGeneratorBackend(backend)) {}
  ~ScopedGeneratorBackend() { nomzub::SetGeneratorBackend(previous_); }
  ScopedGeneratorBackend(const ScopedGeneratorBackend&) = delete;
  ScopedGeneratorBackend& operator=(const ScopedGeneratorBackend&) = delete;

 private:
  nomzub::GeneratorBackend* previous_;
};

// An object factory that knows the objects given to Add, owns them, and records every id asked
// for, together with whether the out pointer was null on entry.
class FakeObjectFactory : public NOMZUBObjectFactory {
 public:
  FakeObjectFactory() = default;
  // Adds (or renames) the object with that OID.
  void Add(const std::string& oid, const std::string& name);
  const std::vector<std::string>& requested_ids() const { return requested_ids_; }
  // False once GetObject was called with an out pointer that was not null beforehand.
  bool out_pointers_were_null() const { return out_pointers_were_null_; }
  // Records id; S_OK with the object, S_FALSE with *object left as it was when unknown.
  HRESULT GetObject(const std::string& id, NOMIZUBObject** object) override;

 private:
  std::map<std::string, std::unique_ptr<NOMIZUBObject>> objects_;
  std::vector<std::string> requested_ids_;
  bool out_pointers_were_null_ = true;
};

// Makes NOMZUBObjectFactory::Instance() return factory (nomzub::kNoObjectFactory: null) while it
// lives, then puts back the one it replaced.
class ScopedObjectFactory {
 public:
  explicit ScopedObjectFactory(NOMZUBObjectFactory* factory)
      : previous_(nomzub::SetObjectFactory(factory)) {}
  ~ScopedObjectFactory() { nomzub::SetObjectFactory(previous_); }
  ScopedObjectFactory(const ScopedObjectFactory&) = delete;
  ScopedObjectFactory& operator=(const ScopedObjectFactory&) = delete;

 private:
  NOMZUBObjectFactory* previous_;
};

// One wrapper call as the hook saw it.
struct DomCallRecord {
  nomzub::DomCall call;
  std::string argument;
  bool operator==(const DomCallRecord& o) const { return call == o.call && argument == o.argument; }
};
std::ostream& operator<<(std::ostream& os, const DomCallRecord& record);

// Records every wrapper call and fails the ones chosen with FailNth / FailAll. Installed while it
// lives; the previous hook is put back afterwards.
class RecordingDomHook : public nomzub::DomHook {
 public:
  RecordingDomHook();
  ~RecordingDomHook() override;
  RecordingDomHook(const RecordingDomHook&) = delete;
  RecordingDomHook& operator=(const RecordingDomHook&) = delete;

  // Fails the nth (1-based) call of that operation whose argument equals argument, with code.
  void FailNth(nomzub::DomCall call, const std::string& argument, int nth, HRESULT code);
  // Fails every call of that operation, whatever its argument, with code.
  void FailAll(nomzub::DomCall call, HRESULT code);

  const std::vector<DomCallRecord>& records() const { return records_; }
  // The arguments of the calls of one operation, in order.
  std::vector<std::string> Arguments(nomzub::DomCall call) const;

  HRESULT Before(nomzub::DomCall call, const std::string& argument) override;

 private:
  struct Rule {
    nomzub::DomCall call;
    std::optional<std::string> argument;  // nullopt: any argument
    int nth;                              // 0: every call
    HRESULT code;
    int seen;
  };
  nomzub::DomHook* previous_;
  std::vector<Rule> rules_;
  std::vector<DomCallRecord> records_;
};

// Sets the process's code page while it lives, then restores the one in force before.
class ScopedCodePage {
 public:
  explicit ScopedCodePage(UINT codePage);
  ~ScopedCodePage();
  ScopedCodePage(const ScopedCodePage&) = delete;
  ScopedCodePage& operator=(const ScopedCodePage&) = delete;
  // False when the platform refused the code page.
  bool ok() const { return ok_; }

 private:
  UINT previous_;
  bool ok_;
};

// Empties the process-wide identifier cache, the object registry, the registered package and the
// class's two static maps on entry, and empties the cache, registry and package again on exit
// while putting back the static maps' former contents.
class ScopedServiceState {
 public:
  ScopedServiceState();
  ~ScopedServiceState();
  ScopedServiceState(const ScopedServiceState&) = delete;
  ScopedServiceState& operator=(const ScopedServiceState&) = delete;

 private:
  NOMOIDIdentPathsMap saved_object_paths_;
  NOMStringMap saved_operation_paths_;
};

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_DRIVER_FAKES_H_
