// Following the references inside a copied product document, depth first.
#include "NOMSOIUtility.h"
#include "platform/win32.h"
#include "services/NOMZUBDOMWrapper.h"
#include "utility/module_internal.h"

HRESULT NOMSOIUtility::CheckInternalReference(const std::string& docPath,
                                              const std::string& soiDirectory) {
  NOMZUBDOMWrapper doc;
  const HRESULT opened = doc.OpenDocument(docPath);
  if (opened < 0) return opened;

  IXMLDOMNodeList* nodes = nullptr;
  const HRESULT listed = doc.GetNodes("CLitAssyGroup", &nodes);
  if (nodes == nullptr) return listed;

  long count = 0;
  nodes->get_length(&count);
  for (long i = 0; i < count; ++i) {
    IXMLDOMNode* node = nullptr;
    nodes->get_item(i, &node);
    if (node == nullptr) continue;

    std::string value;
    doc.GetAttribute(node, "IsInstanceOf", value);
    if (value.empty()) {
      node->Release();
      continue;
    }
    std::string target = soiDirectory;
    FormatFilePath(value);
    if (GetActualPath(docPath, value, target) == 1) {
      node->Release();
      continue;
    }

    const int32_t unused = 0;
    const int32_t copied = nomplat::CopyFileA(value.c_str(), target.c_str(), FALSE);
    PrintError(value, target, unused, copied);
    _CopiedXmlFiles.push_back(target);

    const std::string geometry = nomsoi::GeometryPathOf(value);
    target = nomsoi::NestedGeometryTarget(target);
    if (nomplat::CanOpenForReading(geometry)) {
      const int32_t geometryCopied = nomplat::CopyFileA(geometry.c_str(), target.c_str(), FALSE);
      PrintError(geometry, target, unused, geometryCopied);
    } else {
      nomsoi::Log(nomsoi::kUnableToOpen + geometry);
    }

    // Nested references resolve against the referenced document's own location.
    CheckInternalReference(value, soiDirectory);
    node->Release();
  }
  nodes->Release();
  return opened;
}
