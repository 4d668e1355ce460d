// The bound on the objects a generated package holds, checked before any is expanded.
#ifndef NOM_NOMZUBPROXY_OBJECT_LIMIT_H_
#define NOM_NOMZUBPROXY_OBJECT_LIMIT_H_

#include <string>
#include <vector>

#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// Whether the top-level entries of project given expand to no more than nomzub::MaxObjects()
// objects (every instance below them, the entries included); true for no entry. False with the
// limit and the product where the count passed it in *error.
bool CheckObjectCount(const Project& project, const std::vector<const Instance*>& entries,
                      std::string* error);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_OBJECT_LIMIT_H_
