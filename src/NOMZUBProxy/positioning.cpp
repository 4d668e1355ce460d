// Editing the main document of the last generated package with pugixml.
#include "NOMZUBProxy/positioning.h"

#include <algorithm>
#include <functional>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "NOMZUBProxy/package_writer.h"
#include "NOMZUBProxy/session.h"
#include "platform/env.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"

namespace nomzub::proxy {
namespace {

// Whether the package holds an object at ident path "List/entry/child/...": the main document
// lists the entry, and the rest of the path follows the product structure under it.
bool InPackage(const Project& project, const pugi::xml_node& main_root, const std::string& path) {
  std::vector<std::string> parts;
  std::istringstream in(path);
  for (std::string part; std::getline(in, part, '/');) parts.push_back(part);
  if (parts.size() < 2) return false;
  pugi::xml_node entry =
      main_root.find_child_by_attribute("CLitAssyGroup", "Ident", parts[0].c_str())
          .find_child_by_attribute("CLitAssyGroup", "Ident", parts[1].c_str());
  auto product = project.products.find(entry.attribute("OID").value());
  for (size_t i = 2; i < parts.size() && product != project.products.end(); ++i) {
    const std::vector<Instance>& children = product->second.children;
    auto child = std::find_if(children.begin(), children.end(),
                              [&](const Instance& c) { return c.ident == parts[i]; });
    product =
        child == children.end() ? project.products.end() : project.products.find(child->product);
  }
  return product != project.products.end();
}

// Edits the registered main document; edit returns how many items it applied.
using Edit = std::function<size_t(const Project&, pugi::xml_node main_root)>;

HRESULT EditMainDocument(const std::string& what, const Edit& edit) {
  auto fail = [&](const std::string& cause) {
    nomzub::LogServiceError("cannot apply " + what + ": " + cause);
    return E_FAIL;
  };
  std::string why;
  const Project* project = LoadedProject(&why);
  if (project == nullptr) return fail(why);
  NOMZUBVGXGen package;
  NOMZUBVgxXmlFile* main = package.GetMainVgxXmlFile();
  if (main == nullptr) return fail("no package has been generated");
  std::string path, text;
  main->GetFilePath(path);
  nomplat::Env* env = nomplat::CurrentEnv();
  if (DWORD code = env->ReadFile(path, &text)) {
    return fail("cannot read " + path + " (error " + std::to_string(code) + ")");
  }
  pugi::xml_document doc;
  pugi::xml_parse_result parsed =
      doc.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_declaration);
  if (!parsed) return fail(path + " is not an XML document: " + parsed.description());
  if (edit(*project, doc.document_element()) == 0) {
    return fail("project '" + project->name + "' has no " + what + " for the objects of " + path);
  }
  std::ostringstream out;
  doc.save(out, "  ", pugi::format_default | pugi::format_no_declaration);
  if (DWORD code = env->WriteFileAtomic(path, out.str())) {
    return fail("cannot write " + path + " (error " + std::to_string(code) + ")");
  }
  return S_OK;
}

}  // namespace

HRESULT ApplyStatesToPackage() {
  return EditMainDocument("3D states", [](const Project& project, pugi::xml_node root) {
    pugi::xml_node process = root.child("Process");
    for (pugi::xml_node op : process.children("Operation")) {
      while (pugi::xml_node old = op.child("State")) op.remove_child(old);
    }
    size_t applied = 0;
    for (const State& state : project.states) {
      pugi::xml_node op =
          process.find_child_by_attribute("Operation", "OID", state.operation.c_str());
      if (!op || !InPackage(project, root, state.target)) continue;
      pugi::xml_node element = op.append_child("State");
      element.append_attribute("Target") = state.target.c_str();
      element.append_attribute("Visible") = state.visible ? "true" : "false";
      ++applied;
    }
    return applied;
  });
}

HRESULT ApplyPositionsToPackage() {
  return EditMainDocument("simulation positions", [](const Project& project, pugi::xml_node root) {
    root.remove_child("SimulationPositions");
    pugi::xml_node group = root.append_child("SimulationPositions");
    size_t applied = 0;
    for (const SimPosition& position : project.positions) {
      if (!InPackage(project, root, position.target)) continue;
      pugi::xml_node element = group.append_child("Position");
      element.append_attribute("Operation") = position.operation.c_str();
      element.append_attribute("Target") = position.target.c_str();
      element.append_attribute("Placement") = PlacementText(position.placement).c_str();
      ++applied;
    }
    return applied;
  });
}

}  // namespace nomzub::proxy
