// Editing an XML document through the DOM wrapper (NOMZUBDOMWrapper), which reads and saves it:
// what the positioning commands use on a package's main document.
#ifndef NOM_NOMZUBPROXY_DOCUMENT_EDIT_H_
#define NOM_NOMZUBPROXY_DOCUMENT_EDIT_H_

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "services/NOMZUBDOMWrapper.h"

namespace nomzub::proxy {

struct NodeReleaser {
  void operator()(IXMLDOMNode* node) const { node->Release(); }
};
// A node handle, released when it goes out of scope.
using Node = std::unique_ptr<IXMLDOMNode, NodeReleaser>;

// One document as the wrapper holds it. Texts cross in UTF-8 (the project's texts, as the
// generator writes them); the wrapper takes and gives them in the process's code page. A failure
// is reported once, as the caller's cause: what the wrapper logs about it is folded into the
// cause rather than logged. Once a wrapper call fails, the edit is spoiled and Save refuses.
class DocumentEdit {
 public:
  // Reads path. False with *error "cannot read PATH (error N)" or "PATH is not an XML document:
  // CAUSE".
  bool Open(const std::string& path, std::string* error);
  // Writes the edited document over the file. False with *error "cannot write PATH (error N)",
  // or "cannot edit PATH: ..." when a change was refused (nothing is written then).
  bool Save(std::string* error);

  // The document element; null when there is none.
  IXMLDOMNode* root() const { return root_.get(); }
  // The path given to Open.
  const std::string& path() const { return path_; }

  // The element children of parent called name, in order; none when parent is null.
  std::vector<Node> Children(IXMLDOMNode* parent, const char* name);
  // The first element child of parent called name; null when there is none.
  Node Child(IXMLDOMNode* parent, const char* name);
  // The value of node's attribute name; "" when it has none.
  std::string Attribute(IXMLDOMNode* node, const char* name);
  // Gives element the attributes, in order, replacing the values of those it has.
  void SetAttributes(IXMLDOMNode* element,
                     std::initializer_list<std::pair<const char*, std::string>> attributes);
  // The elements called name for count items under parent: its existing ones first, in order,
  // then new ones appended. False, changing nothing, when parent holds more than count.
  bool Elements(IXMLDOMNode* parent, const char* name, size_t count, std::vector<Node>* elements);
  // Appends an element called name as parent's last child; null when the wrapper refuses.
  Node Append(IXMLDOMNode* parent, const char* name);

 private:
  // Whether result is not a failure; a failure spoils the edit.
  bool Check(HRESULT result);

  NOMZUBDOMWrapper dom_;
  std::string path_;
  Node root_;
  bool spoiled_ = false;
};

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_DOCUMENT_EDIT_H_
