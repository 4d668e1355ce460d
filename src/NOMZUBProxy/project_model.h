// A planning project as loaded from the database: read once when the project is selected, then
// used by the generator and the positioning commands without further queries.
#ifndef NOM_NOMZUBPROXY_PROJECT_MODEL_H_
#define NOM_NOMZUBPROXY_PROJECT_MODEL_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "NOMZUBProxy/planning_db.h"

namespace nomzub::proxy {

// Where an instance sits in its parent: translation and a rotation about Z in degrees.
struct Placement {
  double x = 0, y = 0, z = 0, rz = 0;
};

// A triangle mesh: three coordinates per vertex, three vertex indices per triangle.
struct Mesh {
  std::vector<float> positions;
  std::vector<uint32_t> indices;
};

// One use of a product inside a parent product, or a top-level entry of the package.
struct Instance {
  std::string ident;  // unique among its siblings; one component of an ident path
  std::string name;
  std::string product;  // OID of the product it is an instance of
  Placement placement;
  int seq = 0;  // order among the siblings
};

// A product reference: one product document of the package. kind is "product", "resource",
// "manufactured" or "context" and decides the list a top-level instance of it appears in.
struct Product {
  std::string oid;
  std::string name;
  std::string kind;
  std::string mesh;                // OID of its mesh; "" for none
  std::vector<Instance> children;  // ordered by seq
};

struct Operation {
  std::string oid;
  std::string ident;
  std::string name;
  int seq = 0;
};

// A process ident: a named view of an operation, with its camera.
struct View {
  std::string ident;
  std::string operation;
  std::string name;
  double eye[3] = {};
  double target[3] = {};
  int seq = 0;
};

// The visibility of the object at an ident path during an operation.
struct State {
  std::string operation;
  std::string target;
  bool visible = true;
  int seq = 0;
};

// Where the object at an ident path stands during an operation's simulation.
struct SimPosition {
  std::string operation;
  std::string target;
  Placement placement;
  int seq = 0;
};

struct Project {
  std::string name;
  std::map<std::string, Product> products;  // by OID
  std::map<std::string, Mesh> meshes;       // by OID
  std::vector<Instance> roots;              // the top-level entries, ordered by seq
  std::vector<Operation> operations;        // ordered by seq
  std::vector<View> views;                  // ordered by seq
  std::vector<State> states;                // ordered by seq
  std::vector<SimPosition> positions;       // ordered by seq
};

// The most levels a product structure may hold, the product itself included: deeper structures
// are refused when the project is loaded. Every object's ident path names one ident per level,
// and the identifier cache holds the path of every object, so the paths of a structure n levels
// deep take room in proportion to n * n.
constexpr size_t kMaxStructureDepth = 1000;

// Whether the database knows a project of that name; false with *error on a query failure.
bool ProjectExists(PlanningDb& db, const std::string& name, bool* exists, std::string* error);

// Reads the whole project with one query per table and checks it: every reference resolves,
// product structures hold no cycle (the products around it are named) and no more than
// kMaxStructureDepth levels, idents are usable in ident paths ("/" separates components
// and "#" separates paths, so neither may appear), OIDs are usable as file names, meshes parse.
// False with the first problem in *error.
bool LoadProject(PlanningDb& db, const std::string& name, Project* project, std::string* error);

// The list a top-level instance of a product of that kind belongs to: "ProductList",
// "ResourceList", "ManufProd" or "PlanningContext".
const char* ListIdentOfKind(const std::string& kind);

// The four lists, in package order.
extern const char* const kListIdents[4];

// How a product looks: a material name and its metallic-roughness parameters (colour as linear
// RGBA, each 0 to 1).
struct Appearance {
  std::string name;
  float base_colour[4] = {1, 1, 1, 1};
  float metallic = 0;
  float roughness = 1;
};

// The classes products are coloured by.
enum class ProductClass { kStructure, kConveyor, kFixture, kFastener, kPart, kResource, kContext };

// The class of product. Resources, the planning context and manufactured products are classed
// by kind; other products by the words of their name:
// "station", "table", "frame", "leg", "top" and "line" make structure; "conveyor" and "roller"
// conveyor; "fixture" and "clamp" fixture; "bolt", "screw", "nut" and "washer" fastener (a
// word may end in "s"; the first rule that matches wins, in that order); anything else is a
// part. Never fails.
ProductClass ClassOf(const Product& product);

// How many colours parts take turns with.
constexpr int kPartColours = 5;

// The appearance of product: one per class (structure grey-blue, conveyor steel, fixture orange,
// fastener zinc, resource yellow, context concrete grey); a part takes colour part_number modulo
// kPartColours. Named after the class ("part.<n>" for part colour n). Never fails.
Appearance AppearanceOf(const Product& product, int part_number);

// The part number of every product of the part class that has a mesh, counting from 0 in OID
// order, so that the parts of a project take the part colours in turn; empty for a project
// without parts.
std::map<std::string, int> PartNumbers(const Project& project);

// The bounds, in the package's coordinates, of the geometry of the object at identPath
// ("<list>/<ident>/<ident>..."), its structure included, placed as the product structure places
// it (simulation positions left out): true with *min and *max filled; false when no object has
// that path or no mesh lies below it.
bool PlacedBounds(const Project& project, const std::string& identPath, double min[3],
                  double max[3]);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PROJECT_MODEL_H_
