#include "support/driver_package.h"

#include <gtest/gtest.h>

#include <pugixml.hpp>
#include <sstream>

#include "support/test_support.h"

namespace nomtest {

const char kAbsent[] = "<absent>";

std::string XmlEscape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
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

namespace {

// One CLitAssyGroup element referring to reference (none for kAbsent).
std::string ReferenceElement(const std::string& indent, int index, const std::string& reference) {
  std::ostringstream out;
  out << indent << "<CLitAssyGroup Ident=\"Item" << index << "\" Name=\"Item " << index << "\"";
  if (reference != kAbsent) out << " IsInstanceOf=\"" << XmlEscape(reference) << "\"";
  out << "/>\n";
  return out.str();
}

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

}  // namespace

std::string MainDocument(const std::vector<ListGroup>& lists) {
  std::ostringstream out;
  out << kDeclaration << "<VgxDocument Name=\"SOI\">\n";
  for (const ListGroup& list : lists) {
    out << "  <CLitAssyGroup Ident=\"" << XmlEscape(list.ident) << "\">\n";
    int index = 0;
    for (const std::string& ref : list.references) {
      out << ReferenceElement("    ", ++index, ref);
    }
    out << "  </CLitAssyGroup>\n";
  }
  out << "</VgxDocument>\n";
  return out.str();
}

std::string AssemblyDocument(const std::vector<std::string>& references) {
  std::ostringstream out;
  out << kDeclaration << "<VgxDocument Name=\"Assembly\">\n";
  int index = 0;
  for (const std::string& ref : references) out << ReferenceElement("  ", ++index, ref);
  out << "</VgxDocument>\n";
  return out.str();
}

void WriteProduct(const std::string& nativeDir, const std::string& name, const std::string& body,
                  bool withGeometry) {
  WriteFile(nativeDir + "/" + name + ".vgxXml", body);
  if (withGeometry) WriteFile(nativeDir + "/" + name + ".vgxGeom", "glTF-" + name);
}

namespace {

// Loads a file with pugixml; records a test failure when it does not parse.
bool Load(const std::string& nativeFile, pugi::xml_document* doc) {
  pugi::xml_parse_result parsed = doc->load_file(nativeFile.c_str());
  EXPECT_TRUE(parsed) << nativeFile << ": " << parsed.description();
  return static_cast<bool>(parsed);
}

std::string ReferenceOf(const pugi::xml_node& node) {
  pugi::xml_attribute attr = node.attribute("IsInstanceOf");
  return attr ? std::string(attr.value()) : std::string(kAbsent);
}

}  // namespace

std::vector<std::string> InstanceReferences(const std::string& nativeFile) {
  std::vector<std::string> out;
  pugi::xml_document doc;
  if (!Load(nativeFile, &doc)) return out;
  for (const pugi::xpath_node& x : doc.select_nodes("//CLitAssyGroup")) {
    out.push_back(ReferenceOf(x.node()));
  }
  return out;
}

std::vector<std::string> ListReferences(const std::string& nativeFile, const std::string& ident) {
  std::vector<std::string> out;
  pugi::xml_document doc;
  if (!Load(nativeFile, &doc)) return out;
  pugi::xml_node list = doc.find_node([&](const pugi::xml_node& n) {
    return std::string(n.name()) == "CLitAssyGroup" && ident == n.attribute("Ident").value();
  });
  EXPECT_TRUE(list) << "no list group " << ident << " in " << nativeFile;
  for (pugi::xml_node child : list.children("CLitAssyGroup")) out.push_back(ReferenceOf(child));
  return out;
}

std::string ElementAttribute(const std::string& nativeFile, const std::string& element,
                             const std::string& attribute) {
  pugi::xml_document doc;
  if (!Load(nativeFile, &doc)) return kAbsent;
  pugi::xml_node node =
      doc.find_node([&](const pugi::xml_node& n) { return std::string(n.name()) == element; });
  pugi::xml_attribute attr = node.attribute(attribute.c_str());
  return attr ? std::string(attr.value()) : std::string(kAbsent);
}

}  // namespace nomtest
