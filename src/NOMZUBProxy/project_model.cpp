// Reading and checking a planning project.
#include "NOMZUBProxy/project_model.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <map>
#include <set>
#include <type_traits>

namespace nomzub::proxy {

const char* const kListIdents[4] = {"ProductList", "ResourceList", "ManufProd", "PlanningContext"};

const char* ListIdentOfKind(const std::string& kind) {
  if (kind == "resource") return kListIdents[1];
  if (kind == "manufactured") return kListIdents[2];
  if (kind == "context") return kListIdents[3];
  return kListIdents[0];
}

namespace {

// Collects the first problem found while reading rows.
class Checker {
 public:
  explicit Checker(std::string* error) : error_(error) {}
  bool ok() const { return error_->empty(); }
  void Fail(const std::string& text) {
    if (ok()) *error_ = text;
  }
  template <typename Number>
  Number Parse(const std::string& text, const std::string& what) {
    Number value{};
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    bool finite = true;
    if constexpr (std::is_floating_point_v<Number>) finite = std::isfinite(value);
    if (ec != std::errc() || end != text.data() + text.size() || !finite) {
      Fail(what + ": '" + text + "' is not a number");
    }
    return value;
  }
  void CheckOid(const std::string& oid, const std::string& what) {
    bool usable =
        !oid.empty() && oid != "." && oid != ".." &&
        std::all_of(oid.begin(), oid.end(), [](char c) {
          return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-';
        });
    if (!usable) Fail(what + " OID '" + oid + "' is not usable as a file name (A-Z a-z 0-9 . _ -)");
  }
  void CheckIdent(const std::string& ident, const std::string& what) {
    if (ident.empty() || ident.find_first_of("/#") != std::string::npos) {
      Fail(what + " ident '" + ident + "' is empty or holds '/' or '#'");
    }
  }

