// Small package documents on disk for the driver tests: a main document with chosen list groups
// and product documents with their geometry files.
#ifndef NOM_TESTS_SUPPORT_DRIVER_PACKAGE_H_
#define NOM_TESTS_SUPPORT_DRIVER_PACKAGE_H_

#include <string>
#include <utility>
#include <vector>

namespace nomtest {

// One list group of a main document: its Ident value and the IsInstanceOf value of each child.
struct ListGroup {
  std::string ident;
  std::vector<std::string> references;
};

// Writes a main document (root VgxDocument) at nativePath holding the groups in the order given,
// each a CLitAssyGroup with that Ident whose CLitAssyGroup children carry the references.
void WriteMainDocument(const std::string& nativePath, const std::vector<ListGroup>& groups);

// Writes the product document nativeDir/name.vgxXml with body as its whole content, and, when
// withGeometry, the geometry file nativeDir/name.vgxGeom.
void WriteProduct(const std::string& nativeDir, const std::string& name,
                  const std::string& body = "<VgxDocument/>\n", bool withGeometry = true);

// A product document body whose CLitAssyGroup elements reference each of references in order.
std::string ProductBody(const std::vector<std::string>& references);

// The IsInstanceOf values of every CLitAssyGroup element of the file that carries one, in
// document order ("#unreadable" alone when the file cannot be parsed).
std::vector<std::string> InstanceReferences(const std::string& nativePath);

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_DRIVER_PACKAGE_H_
