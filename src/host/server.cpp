// The planning data server as a host reaches it: the connection, the database's administration
// and the generator's limits.
#include "NOMSOIUtility.h"
#include "NOMZUBProxy/planning_admin.h"
#include "host_internal.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBVGXGenerator.h"

namespace nomsoi {

static_assert(kMaxPasswordBytes == nomzub::kMaxPasswordBytes, "one limit on both sides");

BOOL ConnectToServer(NOMSOIUtility& utility, const ServerLogin& login) {
  nomzub::SetConfiguredServer(login.server);
  return utility.ConnectServer(login.login, login.password, login.project, login.filters);
}

std::string RedactedServer(const std::string& server) { return nomzub::RedactServerUrl(server); }

HRESULT InitPlanningDatabase(const std::string& server) {
  return nomzub::InitPlanningDatabase(server);
}

HRESULT LoadSampleProject(const std::string& server) {
  return nomzub::LoadSamplePlanningData(server);
}

std::string GeneratorOptionProblem(const std::string& option) {
  std::string problem;
  if (nomzub::IsKnownGeneratorOption(option, &problem)) return "";
  std::string known;
  for (const std::string& name : nomzub::KnownGeneratorOptions())
    known += (known.empty() ? "" : ", ") + name;
  return Quoted(option) + " " + problem + " (known: " + known + ")";
}

void SetMaxObjects(uint64_t n) { nomzub::SetMaxObjects(n); }

}  // namespace nomsoi