 private:
  std::string* error_;
};

Placement ParsePlacement(Checker& check, const std::vector<std::string>& row, size_t first,
                         const std::string& what) {
  Placement p;
  p.x = check.Parse<double>(row[first], what);
  p.y = check.Parse<double>(row[first + 1], what);
  p.z = check.Parse<double>(row[first + 2], what);
  p.rz = check.Parse<double>(row[first + 3], what);
  return p;
}

template <typename Number>
std::vector<Number> ParseList(Checker& check, const std::string& text, const std::string& what) {
  std::vector<Number> values;
  size_t pos = 0;
  while ((pos = text.find_first_not_of(" \t\n", pos)) != std::string::npos) {
    size_t end = text.find_first_of(" \t\n", pos);
    if (end == std::string::npos) end = text.size();
    values.push_back(check.Parse<Number>(text.substr(pos, end - pos), what));
    pos = end;
  }
  return values;
}

Mesh ParseMesh(Checker& check, const std::vector<std::string>& row) {
  std::string what = "mesh " + row[0];
  Mesh mesh{ParseList<float>(check, row[1], what), ParseList<uint32_t>(check, row[2], what)};
  size_t vertices = mesh.positions.size() / 3;
  if (mesh.positions.size() % 3 != 0 || mesh.indices.size() % 3 != 0) {
    check.Fail(what + ": positions and indices must come in threes");
  } else if (std::any_of(mesh.indices.begin(), mesh.indices.end(),
                         [&](uint32_t i) { return i >= vertices; })) {
    check.Fail(what + ": an index points past the last vertex");
  }
  return mesh;
}

template <typename T>
void SortBySeq(std::vector<T>& items) {
  std::stable_sort(items.begin(), items.end(),
                   [](const T& a, const T& b) { return a.seq < b.seq; });
}

// "A > B > C > A" for the products of a cycle from first to last; a long cycle shows its first
// and last products and how many it holds.
template <typename Iterator>
std::string CycleText(Iterator first, Iterator last) {
  constexpr size_t kShown = 8;
  const size_t count = static_cast<size_t>(last - first);
  std::string text;
  for (Iterator it = first; it != last; ++it) {
    size_t index = static_cast<size_t>(it - first);
    if (count > kShown && index == kShown / 2) text += " > ...";
    if (count > kShown && index >= kShown / 2 && index < count - kShown / 2) continue;
    text += (text.empty() ? "" : " > ") + it->product->oid;
  }
  text += " > " + first->product->oid;
  if (count > kShown) text += ", a cycle of " + std::to_string(count) + " products";
  return text;
}

// Walks every product structure depth first with an explicit stack, so that no structure, however
// deep, deepens the call stack. Fails at the first cycle, naming the products around it, and at
// the first product whose structure holds more than kMaxStructureDepth levels.
void CheckStructures(Checker& check, const Project& project) {
  enum class Mark { kNew, kOnPath, kDone };
  std::map<std::string, Mark> marks;
  std::map<std::string, size_t> levels;  // of each product whose walk is done
  struct Step {
    const Product* product;
    size_t next_child;
    size_t levels;  // the deepest structure below it seen so far, itself included
  };
  std::vector<Step> path;
  for (const auto& [top_oid, top] : project.products) {
    if (marks[top_oid] != Mark::kNew) continue;
    marks[top_oid] = Mark::kOnPath;
    path.push_back({&top, 0, 1});
    while (!path.empty()) {
      Step& step = path.back();
      if (step.next_child == step.product->children.size()) {
        size_t done_levels = step.levels;
        const std::string& oid = step.product->oid;
        marks[oid] = Mark::kDone;
        levels[oid] = done_levels;
        if (done_levels > kMaxStructureDepth) {
          check.Fail("the structure of product " + oid + " is deeper than " +
                     std::to_string(kMaxStructureDepth) + " levels (the limit)");
          return;
        }
        path.pop_back();
        if (!path.empty()) path.back().levels = std::max(path.back().levels, done_levels + 1);
        continue;
      }
      const std::string& child = step.product->children[step.next_child++].product;
      Mark& mark = marks[child];
      if (mark == Mark::kDone) {
        step.levels = std::max(step.levels, levels[child] + 1);
      } else if (mark == Mark::kOnPath) {
        auto from = std::find_if(path.begin(), path.end(),
                                 [&](const Step& s) { return s.product->oid == child; });
        check.Fail("the structure of product " + child + " contains itself (" +
                   CycleText(from, path.end()) + ")");
        return;
      } else {
        mark = Mark::kOnPath;
        path.push_back({&project.products.at(child), 0, 1});
      }
    }
  }
}

void CheckSiblings(Checker& check, const std::vector<Instance>& siblings,
                   const std::string& where) {
  std::set<std::string> idents;
  for (const Instance& i : siblings) {
    check.CheckIdent(i.ident, "instance in " + where);
    if (!idents.insert(i.ident).second) check.Fail("ident '" + i.ident + "' repeats in " + where);
  }
}

bool Query(PlanningDb& db, const std::string& sql, const std::string& project, Rows* rows,
           std::string* error) {
  if (db.Run(sql, {project}, rows)) return true;
  *error = "cannot read project '" + project + "': " + db.error();
  return false;
}

}  // namespace

bool ProjectExists(PlanningDb& db, const std::string& name, bool* exists, std::string* error) {
  Rows rows;
  if (!Query(db, "SELECT name FROM projects WHERE name = ?", name, &rows, error)) return false;
  *exists = !rows.empty();
  return true;
}

bool LoadProject(PlanningDb& db, const std::string& name, Project* project, std::string* error) {
  Rows products, instances, meshes, operations, views, states, positions;
  if (!Query(db, "SELECT oid, name, kind, mesh FROM products WHERE project = ?", name, &products,
             error) ||
      !Query(db,
             "SELECT parent, product, ident, name, seq, x, y, z, rz FROM instances"
             " WHERE project = ?",
             name, &instances, error) ||
      !Query(db, "SELECT oid, positions, indices FROM meshes WHERE project = ?", name, &meshes,
             error) ||
      !Query(db, "SELECT oid, ident, name, seq FROM operations WHERE project = ?", name,
             &operations, error) ||
      !Query(db,
             "SELECT ident, operation, name, seq, eye_x, eye_y, eye_z, target_x, target_y,"
             " target_z FROM process_idents WHERE project = ?",
             name, &views, error) ||
      !Query(db, "SELECT operation, target, visible, seq FROM states WHERE project = ?", name,
             &states, error) ||
      !Query(db, "SELECT operation, target, seq, x, y, z, rz FROM sim_positions WHERE project = ?",
             name, &positions, error)) {
    return false;
  }
  error->clear();
  Checker check(error);
  Project p;
  p.name = name;
  for (auto& row : meshes) p.meshes[row[0]] = ParseMesh(check, row);
  for (auto& row : products) {
    check.CheckOid(row[0], "product");
    if (!row[3].empty() && !p.meshes.count(row[3])) {
      check.Fail("product " + row[0] + " uses unknown mesh " + row[3]);
    }
    p.products[row[0]] = Product{row[0], row[1], row[2], row[3], {}};
  }
  for (auto& row : instances) {
    std::string what = "instance " + row[2];
    Instance i{row[2], row[3], row[1], ParsePlacement(check, row, 5, what),
               check.Parse<int>(row[4], what)};
    if (!p.products.count(i.product)) check.Fail(what + " uses unknown product " + i.product);
    if (row[0].empty()) {
      p.roots.push_back(std::move(i));
    } else if (p.products.count(row[0])) {
      p.products[row[0]].children.push_back(std::move(i));
    } else {
      check.Fail(what + " lies in unknown product " + row[0]);
    }
  }
  for (auto& row : operations) {
    check.CheckOid(row[0], "operation");
    check.CheckIdent(row[1], "operation");
    p.operations.push_back(
        {row[0], row[1], row[2], check.Parse<int>(row[3], "operation " + row[0])});
  }
  std::set<std::string> operation_oids;
  for (const Operation& o : p.operations) operation_oids.insert(o.oid);
  auto check_operation = [&](const std::string& oid, const std::string& what) {
    if (!operation_oids.count(oid)) check.Fail(what + " refers to unknown operation " + oid);
  };
  for (auto& row : views) {
    std::string what = "process ident " + row[0];
    check_operation(row[1], what);
    View v{row[0], row[1], row[2], {}, {}, check.Parse<int>(row[3], what)};
    for (int axis = 0; axis < 3; ++axis) {
      v.eye[axis] = check.Parse<double>(row[4 + axis], what);
      v.target[axis] = check.Parse<double>(row[7 + axis], what);
    }
    p.views.push_back(std::move(v));
  }
  for (auto& row : states) {
    std::string what = "state of " + row[1];
    check_operation(row[0], what);
    p.states.push_back(
        {row[0], row[1], check.Parse<int>(row[2], what) != 0, check.Parse<int>(row[3], what)});
  }
  for (auto& row : positions) {
    std::string what = "simulation position of " + row[1];
    check_operation(row[0], what);
    p.positions.push_back(
        {row[0], row[1], ParsePlacement(check, row, 3, what), check.Parse<int>(row[2], what)});
  }
  SortBySeq(p.roots);
  SortBySeq(p.operations);
  SortBySeq(p.views);
  SortBySeq(p.states);
  SortBySeq(p.positions);
  CheckSiblings(check, p.roots, "the package's lists");
  for (auto& [oid, product] : p.products) {
    SortBySeq(product.children);
    CheckSiblings(check, product.children, "product " + oid);
  }
  if (check.ok()) CheckStructures(check, p);
  if (!check.ok()) {
    *error = "project '" + name + "' holds bad data: " + *error;
    return false;
  }
  *project = std::move(p);
  return true;
}

namespace {

// The lower-case words of text (runs of letters and digits), each without a final "s".
std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  for (size_t i = 0; i <= text.size(); ++i) {
    unsigned char c = i < text.size() ? static_cast<unsigned char>(text[i]) : ' ';
    if (std::isalnum(c)) {
      word += static_cast<char>(std::tolower(c));
    } else if (!word.empty()) {
      if (word.size() > 1 && word.back() == 's') word.pop_back();
      words.push_back(std::move(word));
      word.clear();
    }
  }
  return words;
}

// A 3x4 transform: rotation about Z by rz degrees, then translation.
struct Transform {
  double c = 1, s = 0, t[3] = {0, 0, 0};
  void Apply(const double in[3], double out[3]) const {
    out[0] = c * in[0] - s * in[1] + t[0];
    out[1] = s * in[0] + c * in[1] + t[1];
    out[2] = in[2] + t[2];
  }
  // The transform of a child placed at p inside this one.
  Transform Then(const Placement& p) const {
    constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180;
    Transform child;
    double pc = std::cos(p.rz * kRadiansPerDegree), ps = std::sin(p.rz * kRadiansPerDegree);
    child.c = c * pc - s * ps;
    child.s = s * pc + c * ps;
    double at[3] = {p.x, p.y, p.z};
    Apply(at, child.t);
    return child;
  }
};

}  // namespace

