// NOMZUBConnector as a replaceable service: the process-wide instance, SetConnector, and the
// server that data source 0 names. Its operations, and the session they set up, are in
// session.cpp.
#include "NOMZUBProxy/service_slot.h"
#include "platform/env.h"
#include "services/NOMZUBConnector.h"

NOMZUBConnector::NOMZUBConnector() = default;
NOMZUBConnector::~NOMZUBConnector() = default;

namespace {

// The process-wide connector (the class's constructor is protected).
class ProcessConnector final : public NOMZUBConnector {};

// Stands for "no connector" while installed; never called through.
class NoConnector final : public NOMZUBConnector {};
NoConnector g_no_connector;

NOMZUBConnector* ProcessInstance() {
  static ProcessConnector connector;
  return &connector;
}

nomzub::proxy::ServiceSlot<NOMZUBConnector> g_connector(ProcessInstance, &g_no_connector);

std::string g_configured_server;

}  // namespace

NOMZUBConnector* const nomzub::kNoConnector = &g_no_connector;

NOMZUBConnector* NOMZUBConnector::Instance() { return g_connector.Get(); }

NOMZUBConnector* nomzub::SetConnector(NOMZUBConnector* replacement) {
  return g_connector.Set(replacement);
}

void nomzub::SetConfiguredServer(const std::string& url) { g_configured_server = url; }

std::string nomzub::ConfiguredServer() {
  if (!g_configured_server.empty()) return g_configured_server;
  std::string url;
  nomplat::CurrentEnv()->GetEnvironmentVariable("NOMZUB_SERVER", &url);
  return url;
}
