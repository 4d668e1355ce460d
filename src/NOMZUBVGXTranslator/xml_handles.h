// The pugixml-backed document and the reference-counted handles the DOM wrapper hands out.
// Private to NOMZUBVGXTranslator.
#ifndef NOM_NOMZUBVGXTRANSLATOR_XML_HANDLES_H_
#define NOM_NOMZUBVGXTRANSLATOR_XML_HANDLES_H_

#include <atomic>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "services/XMLDOM.h"

namespace nomzub {

// One parsed or created document. Handles share ownership of it, so it lives as long as the
// wrapper that made it or any handle on one of its nodes.
struct XmlDocument {
  // The file's bytes: the tree of a parsed document points into them (parsed in place).
  std::string buffer;
  pugi::xml_document xml;
  // True for a document started by CreateDocument: it has no whitespace of its own and is saved
  // indented; a parsed document is saved exactly with its own whitespace.
  bool created = false;
  // What separates the top-level nodes when saved: the file's own line end.
  const char* line_end = "\n";
};

// The reference count of a handle: it starts at one, for the caller that receives the handle, and
// the handle deletes itself when the count drops to zero.
template <typename Interface>
class RefCounted : public Interface {
 public:
  ULONG AddRef() override { return references_.fetch_add(1, std::memory_order_relaxed) + 1; }
  ULONG Release() override {
    const ULONG left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
  }

 protected:
  ~RefCounted() override = default;

 private:
  std::atomic<ULONG> references_{1};
};

// A handle on one element.
class XmlNode final : public RefCounted<IXMLDOMNode> {
 public:
  // A new handle with one reference, owned by the caller.
  static IXMLDOMNode* Create(std::shared_ptr<XmlDocument> document, pugi::xml_node node);
  // The handle behind node when this library made it, else null.
  static XmlNode* From(IXMLDOMNode* node);

  // Replaces the element's character data with text. E_FAIL when the element has element
  // children: removing them would leave other handles on them dangling.
  HRESULT put_text(BSTR text) override;

  const std::shared_ptr<XmlDocument>& document() const { return document_; }
  pugi::xml_node node() const { return node_; }

 private:
  XmlNode(std::shared_ptr<XmlDocument> document, pugi::xml_node node)
      : document_(std::move(document)), node_(node) {}
  ~XmlNode() override = default;

  std::shared_ptr<XmlDocument> document_;
  pugi::xml_node node_;
};

// A handle on an ordered list of elements of one document.
class XmlNodeList final : public RefCounted<IXMLDOMNodeList> {
 public:
  // A new handle with one reference, owned by the caller.
  static IXMLDOMNodeList* Create(std::shared_ptr<XmlDocument> document,
                                 std::vector<pugi::xml_node> nodes);

  HRESULT get_length(long* length) override;
  HRESULT get_item(long index, IXMLDOMNode** item) override;

 private:
  XmlNodeList(std::shared_ptr<XmlDocument> document, std::vector<pugi::xml_node> nodes)
      : document_(std::move(document)), nodes_(std::move(nodes)) {}
  ~XmlNodeList() override = default;

  std::shared_ptr<XmlDocument> document_;
  std::vector<pugi::xml_node> nodes_;
};

// Releases a handle when it goes out of scope.
struct HandleReleaser {
  template <typename Handle>
  void operator()(Handle* handle) const {
    handle->Release();
  }
};
template <typename Handle>
using HandlePtr = std::unique_ptr<Handle, HandleReleaser>;

}  // namespace nomzub

#endif  // NOM_NOMZUBVGXTRANSLATOR_XML_HANDLES_H_