ProductClass ClassOf(const Product& product) {
  if (product.kind == "resource") return ProductClass::kResource;
  if (product.kind == "context") return ProductClass::kContext;
  if (product.kind == "manufactured") return ProductClass::kPart;
  static const std::pair<ProductClass, std::vector<std::string>> kRules[] = {
      {ProductClass::kStructure, {"station", "table", "frame", "leg", "top", "line"}},
      {ProductClass::kConveyor, {"conveyor", "roller"}},
      {ProductClass::kFixture, {"fixture", "clamp"}},
      {ProductClass::kFastener, {"bolt", "screw", "nut", "washer"}}};
  const std::vector<std::string> words = Words(product.name);
  for (const auto& [product_class, keys] : kRules) {
    for (const std::string& key : keys) {
      if (std::find(words.begin(), words.end(), key) != words.end()) return product_class;
    }
  }
  return ProductClass::kPart;
}

Appearance AppearanceOf(const Product& product, int part_number) {
  switch (ClassOf(product)) {
    case ProductClass::kStructure:
      return {"structure", {0.30f, 0.40f, 0.52f, 1}, 0.1f, 0.6f};
    case ProductClass::kConveyor:
      return {"conveyor", {0.70f, 0.72f, 0.75f, 1}, 0.5f, 0.35f};
    case ProductClass::kFixture:
      return {"fixture", {0.95f, 0.42f, 0.08f, 1}, 0.1f, 0.5f};
    case ProductClass::kFastener:
      return {"fastener", {0.80f, 0.80f, 0.78f, 1}, 0.5f, 0.3f};
    case ProductClass::kResource:
      return {"resource", {0.96f, 0.74f, 0.10f, 1}, 0.2f, 0.45f};
    case ProductClass::kContext:
      return {"context", {0.62f, 0.62f, 0.60f, 1}, 0.0f, 0.95f};
    case ProductClass::kPart:
      break;
  }
  static const float kParts[kPartColours][3] = {{0.16f, 0.42f, 0.72f},
                                                {0.20f, 0.58f, 0.32f},
                                                {0.72f, 0.18f, 0.18f},
                                                {0.50f, 0.32f, 0.66f},
                                                {0.12f, 0.60f, 0.62f}};
  const int n = (part_number % kPartColours + kPartColours) % kPartColours;
  return {"part." + std::to_string(n), {kParts[n][0], kParts[n][1], kParts[n][2], 1}, 0.3f, 0.5f};
}

