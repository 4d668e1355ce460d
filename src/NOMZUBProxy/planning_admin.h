// Administration of a planning database: schema creation and the sample project.
#ifndef NOM_NOMZUBPROXY_PLANNING_ADMIN_H_
#define NOM_NOMZUBPROXY_PLANNING_ADMIN_H_

#include <string>

#include "NOMSOITypes.h"

namespace nomzub {

// Creates the planning schema at url ("sqlite:PATH" or "postgresql://..."), or upgrades an older
// version of it. S_OK; E_FAIL with the cause at level 2 (unreachable server, a schema newer than
// this build, a file that is not a database).
NOM_API HRESULT InitPlanningDatabase(const std::string& url);
// Creates the schema when needed and loads the sample project (replacing an earlier copy of it).
// S_OK; E_FAIL with the cause at level 2.
NOM_API HRESULT LoadSamplePlanningData(const std::string& url);

}  // namespace nomzub

#endif  // NOM_NOMZUBPROXY_PLANNING_ADMIN_H_
