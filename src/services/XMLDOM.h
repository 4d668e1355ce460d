// Reference-counted DOM handles as the module uses them: a node and a list of nodes. A handle keeps
// its document alive, so it stays valid after the wrapper that handed it out is gone.
#ifndef NOM_SERVICES_XMLDOM_H_
#define NOM_SERVICES_XMLDOM_H_

#include "platform/codepage.h"
#include "win_types.h"

class NOM_API IXMLDOMNode {
 public:
  // Adds a reference; returns the new count.
  virtual ULONG AddRef() = 0;
  // Drops a reference, deleting the handle at zero; returns the new count.
  virtual ULONG Release() = 0;
  // Replaces the element's content with the text (UTF-16; null is empty). S_OK, or E_FAIL when
  // the node is not an element or has child elements (which stay: handles on them stay valid).
  virtual HRESULT put_text(BSTR text) = 0;

 protected:
  virtual ~IXMLDOMNode();
};

class NOM_API IXMLDOMNodeList {
 public:
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;
  // The number of nodes; E_POINTER when length is null.
  virtual HRESULT get_length(long* length) = 0;
  // A new reference to node index (the caller releases it); S_FALSE and null when index is out of
  // range; E_POINTER when item is null.
  virtual HRESULT get_item(long index, IXMLDOMNode** item) = 0;

 protected:
  virtual ~IXMLDOMNodeList();
};

#endif  // NOM_SERVICES_XMLDOM_H_
