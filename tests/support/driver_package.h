// Small package documents for the tests, built as text: a main document with chosen list groups,
// product documents with their references, and product files with their geometry on disk; and
// readers that take written documents apart again with pugixml.
#ifndef NOM_TESTS_SUPPORT_DRIVER_PACKAGE_H_
#define NOM_TESTS_SUPPORT_DRIVER_PACKAGE_H_

#include <string>
#include <utility>
#include <vector>

namespace nomtest {

// Marks a child or element without an IsInstanceOf attribute.
extern const char kAbsent[];

// One list group of a main document: its Ident value and the IsInstanceOf value of each child
// (kAbsent for a child without the attribute).
struct ListGroup {
  std::string ident;
  std::vector<std::string> references;
};

// Escapes &, <, > and " for an attribute value.
std::string XmlEscape(const std::string& text);
// A main document: root VgxDocument holding the list groups in the given order, each a
// CLitAssyGroup with that Ident whose CLitAssyGroup children carry the references.
std::string MainDocument(const std::vector<ListGroup>& lists);
// A product document whose CLitAssyGroup elements carry the given references, in order.
std::string AssemblyDocument(const std::vector<std::string>& references);

// Writes the product document nativeDir/name.vgxXml with body as its whole content, and, when
// withGeometry, the geometry file nativeDir/name.vgxGeom.
void WriteProduct(const std::string& nativeDir, const std::string& name,
                  const std::string& body = "<VgxDocument/>\n", bool withGeometry = true);

// The IsInstanceOf values of every CLitAssyGroup element of a file on disk, in document order
// (kAbsent for an element without the attribute). Fails the test when the file does not parse.
std::vector<std::string> InstanceReferences(const std::string& nativeFile);
// The IsInstanceOf values of the children of the list group with that Ident, in order. Fails the
// test when the file does not parse or holds no such group.
std::vector<std::string> ListReferences(const std::string& nativeFile, const std::string& ident);
// An attribute of the first element with that name in a file on disk (kAbsent when missing).
std::string ElementAttribute(const std::string& nativeFile, const std::string& element,
                             const std::string& attribute);

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_DRIVER_PACKAGE_H_
