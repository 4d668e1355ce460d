#include "support/driver_fakes.h"

#include <ostream>

#include "platform/codepage.h"
#include "services/NOMZUBVGXGen.h"
#include "services/NOMZUBVGXIdentCache.h"
#include "support/peer.h"

namespace nomtest {

// ---- RecordingConnector ----

HRESULT RecordingConnector::Record(const std::string& op, const std::string& call) {
  calls_.push_back(call);
  auto it = results_.find(op);
  return it == results_.end() ? S_OK : it->second;
}

HRESULT RecordingConnector::SetDataSource(NOMZUBDataSource source) {
  return Record("SetDataSource", "SetDataSource(" + std::to_string(static_cast<int>(source)) + ")");
}

HRESULT RecordingConnector::SetLogin(const std::string& login, const std::string& password) {
  return Record("SetLogin", "SetLogin(" + login + "," + password + ")");
}

HRESULT RecordingConnector::Connect(tagCOINIT apartment) {
  return Record("Connect", "Connect(" + std::to_string(static_cast<int>(apartment)) + ")");
}

HRESULT RecordingConnector::SetProject(const std::string& project) {
  return Record("SetProject", "SetProject(" + project + ")");
}

HRESULT RecordingConnector::SetFilters(const std::string& filters) {
  return Record("SetFilters", "SetFilters(" + filters + ")");
}

HRESULT RecordingConnector::Cleanup(int32_t flag) {
  return Record("Cleanup", "Cleanup(" + std::to_string(flag) + ")");
}

HRESULT RecordingConnector::Disconnect(int32_t flag) {
  return Record("Disconnect", "Disconnect(" + std::to_string(flag) + ")");
}

// ---- FakeGenerator ----

HRESULT FakeGenerator::GenerateVGXPackage(const std::string& input, const std::string& soiDirectory,
                                          const std::string& name, const std::string& option) {
  calls_.push_back("GenerateVGXPackage(" + input + "|" + soiDirectory + "|" + name + "|" + option +
                   ")");
  if (on_generate_) on_generate_();
  return generate_result_;
}

HRESULT FakeGenerator::ApplyStates() {
  calls_.push_back("ApplyStates");
  return states_result_;
}

HRESULT FakeGenerator::ApplySimPositionBlobs() {
  calls_.push_back("ApplySimPositionBlobs");
  return positions_result_;
}

// ---- FakeObjectFactory ----

namespace {

class FakeObject : public NOMIZUBObject {
 public:
  explicit FakeObject(std::string name) : name_(std::move(name)) {}
  std::string GetName() override { return name_; }

 private:
  std::string name_;
};

}  // namespace

void FakeObjectFactory::Add(const std::string& oid, const std::string& name) {
  objects_[oid] = std::make_unique<FakeObject>(name);
}

HRESULT FakeObjectFactory::GetObject(const std::string& id, NOMIZUBObject** object) {
  requested_ids_.push_back(id);
  if (object == nullptr) return E_POINTER;
  if (*object != nullptr) out_pointers_were_null_ = false;
  auto it = objects_.find(id);
  if (it == objects_.end()) return S_FALSE;
  *object = it->second.get();
  return S_OK;
}

// ---- RecordingDomHook ----

std::ostream& operator<<(std::ostream& os, const DomCallRecord& record) {
  static const char* const kNames[] = {
      "OpenDocument", "CreateDocument", "CreateRootNode", "CreateChildNode", "GetNode",
      "GetNodes",     "GetChildNodes",  "GetAttribute",   "AddAttribute",    "SaveDoc"};
  return os << kNames[static_cast<int>(record.call)] << "(\"" << record.argument << "\")";
}

RecordingDomHook::RecordingDomHook() : previous_(nomzub::SetDomHook(this)) {}

RecordingDomHook::~RecordingDomHook() { nomzub::SetDomHook(previous_); }

void RecordingDomHook::FailNth(nomzub::DomCall call, const std::string& argument, int nth,
                               HRESULT code) {
  rules_.push_back({call, argument, nth, code, 0});
}

void RecordingDomHook::FailAll(nomzub::DomCall call, HRESULT code) {
  rules_.push_back({call, std::nullopt, 0, code, 0});
}

std::vector<std::string> RecordingDomHook::Arguments(nomzub::DomCall call) const {
  std::vector<std::string> out;
  for (const DomCallRecord& r : records_) {
    if (r.call == call) out.push_back(r.argument);
  }
  return out;
}

HRESULT RecordingDomHook::Before(nomzub::DomCall call, const std::string& argument) {
  records_.push_back({call, argument});
  HRESULT result = S_OK;
  for (Rule& rule : rules_) {
    if (rule.call != call || (rule.argument && *rule.argument != argument)) continue;
    ++rule.seen;
    if (rule.nth == 0 || rule.seen == rule.nth) result = rule.code;
  }
  return result;
}

// ---- Scoped guards ----

ScopedCodePage::ScopedCodePage(UINT codePage)
    : previous_(nomplat::GetACP()), ok_(nomplat::SetACP(codePage)) {}

ScopedCodePage::~ScopedCodePage() { nomplat::SetACP(previous_); }

namespace {

void ClearServices() {
  nomzub::IdentCacheClear();
  nomzub::ClearObjects();
  nomzub::ClearPackage();
}

}  // namespace

ScopedServiceState::ScopedServiceState() {
  ClearServices();
  saved_object_paths_.swap(NOMSOIUtilityTestPeer::OIDIdentPathsMap2());
  saved_operation_paths_.swap(NOMSOIUtilityTestPeer::OpOIDIdentPathMap2());
}

ScopedServiceState::~ScopedServiceState() {
  ClearServices();
  NOMSOIUtilityTestPeer::OIDIdentPathsMap2().swap(saved_object_paths_);
  NOMSOIUtilityTestPeer::OpOIDIdentPathMap2().swap(saved_operation_paths_);
}

}  // namespace nomtest
