// The connector's session: what NOMZUBConnector's operations set up (session.cpp) and the
// generator and the positioning commands read: the loaded project and the filter in force.
#ifndef NOM_NOMZUBPROXY_SESSION_H_
#define NOM_NOMZUBPROXY_SESSION_H_

#include <string>

#include "NOMZUBProxy/filter.h"
#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// The selected project, loaded again from the open connection (its objects registered again)
// when Cleanup released it. Null, with the reason in *why, when there is none (not connected, no
// project selected, or the reload failed).
const Project* LoadedProject(std::string* why);

// The filter set by SetFilters (everything when none was set).
const Filter& CurrentFilter();

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_SESSION_H_
