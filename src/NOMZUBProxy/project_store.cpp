// Inserting projects row by row with portable statements.
#include "NOMZUBProxy/project_store.h"

#include <charconv>

namespace nomzub::proxy {
namespace {

template <typename Number>
std::string Text(Number v) {
  char text[32];
  auto [end, ec] = std::to_chars(text, text + sizeof text, v);
  return std::string(text, end);
}

template <typename Number>
std::string Join(const std::vector<Number>& values) {
  std::string out;
  for (Number v : values) {
    if (!out.empty()) out += ' ';
    out += Text(v);
  }
  return out;
}

// Runs statements, stopping at the first failure.
class Writer {
 public:
  Writer(PlanningDb& db, std::string* error) : db_(db), error_(error) {}
  bool Run(const std::string& sql, const std::vector<std::string>& params) {
    if (failed_ || db_.Run(sql, params, nullptr)) return !failed_;
    failed_ = true;
    *error_ = db_.error();
    return false;
  }
  void Instance(const std::string& project, const std::string& parent, const Instance& i) {
    const Placement& at = i.placement;
    Run("INSERT INTO instances (project, parent, product, ident, name, seq, x, y, z, rz)"
        " VALUES (?, NULLIF(?, ''), ?, ?, ?, ?, ?, ?, ?, ?)",
        {project, parent, i.product, i.ident, i.name, Text(i.seq), Text(at.x), Text(at.y),
         Text(at.z), Text(at.rz)});
  }
  bool ok() const { return !failed_; }

 private:
  PlanningDb& db_;
  std::string* error_;
  bool failed_ = false;
};

}  // namespace

bool StoreProject(PlanningDb& db, const Project& project, const std::string& description,
                  std::string* error) {
  Writer w(db, error);
  const std::string& name = project.name;
  for (const char* table : {"sim_positions", "states", "process_idents", "operations", "instances",
                            "products", "meshes", "projects"}) {
    w.Run(std::string("DELETE FROM ") + table +
              (std::string(table) == "projects" ? " WHERE name = ?" : " WHERE project = ?"),
          {name});
  }
  w.Run("INSERT INTO projects (name, description) VALUES (?, ?)", {name, description});
  for (const auto& [oid, mesh] : project.meshes) {
    w.Run("INSERT INTO meshes (project, oid, positions, indices) VALUES (?, ?, ?, ?)",
          {name, oid, Join(mesh.positions), Join(mesh.indices)});
  }
  for (const auto& [oid, product] : project.products) {
    w.Run(
        "INSERT INTO products (project, oid, name, kind, mesh) VALUES (?, ?, ?, ?, NULLIF(?, ''))",
        {name, oid, product.name, product.kind, product.mesh});
    for (const Instance& child : product.children) w.Instance(name, oid, child);
  }
  for (const Instance& root : project.roots) w.Instance(name, "", root);
  for (const Operation& op : project.operations) {
    w.Run("INSERT INTO operations (project, oid, ident, name, seq) VALUES (?, ?, ?, ?, ?)",
          {name, op.oid, op.ident, op.name, Text(op.seq)});
  }
  for (const View& v : project.views) {
    w.Run(
        "INSERT INTO process_idents (project, ident, operation, name, seq, eye_x, eye_y, eye_z,"
        " target_x, target_y, target_z) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
        {name, v.ident, v.operation, v.name, Text(v.seq), Text(v.eye[0]), Text(v.eye[1]),
         Text(v.eye[2]), Text(v.target[0]), Text(v.target[1]), Text(v.target[2])});
  }
  for (const State& s : project.states) {
    w.Run("INSERT INTO states (project, operation, target, visible, seq) VALUES (?, ?, ?, ?, ?)",
          {name, s.operation, s.target, s.visible ? "1" : "0", Text(s.seq)});
  }
  for (const SimPosition& s : project.positions) {
    const Placement& at = s.placement;
    w.Run(
        "INSERT INTO sim_positions (project, operation, target, seq, x, y, z, rz)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
        {name, s.operation, s.target, Text(s.seq), Text(at.x), Text(at.y), Text(at.z),
         Text(at.rz)});
  }
  return w.ok();
}

}  // namespace nomzub::proxy
