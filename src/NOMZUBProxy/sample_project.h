// The projects this module can create: the sample assembly line and synthetic projects of any
// size for measurements.
#ifndef NOM_NOMZUBPROXY_SAMPLE_PROJECT_H_
#define NOM_NOMZUBPROXY_SAMPLE_PROJECT_H_

#include <string>

#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// The sample project (nomzub::kSampleProject): an assembly line of three stations and a conveyor,
// three resources, a gearbox as the manufactured product, the hall as the planning context, six
// operations with ten views, 3D states and simulation positions. Units are metres, Z is up, the
// stations stand along X; every view aims at the placed centre of the object it shows.
Project BuildSampleProject();

// A project of productCount products (at least 4): a plant of cells, each cell holding its own
// parts and four uses of one shared bolt, plus the sample's process with its views.
Project BuildSyntheticProject(const std::string& name, int productCount);

// An axis-aligned box of the given size, its base centred on the origin.
Mesh BoxMesh(float sx, float sy, float sz);
// A cylinder along Z of the given radius and height, its base centred on the origin.
Mesh CylinderMesh(float radius, float height, int segments);
// A cylinder along Y of the given radius and length, centred on the origin (a roller).
Mesh HorizontalCylinderMesh(float radius, float length, int segments);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_SAMPLE_PROJECT_H_
