// Building the sample and synthetic projects in memory; project_store writes them.
#include "NOMZUBProxy/sample_project.h"

#include <algorithm>
#include <cmath>

#include "NOMZUBProxy/planning_admin.h"

namespace nomzub::proxy {

Mesh BoxMesh(float sx, float sy, float sz) {
  Mesh mesh;
  for (int corner = 0; corner < 8; ++corner) {
    mesh.positions.push_back((corner & 1 ? 0.5f : -0.5f) * sx);
    mesh.positions.push_back((corner & 2 ? 0.5f : -0.5f) * sy);
    mesh.positions.push_back(corner & 4 ? sz : 0.0f);
  }
  // Two counter-clockwise triangles per face, seen from outside.
  mesh.indices = {0, 2, 1, 1, 2, 3, 4, 5, 6, 5, 7, 6, 0, 1, 4, 1, 5, 4,
                  2, 6, 3, 3, 6, 7, 0, 4, 2, 2, 4, 6, 1, 3, 5, 3, 7, 5};
  return mesh;
}

Mesh CylinderMesh(float radius, float height, int segments) {
  Mesh mesh;
  constexpr float kTwoPi = 6.28318530717958647692f;
  for (int i = 0; i < segments; ++i) {
    float x = radius * std::cos(kTwoPi * i / segments);
    float y = radius * std::sin(kTwoPi * i / segments);
    mesh.positions.insert(mesh.positions.end(), {x, y, 0.0f, x, y, height});
  }
  uint32_t bottom = 2 * segments, top = bottom + 1;
  mesh.positions.insert(mesh.positions.end(), {0, 0, 0, 0, 0, height});
  for (uint32_t i = 0; i < static_cast<uint32_t>(segments); ++i) {
    uint32_t a = 2 * i, b = 2 * ((i + 1) % segments);
    mesh.indices.insert(mesh.indices.end(),
                        {a, b, a + 1, a + 1, b, b + 1, bottom, b, a, top, a + 1, b + 1});
  }
  return mesh;
}

Mesh HorizontalCylinderMesh(float radius, float length, int segments) {
  Mesh mesh = CylinderMesh(radius, length, segments);
  // A quarter turn about X, (x, y, z) -> (x, z, -y), keeps the faces' winding; then the centre
  // moves to the origin.
  for (size_t i = 0; i < mesh.positions.size(); i += 3) {
    float y = mesh.positions[i + 1], z = mesh.positions[i + 2];
    mesh.positions[i + 1] = z - length / 2;
    mesh.positions[i + 2] = -y;
  }
  return mesh;
}

namespace {

void AddProduct(Project& p, const std::string& oid, const std::string& name,
                const std::string& kind, const std::string& mesh) {
  p.products[oid] = Product{oid, name, kind, mesh, {}};
}

void AddChild(Project& p, const std::string& parent, const std::string& ident,
              const std::string& product, Placement at) {
  std::vector<Instance>& children = p.products[parent].children;
  children.push_back(
      {ident, p.products[product].name, product, at, static_cast<int>(children.size())});
}

void AddRoot(Project& p, const std::string& ident, const std::string& name,
             const std::string& product, Placement at) {
  p.roots.push_back({ident, name, product, at, static_cast<int>(p.roots.size())});
}

// a rounded to a tenth of a millimetre, so that the view file shows short numbers.
double Round(double a) { return std::round(a * 1e4) / 1e4; }

// The gearbox assembly process: six operations with ten views between them. Each view aims at the
// placed centre of its subject (an ident path) and looks at it from the direction given (from
// the target towards the eye), far enough back for the whole subject to fit a 45 degree field of
// view; a view of a subject without geometry aims at the origin.
void AddProcess(Project& p, const char* const subjects[10]) {
  const char* const ops[6][2] = {{"Op010", "Place housing"},   {"Op020", "Insert shaft"},
                                 {"Op030", "Mount cover"},     {"Op040", "Drive screws"},
                                 {"Op050", "Inspect gearbox"}, {"Op060", "Unload gearbox"}};
  for (int i = 0; i < 6; ++i) {
    p.operations.push_back({"OP-0" + std::to_string(i + 1) + "0", ops[i][0], ops[i][1], i});
  }
  const char* const views[10] = {
      "Overview",   "Housing close-up", "Shaft insertion", "Shaft from above", "Cover placement",
      "Cover side", "Screwing",         "Screw detail",    "Inspection",       "Unloading"};
  const int view_operation[10] = {0, 0, 1, 1, 2, 2, 3, 3, 4, 5};
  const double directions[10][3] = {{0.3, -1, 0.6}, {1, -1, 0.8},  {1, -0.6, 0.5}, {0.15, -0.25, 1},
                                    {1, -1, 0.9},   {0, -1, 0.2},  {0.8, -1, 1},   {0.5, -1, 0.7},
                                    {-1, -1, 0.8},  {1, -1.5, 0.6}};
  for (int i = 0; i < 10; ++i) {
    View v{"V" + std::string(i < 9 ? "0" : "") + std::to_string(i + 1),
           p.operations[view_operation[i]].oid,
           views[i],
           {},
           {},
           i};
    double min[3] = {0, 0, 0}, max[3] = {0, 0, 0};
    PlacedBounds(p, subjects[i], min, max);
    const double* d = directions[i];
    double radius = 0, length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    for (int k = 0; k < 3; ++k) radius += (max[k] - min[k]) * (max[k] - min[k]) / 4;
    // A sphere of that radius fills a 45 degree view from 2.6 radii away; a little more leaves a
    // margin, and small subjects are not looked at from closer than 15 cm.
    const double distance = std::max(0.15, 2.8 * std::sqrt(radius));
    for (int k = 0; k < 3; ++k) {
      v.target[k] = Round((min[k] + max[k]) / 2);
      v.eye[k] = Round(v.target[k] + distance * d[k] / length);
    }
    p.views.push_back(v);
  }
}

}  // namespace

Project BuildSampleProject() {
  Project p;
  p.name = kSampleProject;
  p.meshes = {{"G-LEG", BoxMesh(0.06f, 0.06f, 0.9f)},
              {"G-TOP", BoxMesh(1.2f, 0.8f, 0.04f)},
              {"G-BOLT", CylinderMesh(0.004f, 0.04f, 8)},
              {"G-CLAMP", BoxMesh(0.05f, 0.03f, 0.03f)},
              {"G-PLATE", BoxMesh(0.4f, 0.3f, 0.02f)},
              {"G-ROLLER", HorizontalCylinderMesh(0.03f, 0.6f, 12)},
              {"G-FRAME", BoxMesh(1.2f, 0.7f, 0.7f)},
              {"G-HOUSING", BoxMesh(0.3f, 0.2f, 0.15f)},
              {"G-SHAFT", CylinderMesh(0.02f, 0.35f, 12)},
              {"G-COVER", BoxMesh(0.3f, 0.2f, 0.02f)},
              {"G-SCREW", CylinderMesh(0.002f, 0.02f, 6)},
              {"G-ROBOT", CylinderMesh(0.15f, 1.2f, 16)},
              {"G-NUTRUNNER", CylinderMesh(0.03f, 0.3f, 12)},
              {"G-HOIST", BoxMesh(0.5f, 0.5f, 2.5f)},
              {"G-HALL", BoxMesh(20, 10, 0.05f)}};
  AddProduct(p, "P-LINE", "Assembly line", "product", "");
  AddProduct(p, "P-STATION", "Work station", "product", "");
  AddProduct(p, "P-TABLE", "Table", "product", "");
  AddProduct(p, "P-LEG", "Table leg", "product", "G-LEG");
  AddProduct(p, "P-TOP", "Table top", "product", "G-TOP");
  AddProduct(p, "P-FIXTURE", "Fixture", "product", "G-PLATE");
  AddProduct(p, "P-BOLT", "Bolt M8", "product", "G-BOLT");
  AddProduct(p, "P-CLAMP", "Clamp", "product", "G-CLAMP");
  AddProduct(p, "P-CONVEYOR", "Roller conveyor", "product", "");
  AddProduct(p, "P-ROLLER", "Roller", "product", "G-ROLLER");
  AddProduct(p, "P-FRAME", "Conveyor frame", "product", "G-FRAME");
  AddProduct(p, "P-HOUSING", "Gearbox housing", "product", "G-HOUSING");
  AddProduct(p, "P-SHAFT", "Drive shaft", "product", "G-SHAFT");
  AddProduct(p, "P-COVER", "Housing cover", "product", "G-COVER");
  AddProduct(p, "P-SCREW", "Screw M4", "product", "G-SCREW");
  AddProduct(p, "MP-GEARBOX", "Gearbox", "manufactured", "");
  AddProduct(p, "R-ROBOT", "Handling robot", "resource", "G-ROBOT");
  AddProduct(p, "R-NUTRUNNER", "Nutrunner", "resource", "G-NUTRUNNER");
  AddProduct(p, "R-HOIST", "Hoist", "resource", "G-HOIST");
  AddProduct(p, "C-HALL", "Assembly hall", "context", "G-HALL");

  for (int s = 0; s < 3; ++s) {
    AddChild(p, "P-LINE", "Station" + std::to_string(s + 1), "P-STATION", {2.5 * s, 0, 0, 0});
  }
  AddChild(p, "P-LINE", "Conveyor", "P-CONVEYOR", {2.5, -1.2, 0, 0});
  AddChild(p, "P-STATION", "Table", "P-TABLE", {});
  AddChild(p, "P-STATION", "Fixture", "P-FIXTURE", {0, 0, 0.94, 0});
  for (int l = 0; l < 4; ++l) {
    AddChild(p, "P-TABLE", "Leg." + std::to_string(l + 1), "P-LEG",
             {l & 1 ? 0.55 : -0.55, l & 2 ? 0.35 : -0.35, 0, 0});
  }
  AddChild(p, "P-TABLE", "Top", "P-TOP", {0, 0, 0.9, 0});
  for (int b = 0; b < 4; ++b) {
    AddChild(p, "P-FIXTURE", "Bolt." + std::to_string(b + 1), "P-BOLT",
             {b & 1 ? 0.18 : -0.18, b & 2 ? 0.13 : -0.13, 0.02, 0});
  }
  // The clamps hold the housing (0.3 m long) at its ends.
  AddChild(p, "P-FIXTURE", "Clamp.1", "P-CLAMP", {-0.175, 0, 0.02, 0});
  AddChild(p, "P-FIXTURE", "Clamp.2", "P-CLAMP", {0.175, 0, 0.02, 180});
  // A 1.2 m conveyor section: the frame stands on the floor, six rollers lie on it across the
  // line (their axis along Y) at a 0.2 m pitch.
  AddChild(p, "P-CONVEYOR", "Frame", "P-FRAME", {0, 0, 0, 0});
  for (int r = 0; r < 6; ++r) {
    AddChild(p, "P-CONVEYOR", "Roller." + std::to_string(r + 1), "P-ROLLER",
             {-0.5 + 0.2 * r, 0, 0.73, 0});
  }
  AddChild(p, "MP-GEARBOX", "Housing", "P-HOUSING", {});
  AddChild(p, "MP-GEARBOX", "Shaft", "P-SHAFT", {0, 0, 0.05, 0});
  AddChild(p, "MP-GEARBOX", "Cover", "P-COVER", {0, 0, 0.15, 0});
  for (int s = 0; s < 6; ++s) {
    AddChild(p, "MP-GEARBOX", "Screw." + std::to_string(s + 1), "P-SCREW",
             {-0.12 + 0.12 * (s % 3), s < 3 ? -0.08 : 0.08, 0.17, 0});
  }
  AddRoot(p, "Line", "Assembly line", "P-LINE", {});
  AddRoot(p, "Robot", "Handling robot", "R-ROBOT", {1, 1, 0, 0});
  AddRoot(p, "Nutrunner", "Nutrunner", "R-NUTRUNNER", {0.8, 0.6, 1.2, 0});
  AddRoot(p, "Hoist", "Hoist", "R-HOIST", {6, 1, 0, 0});
  AddRoot(p, "Gearbox", "Gearbox", "MP-GEARBOX", {0, 0, 0.96, 0});
  // The floor slab's top is the floor level, z = 0, and it is centred on the line.
  AddRoot(p, "Hall", "Assembly hall", "C-HALL", {2.5, 0, -0.05, 0});
  const char* const subjects[10] = {"ProductList/Line",        "ManufProd/Gearbox/Housing",
                                    "ManufProd/Gearbox/Shaft", "ManufProd/Gearbox/Shaft",
                                    "ManufProd/Gearbox/Cover", "ManufProd/Gearbox/Cover",
                                    "ManufProd/Gearbox",       "ManufProd/Gearbox/Screw.1",
                                    "ManufProd/Gearbox",       "ResourceList/Hoist"};
  AddProcess(p, subjects);

  const std::string gearbox = "ManufProd/Gearbox/";
  p.states = {{"OP-010", gearbox + "Housing", true, 0},
              {"OP-010", gearbox + "Shaft", false, 1},
              {"OP-010", gearbox + "Cover", false, 2},
              {"OP-020", gearbox + "Shaft", true, 3},
              {"OP-030", gearbox + "Cover", true, 4}};
  for (int s = 0; s < 6; ++s) {
    p.states.push_back({"OP-040", gearbox + "Screw." + std::to_string(s + 1), true, 5 + s});
  }
  // During OP-040 the nutrunner stands over the head of the first screw.
  p.positions = {{"OP-010", "ResourceList/Robot", {1, 1, 0, 0}, 0},
                 {"OP-020", "ResourceList/Robot", {1, 1, 0, 45}, 1},
                 {"OP-030", "ResourceList/Robot", {1, 1, 0, 90}, 2},
                 {"OP-040", "ResourceList/Nutrunner", {-0.12, -0.08, 1.16, 0}, 3},
                 {"OP-060", "ResourceList/Hoist", {5, 0, 0, 0}, 4},
                 {"OP-060", "ManufProd/Gearbox", {5, 0, 1.5, 0}, 5}};
  return p;
}

Project BuildSyntheticProject(const std::string& name, int productCount) {
  Project p;
  p.name = name;
  int cells = std::max(1, productCount / 100);
  int parts = std::max(1, productCount - cells - 2);
  AddProduct(p, "S-PLANT", "Plant", "product", "");
  AddProduct(p, "S-BOLT", "Bolt", "product", "G-BOLT");
  p.meshes["G-BOLT"] = CylinderMesh(0.004f, 0.04f, 8);
  for (int c = 0; c < cells; ++c) {
    std::string cell = "S-CELL-" + std::to_string(c);
    AddProduct(p, cell, "Cell " + std::to_string(c), "product", "");
    AddChild(p, "S-PLANT", "Cell" + std::to_string(c), cell, {3.0 * c, 0, 0, 0});
    for (int b = 0; b < 4; ++b) {
      AddChild(p, cell, "Bolt." + std::to_string(b + 1), "S-BOLT", {0.1 * b, 0, 0, 0});
    }
  }
  for (int i = 0; i < parts; ++i) {
    std::string oid = "S-PART-" + std::to_string(i), mesh = "G-PART-" + std::to_string(i);
    p.meshes[mesh] = BoxMesh(0.1f + 0.001f * (i % 100), 0.1f, 0.05f);
    AddProduct(p, oid, "Part " + std::to_string(i), "product", mesh);
    AddChild(p, "S-CELL-" + std::to_string(i % cells), "Part" + std::to_string(i), oid,
             {0.01 * i, 0.5, 0, 0});
  }
  AddRoot(p, "Plant", "Plant", "S-PLANT", {});
  const char* const subjects[10] = {"ProductList/Plant", "ProductList/Plant", "ProductList/Plant",
                                    "ProductList/Plant", "ProductList/Plant", "ProductList/Plant",
                                    "ProductList/Plant", "ProductList/Plant", "ProductList/Plant",
                                    "ProductList/Plant"};
  AddProcess(p, subjects);
  return p;
}

}  // namespace nomzub::proxy
