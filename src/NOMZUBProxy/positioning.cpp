// The positioning commands: the project's 3D states and simulation positions written into the
// main document of the last generated package through the DOM wrapper. The wrapper has no way to
// remove an element, so the elements an earlier application wrote are given the new values in
// place and more are appended as needed: applying the same data twice leaves the document as the
// first application wrote it.
#include "NOMZUBProxy/positioning.h"

#include <algorithm>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "NOMZUBProxy/document_edit.h"
#include "NOMZUBProxy/package_documents.h"
#include "NOMZUBProxy/session.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"

namespace nomzub::proxy {
namespace {

// The OIDs of the package's top-level entries, by "List/entry".
using EntryOids = std::map<std::string, std::string>;

EntryOids EntriesOf(DocumentEdit& doc) {
  EntryOids oids;
  for (const Node& list : doc.Children(doc.root(), "CLitAssyGroup")) {
    const std::string list_ident = doc.Attribute(list.get(), "Ident");
    for (const Node& entry : doc.Children(list.get(), "CLitAssyGroup")) {
      oids.emplace(list_ident + "/" + doc.Attribute(entry.get(), "Ident"),
                   doc.Attribute(entry.get(), "OID"));
    }
  }
  return oids;
}

// Whether the package holds an object at ident path "List/entry/child/...": the main document
// lists the entry, and the rest of the path follows the product structure under it.
bool InPackage(const Project& project, const EntryOids& entries, const std::string& path) {
  std::vector<std::string> parts;
  std::istringstream in(path);
  for (std::string part; std::getline(in, part, '/');) parts.push_back(part);
  if (parts.size() < 2) return false;
  auto entry = entries.find(parts[0] + "/" + parts[1]);
  if (entry == entries.end()) return false;
  auto product = project.products.find(entry->second);
  for (size_t i = 2; i < parts.size() && product != project.products.end(); ++i) {
    const std::vector<Instance>& children = product->second.children;
    auto child = std::find_if(children.begin(), children.end(),
                              [&](const Instance& c) { return c.ident == parts[i]; });
    product =
        child == children.end() ? project.products.end() : project.products.find(child->product);
  }
  return product != project.products.end();
}

// Applies what to the registered main document: edit returns how many items it applied, or
// sets *refusal when the document cannot take them.
using Edit = std::function<size_t(const Project&, DocumentEdit&, std::string* refusal)>;

HRESULT EditMainDocument(const std::string& what, const Edit& edit) {
  auto fail = [&](const std::string& cause) {
    LogServiceError("cannot apply " + what + ": " + cause);
    return E_FAIL;
  };
  std::string why;
  const Project* project = LoadedProject(&why);
  if (project == nullptr) return fail(why);
  NOMZUBVGXGen package;
  NOMZUBVgxXmlFile* main = package.GetMainVgxXmlFile();
  if (main == nullptr) return fail("no package has been generated");
  std::string path;
  main->GetFilePath(path);
  DocumentEdit doc;
  if (!doc.Open(path, &why)) return fail(why);
  std::string refusal;
  const size_t applied = edit(*project, doc, &refusal);
  if (!refusal.empty()) return fail(refusal);
  if (applied == 0) {
    return fail("project '" + project->name + "' has no " + what + " for the objects of " + path);
  }
  if (!doc.Save(&why)) return fail(why);
  return S_OK;
}

// The refusal for an element that holds more items from an earlier application than apply now.
std::string EarlierSurplus(const DocumentEdit& doc, const std::string& what,
                           const std::string& where) {
  return doc.path() + " holds more " + what + " in " + where +
         " than the project now has for it; generate the package again to apply them";
}

}  // namespace

HRESULT ApplyStatesToPackage() {
  return EditMainDocument("3D states", [](const Project& project, DocumentEdit& doc,
                                          std::string* refusal) {
    const EntryOids entries = EntriesOf(doc);
    std::vector<std::pair<std::string, std::vector<const State*>>> operations;  // by OID
    std::vector<Node> elements = doc.Children(doc.Child(doc.root(), "Process").get(), "Operation");
    for (const Node& op : elements) {
      operations.emplace_back(doc.Attribute(op.get(), "OID"), std::vector<const State*>());
    }
    size_t applied = 0;
    for (const State& state : project.states) {
      auto op = std::find_if(operations.begin(), operations.end(),
                             [&](const auto& o) { return o.first == state.operation; });
      if (op == operations.end() || !InPackage(project, entries, state.target)) continue;
      op->second.push_back(&state);
      ++applied;
    }
    if (applied == 0) return applied;
    for (size_t i = 0; i < elements.size(); ++i) {
      const std::vector<const State*>& states = operations[i].second;
      std::vector<Node> written;
      if (!doc.Elements(elements[i].get(), "State", states.size(), &written)) {
        *refusal = EarlierSurplus(doc, "3D states", "operation " + operations[i].first);
        return applied;
      }
      for (size_t s = 0; s < written.size(); ++s) {
        doc.SetAttributes(written[s].get(), {{"Target", states[s]->target},
                                             {"Visible", states[s]->visible ? "true" : "false"}});
      }
    }
    return applied;
  });
}

HRESULT ApplyPositionsToPackage() {
  return EditMainDocument("simulation positions", [](const Project& project, DocumentEdit& doc,
                                                     std::string* refusal) {
    const EntryOids entries = EntriesOf(doc);
    std::vector<const SimPosition*> positions;
    for (const SimPosition& position : project.positions) {
      if (InPackage(project, entries, position.target)) positions.push_back(&position);
    }
    if (positions.empty()) return positions.size();
    Node group = doc.Child(doc.root(), "SimulationPositions");
    if (!group) group = doc.Append(doc.root(), "SimulationPositions");
    std::vector<Node> written;
    if (!doc.Elements(group.get(), "Position", positions.size(), &written)) {
      *refusal = EarlierSurplus(doc, "simulation positions", "SimulationPositions");
      return positions.size();
    }
    for (size_t p = 0; p < written.size(); ++p) {
      doc.SetAttributes(written[p].get(), {{"Operation", positions[p]->operation},
                                           {"Target", positions[p]->target},
                                           {"Placement", PlacementText(positions[p]->placement)}});
    }
    return positions.size();
  });
}

}  // namespace nomzub::proxy
