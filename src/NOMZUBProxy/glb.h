// Binary glTF 2.0 (GLB): the geometry files of a package, readable by any glTF viewer.
#ifndef NOM_NOMZUBPROXY_GLB_H_
#define NOM_NOMZUBPROXY_GLB_H_

#include <string>

#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// A GLB file with one scene holding one node called name; the node carries mesh as an indexed
// triangle list (positions as float VEC3, indices as unsigned int), or no mesh when mesh is null
// or has no vertex.
std::string BuildGlb(const std::string& name, const Mesh* mesh);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_GLB_H_