std::map<std::string, int> PartNumbers(const Project& project) {
  std::map<std::string, int> numbers;
  for (const auto& [oid, product] : project.products) {  // in OID order
    if (!product.mesh.empty() && ClassOf(product) == ProductClass::kPart) {
      numbers.emplace(oid, static_cast<int>(numbers.size()));
    }
  }
  return numbers;
}

bool PlacedBounds(const Project& project, const std::string& identPath, double min[3],
                  double max[3]) {
  // Finds the object: the list, then one ident per level.
  std::vector<std::string> idents;
  for (size_t from = 0;;) {
    size_t slash = identPath.find('/', from);
    idents.push_back(identPath.substr(from, slash - from));
    if (slash == std::string::npos) break;
    from = slash + 1;
  }
  if (idents.size() < 2) return false;
  const std::vector<Instance>* siblings = &project.roots;
  const Instance* object = nullptr;
  Transform placed;
  for (size_t level = 1; level < idents.size(); ++level) {
    auto it = std::find_if(siblings->begin(), siblings->end(),
                           [&](const Instance& i) { return i.ident == idents[level]; });
    if (it == siblings->end()) return false;
    auto product = project.products.find(it->product);
    if (product == project.products.end()) return false;
    if (level == 1 && idents[0] != ListIdentOfKind(product->second.kind)) return false;
    object = &*it;
    placed = placed.Then(it->placement);
    siblings = &product->second.children;
  }
  // Walks the structure below it with an explicit stack, widening the bounds by every vertex.
  bool found = false;
  std::vector<std::pair<const Product*, Transform>> stack = {
      {&project.products.at(object->product), placed}};
  while (!stack.empty()) {
    auto [product, transform] = stack.back();
    stack.pop_back();
    auto mesh = project.meshes.find(product->mesh);
    if (mesh != project.meshes.end()) {
      const std::vector<float>& p = mesh->second.positions;
      for (size_t i = 0; i + 2 < p.size(); i += 3) {
        double local[3] = {p[i], p[i + 1], p[i + 2]}, world[3];
        transform.Apply(local, world);
        for (int k = 0; k < 3; ++k) {
          min[k] = found ? std::min(min[k], world[k]) : world[k];
          max[k] = found ? std::max(max[k], world[k]) : world[k];
        }
        found = true;
      }
    }
    for (const Instance& child : product->children) {
      auto next = project.products.find(child.product);
      if (next != project.products.end()) {
        stack.emplace_back(&next->second, transform.Then(child.placement));
      }
    }
  }
  return found;
}

}  // namespace nomzub::proxy
