#include "support/driver_xml.h"

#include <pugixml.hpp>

namespace nomtest {

namespace {

std::string Indent(int depth) { return std::string(2 * depth, ' '); }

void Describe(const pugi::xml_node& node, int depth, std::vector<std::string>* out) {
  if (node.type() != pugi::node_element) {
    out->push_back(Indent(depth) + "#other");
    return;
  }
  std::string line = Indent(depth) + node.name();
  for (const pugi::xml_attribute& a : node.attributes()) {
    line += std::string(" ") + a.name() + "=\"" + a.value() + "\"";
  }
  std::string text;
  for (const pugi::xml_node& child : node.children()) {
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
      text += child.value();
    }
  }
  if (!text.empty()) line += " -> \"" + text + "\"";
  out->push_back(line);
  for (const pugi::xml_node& child : node.children()) {
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) continue;
    Describe(child, depth + 1, out);
  }
}

}  // namespace

std::vector<std::string> DescribeXmlFile(const std::string& nativePath) {
  pugi::xml_document doc;
  pugi::xml_parse_result parsed = doc.load_file(
      nativePath.c_str(), pugi::parse_default | pugi::parse_comments | pugi::parse_pi);
  if (!parsed) return {std::string("#unreadable: ") + parsed.description()};
  std::vector<std::string> out;
  for (const pugi::xml_node& top : doc.children()) Describe(top, 0, &out);
  return out;
}

std::string LeafLine(int depth, const std::string& tag, const std::string& text) {
  std::string line = Indent(depth) + tag;
  if (!text.empty()) line += " -> \"" + text + "\"";
  return line;
}

}  // namespace nomtest
