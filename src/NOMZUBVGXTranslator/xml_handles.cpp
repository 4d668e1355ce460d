#include "NOMZUBVGXTranslator/xml_handles.h"

#include "platform/codepage.h"

IXMLDOMNode::~IXMLDOMNode() = default;
IXMLDOMNodeList::~IXMLDOMNodeList() = default;

namespace nomzub {

IXMLDOMNode* XmlNode::Create(std::shared_ptr<XmlDocument> document, pugi::xml_node node) {
  return new XmlNode(std::move(document), node);
}

XmlNode* XmlNode::From(IXMLDOMNode* node) { return dynamic_cast<XmlNode*>(node); }

HRESULT XmlNode::put_text(BSTR text) {
  if (node_.type() != pugi::node_element) return E_FAIL;
  for (pugi::xml_node child : node_.children()) {
    if (child.type() == pugi::node_element) return E_FAIL;
  }
  while (pugi::xml_node child = node_.first_child()) node_.remove_child(child);
  const UINT length = nomplat::SysStringLen(text);
  if (length > 0) {
    const std::string utf8 = nomplat::Utf16ToUtf8(std::u16string(text, length));
    node_.append_child(pugi::node_pcdata).set_value(utf8.c_str());
  }
  return S_OK;
}

IXMLDOMNodeList* XmlNodeList::Create(std::shared_ptr<XmlDocument> document,
                                     std::vector<pugi::xml_node> nodes) {
  return new XmlNodeList(std::move(document), std::move(nodes));
}

HRESULT XmlNodeList::get_length(long* length) {
  if (length == nullptr) return E_POINTER;
  *length = static_cast<long>(nodes_.size());
  return S_OK;
}

HRESULT XmlNodeList::get_item(long index, IXMLDOMNode** item) {
  if (item == nullptr) return E_POINTER;
  if (index < 0 || static_cast<size_t>(index) >= nodes_.size()) {
    *item = nullptr;
    return S_FALSE;
  }
  *item = XmlNode::Create(document_, nodes_[static_cast<size_t>(index)]);
  return S_OK;
}

}  // namespace nomzub
