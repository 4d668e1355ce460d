// Writing a package from a loaded project: the main document and the view file in the SOI
// directory, a product document and its geometry for every product reached, in the product cache.
#ifndef NOM_NOMZUBPROXY_PACKAGE_WRITER_H_
#define NOM_NOMZUBPROXY_PACKAGE_WRITER_H_

#include <string>

#include "NOMZUBProxy/filter.h"
#include "NOMZUBProxy/project_model.h"
#include "win_types.h"

namespace nomzub::proxy {

// Writes the package called name for the top-level entries of project that lie in one of the
// lists input names and pass filter; fills the identifier cache and registers the package (which
// the caller has cleared before, so that a failure leaves none). input and option are the
// generator's arguments (syntax in NOMZUBVGXGenerator.h). S_OK; E_FAIL with the cause at level 2,
// nothing written when an argument, a directory or the object count is refused.
HRESULT GeneratePackage(const Project& project, const Filter& filter, const std::string& input,
                        const std::string& soiDirectory, const std::string& name,
                        const std::string& option);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PACKAGE_WRITER_H_
