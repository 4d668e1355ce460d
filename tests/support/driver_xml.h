// Reads an XML file back into a plain description of its element tree, so that tests compare the
// exact structure of what the module saved: element order, attribute order and values, texts.
#ifndef NOM_TESTS_SUPPORT_DRIVER_XML_H_
#define NOM_TESTS_SUPPORT_DRIVER_XML_H_

#include <string>
#include <vector>

namespace nomtest {

// One line per node of the file's document element and everything under it, depth first, each
// indented by two blanks per level: an element is written as its name, then ` name="value"` for
// each attribute in document order, then ` -> "text"` when it holds text (UTF-8, unescaped);
// another kind of node (comment, processing instruction) is written as "#other". Every element at
// the top level is listed, so a second one would show. A file that cannot be read or parsed gives
// the single line "#unreadable: " followed by the parser's description.
std::vector<std::string> DescribeXmlFile(const std::string& nativePath);

// The line of a leaf element at depth with that text ("" gives no text part), as
// DescribeXmlFile writes it.
std::string LeafLine(int depth, const std::string& tag, const std::string& text);

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_DRIVER_XML_H_
