// Walking one list group of the main document: every child that references a product document
// brings that document and its geometry file into the SOI directory.
#include <string>

#include "NOMSOIUtility.h"
#include "platform/win32.h"
#include "services/NOMZUBDOMWrapper.h"
#include "utility/module_internal.h"

// The one algorithm behind both variants. The normal variant rewrites each reference to the bare
// file name and keeps the code of the last step it performed; the ODT variant leaves the document
// alone and keeps only the last path resolution's code.
class NOMSOIChildWalk {
 public:
  enum class Variant { kNormal, kOdt };

  static HRESULT Run(NOMSOIUtility& self, Variant variant, IXMLDOMNode* listNode,
                     NOMZUBDOMWrapper& doc, const std::string& soiDirectory,
                     const std::string& mainXmlPath) {
    const bool normal = variant == Variant::kNormal;
    IXMLDOMNodeList* children = nullptr;
    HRESULT result = doc.GetChildNodes(listNode, &children, "CLitAssyGroup");
    if (children == nullptr) return E_FAIL;

    long count = 0;
    if (children->get_length(&count) < 0) count = 0;
    nomsoi::Log("Info:\t Nb Child Nodes: " + std::to_string(count));

    std::string soi = soiDirectory;
    self.FormatFilePath(soi);

    for (long i = 0; i < count; ++i) {
      IXMLDOMNode* child = nullptr;
      const HRESULT fetched = children->get_item(i, &child);
      if (normal) result = fetched;
      if (child == nullptr) continue;

      std::string source;
      doc.GetAttribute(child, "IsInstanceOf", source);
      if (nomplat::MbsCompare(source, "") == 0) {
        child->Release();
        continue;
      }
      std::string target = soi;
      self.FormatFilePath(source);
      result = self.GetActualPath(mainXmlPath, source, target);
      if (result == 1) {  // the referenced document is missing; already logged
        child->Release();
        continue;
      }

      const int32_t unused = 0;
      const int32_t copied = nomplat::CopyFileA(source.c_str(), target.c_str(), FALSE);
      self._CopiedXmlFiles.push_back(target);
      self.PrintError(source, target, unused, copied);

      const std::string geometry = nomsoi::GeometryPathOf(source);
      const std::string geometryTarget = nomsoi::ListChildGeometryTarget(soi, geometry);
      if (nomplat::CanOpenForReading(geometry)) {
        const int32_t geometryCopied =
            nomplat::CopyFileA(geometry.c_str(), geometryTarget.c_str(), FALSE);
        self.PrintError(geometry, geometryTarget, unused, geometryCopied);
      } else {
        nomsoi::Log(nomsoi::kUnableToOpen + geometry);
      }

      if (normal) {
        doc.AddAttribute(child, "IsInstanceOf", nomplat::PathFindFileNameA(source.c_str()));
        result = self.CheckInternalReference(source, soiDirectory);
      } else {
        self.CheckInternalReference(source, soiDirectory);
      }
      child->Release();
    }
    children->Release();
    return result;
  }
};

HRESULT NOMSOIUtility::HandleChildrenNodes(IXMLDOMNode* listNode, NOMZUBDOMWrapper& doc,
                                           const std::string& soiDirectory,
                                           const std::string& mainXmlPath) {
  return NOMSOIChildWalk::Run(*this, NOMSOIChildWalk::Variant::kNormal, listNode, doc, soiDirectory,
                              mainXmlPath);
}

HRESULT NOMSOIUtility::HandleChildrenNodes_ODT(IXMLDOMNode* listNode, NOMZUBDOMWrapper& doc,
                                               const std::string& soiDirectory,
                                               const std::string& mainXmlPath) {
  return NOMSOIChildWalk::Run(*this, NOMSOIChildWalk::Variant::kOdt, listNode, doc, soiDirectory,
                              mainXmlPath);
}
