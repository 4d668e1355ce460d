// Writing projects into a planning database.
#ifndef NOM_NOMZUBPROXY_PROJECT_STORE_H_
#define NOM_NOMZUBPROXY_PROJECT_STORE_H_

#include <string>

#include "NOMZUBProxy/planning_db.h"
#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// Replaces the project of that name (every row of it) with project. Runs inside the caller's
// transaction. False with the database's message in *error.
bool StoreProject(PlanningDb& db, const Project& project, const std::string& description,
                  std::string* error);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PROJECT_STORE_H_
