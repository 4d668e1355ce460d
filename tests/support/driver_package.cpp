#include "support/driver_package.h"

#include <pugixml.hpp>

#include "support/test_support.h"

namespace nomtest {

namespace {

// The value escaped for an attribute in double quotes.
std::string Escape(const std::string& value) {
  std::string out;
  for (char c : value) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string Children(const std::vector<std::string>& references, const std::string& indent) {
  std::string out;
  int n = 0;
  for (const std::string& ref : references) {
    ++n;
    out += indent + "<CLitAssyGroup Ident=\"C" + std::to_string(n) + "\" IsInstanceOf=\"" +
           Escape(ref) + "\"/>\n";
  }
  return out;
}

}  // namespace

void WriteMainDocument(const std::string& nativePath, const std::vector<ListGroup>& groups) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VgxDocument>\n";
  for (const ListGroup& group : groups) {
    xml += "  <CLitAssyGroup Ident=\"" + Escape(group.ident) + "\">\n";
    xml += Children(group.references, "    ");
    xml += "  </CLitAssyGroup>\n";
  }
  xml += "</VgxDocument>\n";
  WriteFile(nativePath, xml);
}

void WriteProduct(const std::string& nativeDir, const std::string& name, const std::string& body,
                  bool withGeometry) {
  WriteFile(nativeDir + "/" + name + ".vgxXml", body);
  if (withGeometry) WriteFile(nativeDir + "/" + name + ".vgxGeom", "glTF-" + name);
}

std::string ProductBody(const std::vector<std::string>& references) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VgxDocument>\n" +
         Children(references, "  ") + "</VgxDocument>\n";
}

std::vector<std::string> InstanceReferences(const std::string& nativePath) {
  pugi::xml_document doc;
  if (!doc.load_file(nativePath.c_str())) return {"#unreadable"};
  std::vector<std::string> out;
  for (const pugi::xpath_node& n : doc.select_nodes("//CLitAssyGroup[@IsInstanceOf]")) {
    out.push_back(n.node().attribute("IsInstanceOf").value());
  }
  return out;
}

}  // namespace nomtest
