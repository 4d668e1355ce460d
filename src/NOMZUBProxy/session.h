// What the connector holds between calls and the generator and the positioning commands read:
// the loaded project and the filter in force.
#ifndef NOM_NOMZUBPROXY_SESSION_H_
#define NOM_NOMZUBPROXY_SESSION_H_

#include <string>

#include "NOMZUBProxy/filter.h"
#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// The selected project, loaded again from the open connection when Cleanup released it. Null,
// with the reason in *why, when there is none (not connected, no project selected, or the
// reload failed).
const Project* LoadedProject(std::string* why);

// The filter set by SetFilters (everything when none was set).
const Filter& CurrentFilter();

// Registers the products and operations of project with the object factory.
void RegisterProjectObjects(const Project& project);

// Whether a top-level entry of project passes filter.
bool PassesFilter(const Project& project, const Filter& filter, const Instance& root);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_SESSION_H_
