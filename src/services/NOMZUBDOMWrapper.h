// One XML document (NOMZUBVGXTranslator), over pugixml.
#ifndef NOM_SERVICES_NOMZUBDOMWRAPPER_H_
#define NOM_SERVICES_NOMZUBDOMWRAPPER_H_

#include <memory>
#include <string>

#include "services/XMLDOM.h"
#include "win_types.h"

class NOM_API NOMZUBDOMWrapper {
 public:
  // Holds no document.
  NOMZUBDOMWrapper();
  virtual ~NOMZUBDOMWrapper();
  NOMZUBDOMWrapper(const NOMZUBDOMWrapper&) = delete;
  NOMZUBDOMWrapper& operator=(const NOMZUBDOMWrapper&) = delete;

  // Loads the file (module path). S_OK; a missing or unreadable file gives HRESULT_FROM_WIN32 of
  // its error and malformed XML E_FAIL (cause logged at level 2); the wrapper then holds no
  // document. Remembers the path either way.
  HRESULT OpenDocument(const std::string& path);
  // Replaces the held document with an empty one. S_OK.
  HRESULT CreateDocument();
  // Makes the document element. S_OK; E_FAIL and *node null without a document or when a root
  // exists already.
  HRESULT CreateRootNode(const std::string& name, IXMLDOMNode** node);
  // Appends an element as parent's last child. S_OK; E_INVALIDARG and *node null when parent is
  // null or not an element of this document.
  HRESULT CreateChildNode(IXMLDOMNode* parent, const std::string& name, IXMLDOMNode** node);
  // The first element named name, in document order, whose attribute attrName equals attrValue.
  // S_OK; S_FALSE and *node null when none matches or there is no document.
  HRESULT GetNode(const std::string& name, IXMLDOMNode** node, std::string attrName,
                  std::string attrValue);
  // Every element named name in the document, in document order. S_OK (possibly an empty list);
  // E_FAIL and *list null without a document.
  HRESULT GetNodes(const std::string& name, IXMLDOMNodeList** list);
  // The direct children of node named name. S_OK; E_INVALIDARG and *list null when node is null.
  HRESULT GetChildNodes(IXMLDOMNode* node, IXMLDOMNodeList** list, std::string name);
  // The attribute's value. S_OK; S_FALSE with value unchanged when absent; E_INVALIDARG when node
  // is null.
  HRESULT GetAttribute(IXMLDOMNode* node, const std::string& name, std::string& value);
  // Adds the attribute or replaces its value. S_OK; E_INVALIDARG when node is null.
  HRESULT AddAttribute(IXMLDOMNode* node, const std::string& name, const std::string& value);
  // Writes the document (UTF-8, with a declaration, its own whitespace kept) through a temporary
  // file renamed over path. S_OK; E_FAIL without a document (nothing written);
  // HRESULT_FROM_WIN32 of the error when the file cannot be written (it is left as it was).
  // A parsed document is written as it was read apart from the changes made to it (line breaks
  // between top-level nodes, declaration encoding UTF-8); one begun by CreateDocument has no
  // whitespace of its own and is written indented by two spaces, one element a line.
  HRESULT SaveDoc(const std::string& path);

  // Loads a document from bytes for the caller's own use: no hook sees any operation on this
  // wrapper from then on and nothing is logged. S_OK; E_FAIL when the bytes are not a
  // well-formed document (the wrapper then holds none). The document path becomes "".
  HRESULT OpenBytes(std::string bytes);
  // The bytes SaveDoc would write, into *bytes. S_OK; E_FAIL without a document (*bytes
  // cleared).
  HRESULT SaveBytes(std::string* bytes);

  // The document element. S_OK; S_FALSE and *node null when the document has none; E_FAIL and
  // *node null without a document; E_POINTER when node is null. The DomHook does not see it.
  HRESULT GetRootNode(IXMLDOMNode** node);

  // The path given to the last OpenDocument ("" when none).
  const std::string& DocumentPath() const;
  // True while the wrapper holds a document.
  bool HasDocument() const;

  struct Impl;

 private:
  std::shared_ptr<Impl> impl_;
};

namespace nomzub {

// Which wrapper operation a hook sees.
enum class DomCall {
  kOpenDocument,
  kCreateDocument,
  kCreateRootNode,
  kCreateChildNode,
  kGetNode,
  kGetNodes,
  kGetChildNodes,
  kGetAttribute,
  kAddAttribute,
  kSaveDoc
};

// Consulted before every wrapper operation, with the operation's main string argument (path,
// element name or attribute name). Returning a negative code makes the call fail with it, its out
// argument null and the document untouched; S_OK lets it run. Tests record or break calls here.
class NOM_API DomHook {
 public:
  virtual ~DomHook();
  virtual HRESULT Before(DomCall call, const std::string& argument) = 0;
};

// Installs hook (null: none) and returns the one it replaces.
NOM_API DomHook* SetDomHook(DomHook* hook);
// True while a hook is installed.
NOM_API bool DomHookInstalled();

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBDOMWRAPPER_H_
