// The rewrite Pack & Go makes of every product document it copied: its references cut down to
// bare file names. Shared by the module, which rewrites the copies it made, and a host that makes
// such a copy in its final state ahead of the module.
#ifndef NOM_PACKNGO_RELATIVEPATHS_H_
#define NOM_PACKNGO_RELATIVEPATHS_H_

#include <string>

#include "platform/codepage.h"
#include "services/NOMZUBDOMWrapper.h"
#include "utility/module_internal.h"
#include "win_types.h"

namespace nomsoi {

// Sets the IsInstanceOf attribute of every CLitAssyGroup element of doc to its part after the
// last backslash ("/" counting as one), adding it, empty, where it is missing. False when doc
// has no such element (nothing to rewrite: the document is left unsaved), else true with *rc
// the code of the last fetch.
inline bool CutReferencesToNames(NOMZUBDOMWrapper& doc, HRESULT* rc) {
  IXMLDOMNodeList* nodes = nullptr;
  doc.GetNodes("CLitAssyGroup", &nodes);
  if (nodes == nullptr) return false;
  long count = 0;
  nodes->get_length(&count);
  if (count <= 0) {
    nodes->Release();
    return false;
  }

  *rc = S_OK;
  for (long i = 0; i < count; ++i) {
    IXMLDOMNode* node = nullptr;
    *rc = nodes->get_item(i, &node);
    std::string value;
    doc.GetAttribute(node, "IsInstanceOf", value);
    ToBackslashes(value);
    const auto slash = nomplat::MbsFindLast(value, '\\');
    if (slash != std::string::npos) value.erase(0, slash + 1);
    // Written for every element, an empty value included.
    doc.AddAttribute(node, "IsInstanceOf", value);
    if (node != nullptr) node->Release();
  }
  nodes->Release();
  return true;
}

}  // namespace nomsoi

#endif  // NOM_PACKNGO_RELATIVEPATHS_H_
