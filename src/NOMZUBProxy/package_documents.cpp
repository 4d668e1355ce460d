// Building the main document, the view file and product documents as pugixml trees. The
// whitespace between elements is part of the tree, so that printing it raw gives the documents
// their layout without pugixml's own indentation (which puts a blank before "/>").
#include "NOMZUBProxy/package_documents.h"

#include <charconv>
#include <cmath>
#include <pugixml.hpp>

namespace nomzub::proxy {
namespace {

const char* const kListNames[4] = {"Products", "Resources", "Manufactured products",
                                   "Planning context"};

// Shortest round-trip text of v; values within 1e-12 of zero print as 0.
std::string Number(double v) {
  if (std::fabs(v) < 1e-12) return "0";
  char text[32];
  auto [end, ec] = std::to_chars(text, text + sizeof text, v);
  return std::string(text, end);
}

std::string Triple(const double v[3]) {
  return Number(v[0]) + " " + Number(v[1]) + " " + Number(v[2]);
}

// Appends the text that starts a line at depth (the document element's children are at 1).
void AppendLineStart(pugi::xml_node parent, int depth) {
  parent.append_child(pugi::node_pcdata)
      .set_value(("\n" + std::string(2 * static_cast<size_t>(depth), ' ')).c_str());
}

// Appends an element called name to parent on a line of its own at depth.
pugi::xml_node AppendLine(pugi::xml_node parent, const char* name, int depth) {
  AppendLineStart(parent, depth);
  return parent.append_child(name);
}

// Ends parent's children: its end tag goes on a line of its own at depth.
void EndLines(pugi::xml_node parent, int depth) { AppendLineStart(parent, depth); }

// Sets the attributes of element in the order given.
void SetAttributes(pugi::xml_node element,
                   std::initializer_list<std::pair<const char*, std::string>> attributes) {
  for (const auto& [name, value] : attributes) element.append_attribute(name) = value.c_str();
}

// A document holding only the declaration: UTF-8, XML 1.0.
void Declare(pugi::xml_document& doc) {
  pugi::xml_node declaration = doc.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  declaration.append_attribute("encoding") = "UTF-8";
}

class StringWriter : public pugi::xml_writer {
 public:
  explicit StringWriter(std::string* out) : out_(out) {}
  void write(const void* data, size_t size) override {
    out_->append(static_cast<const char*>(data), size);
  }

 private:
  std::string* out_;
};

// The document's text: each top-level node printed raw, on a line of its own.
std::string Text(const pugi::xml_document& doc) {
  std::string text;
  StringWriter writer(&text);
  for (pugi::xml_node node : doc.children()) {
    node.print(writer, "", pugi::format_raw, pugi::encoding_utf8);
    text += '\n';
  }
  return text;
}

// An instance on a line of its own at depth, referring to its product's document.
void AppendInstance(pugi::xml_node parent, const Instance& i, int depth,
                    const ReferenceMaker& reference) {
  SetAttributes(AppendLine(parent, "CLitAssyGroup", depth),
                {{"Ident", i.ident},
                 {"Name", i.name},
                 {"OID", i.product},
                 {"Placement", PlacementText(i.placement)},
                 {"IsInstanceOf", reference(i.product)}});
}

}  // namespace

std::string PlacementText(const Placement& p) {
  constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180;
  double c = std::cos(p.rz * kRadiansPerDegree), s = std::sin(p.rz * kRadiansPerDegree);
  return Number(c) + " " + Number(-s) + " 0 " + Number(s) + " " + Number(c) + " 0 0 0 1 " +
         Number(p.x) + " " + Number(p.y) + " " + Number(p.z);
}

std::string ProductDocument(const Product& product, const ReferenceMaker& reference) {
  pugi::xml_document doc;
  Declare(doc);
  pugi::xml_node root = doc.append_child("VgxDocument");
  SetAttributes(root, {{"Name", product.name}, {"OID", product.oid}, {"Kind", product.kind}});
  for (const Instance& child : product.children) AppendInstance(root, child, 1, reference);
  EndLines(root, 0);
  return Text(doc);
}

std::string MainDocument(const Project& project, const std::string& name,
                         const ListEntries& entries, const ReferenceMaker& reference) {
  pugi::xml_document doc;
  Declare(doc);
  pugi::xml_node root = doc.append_child("VgxDocument");
  SetAttributes(root, {{"Name", name}, {"Project", project.name}});
  for (int l = 0; l < 4; ++l) {
    auto it = entries.find(kListIdents[l]);
    if (it == entries.end()) continue;
    pugi::xml_node list = AppendLine(root, "CLitAssyGroup", 1);
    SetAttributes(list, {{"Ident", kListIdents[l]}, {"Name", kListNames[l]}});
    for (const Instance* entry : it->second) AppendInstance(list, *entry, 2, reference);
    EndLines(list, 1);
  }
  pugi::xml_node process = AppendLine(root, "Process", 1);
  SetAttributes(process, {{"Ident", kProcessIdent}, {"Name", project.name}});
  for (const Operation& op : project.operations) {
    pugi::xml_node operation = AppendLine(process, "Operation", 2);
    SetAttributes(operation, {{"OID", op.oid},
                              {"Ident", op.ident},
                              {"Name", op.name},
                              {"IdentPath", std::string(kProcessIdent) + "/" + op.ident}});
    for (const View& view : project.views) {
      if (view.operation != op.oid) continue;
      SetAttributes(AppendLine(operation, "ProcessIdent", 3),
                    {{"Ident", view.ident}, {"Name", view.name}});
    }
    EndLines(operation, 2);
  }
  EndLines(process, 1);
  EndLines(root, 0);
  return Text(doc);
}

std::string ViewFile(const Project& project, const std::string& name) {
  pugi::xml_document doc;
  Declare(doc);
  pugi::xml_node root = doc.append_child("VgxView");
  SetAttributes(root, {{"Name", name}, {"Document", name + ".vgxXml"}});
  for (const View& view : project.views) {
    pugi::xml_node element = AppendLine(root, "View", 1);
    SetAttributes(element,
                  {{"Ident", view.ident}, {"Name", view.name}, {"Operation", view.operation}});
    SetAttributes(AppendLine(element, "Camera", 2), {{"Eye", Triple(view.eye)},
                                                     {"Target", Triple(view.target)},
                                                     {"Up", "0 0 1"},
                                                     {"FieldOfView", "45"}});
    EndLines(element, 1);
  }
  EndLines(root, 0);
  return Text(doc);
}

}  // namespace nomzub::proxy
