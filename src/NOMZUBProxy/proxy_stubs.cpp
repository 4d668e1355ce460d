// Placeholder bodies for the data-server services until the connector and generator land.
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBObjectFactory.h"
#include "services/NOMZUBVGXGenerator.h"

namespace {
HRESULT NotBuilt() {
  nomzub::LogServiceError("no data server support in this build yet");
  return E_FAIL;
}
bool g_connector_overridden = false;
NOMZUBConnector* g_connector_override = nullptr;
bool g_factory_overridden = false;
NOMZUBObjectFactory* g_factory_override = nullptr;
nomzub::GeneratorBackend* g_backend = nullptr;
std::string g_server;
}  // namespace

NOMZUBConnector::NOMZUBConnector() = default;
NOMZUBConnector::~NOMZUBConnector() = default;
NOMZUBConnector* NOMZUBConnector::Instance() {
  static NOMZUBConnector instance;
  return g_connector_overridden ? g_connector_override : &instance;
}
HRESULT NOMZUBConnector::SetDataSource(NOMZUBDataSource) { return S_OK; }
HRESULT NOMZUBConnector::SetLogin(const std::string&, const std::string&) { return S_OK; }
HRESULT NOMZUBConnector::Connect(tagCOINIT) { return NotBuilt(); }
HRESULT NOMZUBConnector::SetProject(const std::string&) { return NotBuilt(); }
HRESULT NOMZUBConnector::SetFilters(const std::string&) { return NotBuilt(); }
HRESULT NOMZUBConnector::Cleanup(int32_t) { return S_OK; }
HRESULT NOMZUBConnector::Disconnect(int32_t) { return S_OK; }

void nomzub::OverrideConnector(NOMZUBConnector* c) {
  g_connector_overridden = true;
  g_connector_override = c;
}
void nomzub::RestoreConnector() {
  g_connector_overridden = false;
  g_connector_override = nullptr;
}
void nomzub::SetConfiguredServer(const std::string& url) { g_server = url; }
std::string nomzub::ConfiguredServer() { return g_server; }

NOMIZUBObject::~NOMIZUBObject() = default;
NOMZUBObjectFactory::NOMZUBObjectFactory() = default;
NOMZUBObjectFactory::~NOMZUBObjectFactory() = default;
NOMZUBObjectFactory* NOMZUBObjectFactory::Instance() {
  static NOMZUBObjectFactory instance;
  return g_factory_overridden ? g_factory_override : &instance;
}
HRESULT NOMZUBObjectFactory::GetObject(const std::string&, NOMIZUBObject** object) {
  if (object == nullptr) return E_POINTER;
  return S_FALSE;
}
void nomzub::RegisterObject(const std::string&, const std::string&) {}
void nomzub::ClearObjects() {}
void nomzub::OverrideObjectFactory(NOMZUBObjectFactory* f) {
  g_factory_overridden = true;
  g_factory_override = f;
}
void nomzub::RestoreObjectFactory() {
  g_factory_overridden = false;
  g_factory_override = nullptr;
}

nomzub::GeneratorBackend::~GeneratorBackend() = default;
nomzub::GeneratorBackend* nomzub::SetGeneratorBackend(GeneratorBackend* backend) {
  GeneratorBackend* previous = g_backend;
  g_backend = backend;
  return previous;
}
NOMZUBVGXGenerator::NOMZUBVGXGenerator() = default;
NOMZUBVGXGenerator::~NOMZUBVGXGenerator() = default;
HRESULT NOMZUBVGXGenerator::GenerateVGXPackage(const std::string& a, const std::string& b,
                                               const std::string& c, const std::string& d) {
  return g_backend ? g_backend->GenerateVGXPackage(a, b, c, d) : NotBuilt();
}
NOMZUBApply3DStatesCmd::NOMZUBApply3DStatesCmd() = default;
NOMZUBApply3DStatesCmd::~NOMZUBApply3DStatesCmd() = default;
HRESULT NOMZUBApply3DStatesCmd::ApplyStates() {
  return g_backend ? g_backend->ApplyStates() : NotBuilt();
}
NOMZUBApplySimPositionBlobCmd::NOMZUBApplySimPositionBlobCmd() = default;
NOMZUBApplySimPositionBlobCmd::~NOMZUBApplySimPositionBlobCmd() = default;
HRESULT NOMZUBApplySimPositionBlobCmd::ApplySimPositionBlobs() {
  return g_backend ? g_backend->ApplySimPositionBlobs() : NotBuilt();
}

#include "NOMZUBProxy/planning_admin.h"
HRESULT nomzub::InitPlanningDatabase(const std::string&) { return NotBuilt(); }
HRESULT nomzub::LoadSamplePlanningData(const std::string&) { return NotBuilt(); }
