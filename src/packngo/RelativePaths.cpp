// Cutting the references of a copied product document down to bare file names.
#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "utility/module_internal.h"

void NOMSOIUtility::FormatFilePath(std::string& path) {
  if (path.empty()) return;
  // Step by multibyte characters so that a trail byte equal to '/' is never touched.
  const auto* begin = reinterpret_cast<const unsigned char*>(path.c_str());
  for (const unsigned char* p = begin; *p != 0; p = nomplat::_mbsinc(p)) {
    if (*p == '/') path[static_cast<std::string::size_type>(p - begin)] = '\\';
  }
}

HRESULT NOMSOIUtility::UpdateRelativePaths(std::string path) {
  NOMZUBDOMWrapper doc;
  const HRESULT opened = doc.OpenDocument(path);
  if (opened < 0) return opened;

  IXMLDOMNodeList* nodes = nullptr;
  doc.GetNodes("CLitAssyGroup", &nodes);
  if (nodes == nullptr) return E_FAIL;
  long count = 0;
  nodes->get_length(&count);
  if (count <= 0) {
    nodes->Release();
    return E_FAIL;  // nothing to rewrite: the document is left as it is
  }

  HRESULT rc = S_OK;
  for (long i = 0; i < count; ++i) {
    IXMLDOMNode* node = nullptr;
    rc = nodes->get_item(i, &node);
    std::string value;
    doc.GetAttribute(node, "IsInstanceOf", value);
    FormatFilePath(value);
    const auto slash = nomplat::MbsFindLast(value, '\\');
    if (slash != std::string::npos) value.erase(0, slash + 1);
    // Written for every element, an empty value included.
    doc.AddAttribute(node, "IsInstanceOf", value);
    if (node != nullptr) node->Release();
  }
  nodes->Release();
  doc.SaveDoc(path);  // a failed save is not reported: the result is the last fetch's
  return rc;
}
