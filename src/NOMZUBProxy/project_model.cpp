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

}  // namespace nomzub::proxy
