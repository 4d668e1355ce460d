// The XML documents of a package, built with pugixml and written as this platform writes them:
// UTF-8 after a declaration, one element a line, indented by two spaces a level.
#ifndef NOM_NOMZUBPROXY_PACKAGE_DOCUMENTS_H_
#define NOM_NOMZUBPROXY_PACKAGE_DOCUMENTS_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "NOMZUBProxy/project_model.h"

namespace nomzub::proxy {

// The ident of the main document's process; operations' ident paths start with it.
constexpr char kProcessIdent[] = "Process";

// The IsInstanceOf text of the next reference to the product document of an OID.
using ReferenceMaker = std::function<std::string(const std::string& oid)>;

// The top-level entries of a package by list ident; a list the package does not hold is absent.
using ListEntries = std::map<std::string, std::vector<const Instance*>>;

// The product document of product: one element per instance of its structure, in order, each
// referring to its product's document through reference (called once per instance, in order).
std::string ProductDocument(const Product& product, const ReferenceMaker& reference);

// The main document called name: the lists of entries in package order (reference called once
// per entry, in order), then the process of project with its operations and process idents.
std::string MainDocument(const Project& project, const std::string& name,
                         const ListEntries& entries, const ReferenceMaker& reference);

// The view file of the main document name + ".vgxXml": one view per process ident of project,
// with its camera.
std::string ViewFile(const Project& project, const std::string& name);

// A 12-number placement matrix text: the rotation rows, then the translation.
std::string PlacementText(const Placement& placement);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PACKAGE_DOCUMENTS_H_
