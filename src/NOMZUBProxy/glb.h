// Binary glTF 2.0 (GLB): the geometry files of a package, readable by any glTF viewer.
#ifndef NOM_NOMZUBPROXY_GLB_H_
#define NOM_NOMZUBPROXY_GLB_H_

#include <cstdint>
#include <string>
#include <vector>

#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// A triangle mesh ready for shading: per-vertex positions and unit normals (three floats each,
// as many normals as positions) and three vertex indices per triangle.
struct ShadedMesh {
  std::vector<float> positions;
  std::vector<float> normals;
  std::vector<uint32_t> indices;
};

// Faces meeting at an angle above this many degrees get a crisp edge; flatter ones are smoothed.
constexpr double kCreaseDegrees = 50;

// mesh with a unit normal at every vertex: a vertex is split wherever faces meet at more than
// kCreaseDegrees, and otherwise takes the mean of its faces' normals, weighted by their angle at
// the vertex. Triangles of zero area or with an index past the last vertex are left out; a mesh
// without indices is read as consecutive triples. Empty when no triangle of positive area is left.
ShadedMesh ShadeMesh(const Mesh& mesh);

// The rotation of every file's root node, as a quaternion (x, y, z, w): -90 degrees about X, so
// that the package's Z-up coordinates show Y-up, as glTF has it.
extern const float kZUpToYUp[4];

// A GLB file with one scene named ident. When mesh holds a triangle of positive area, the scene
// holds one node named ident, rotated by kZUpToYUp, carrying the shaded mesh (named name) as an
// indexed triangle list (POSITION and NORMAL float VEC3, indices unsigned int) with one
// metallic-roughness material from appearance; otherwise the scene holds no node and the file
// no mesh, material or buffer. Names that are not well-formed UTF-8 get U+FFFD for bad bytes.
std::string BuildGlb(const std::string& ident, const std::string& name, const Mesh* mesh,
                     const Appearance& appearance);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_GLB_H_
