// Gathering the last generated package into the SOI directory.
#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXGen.h"
#include "utility/module_internal.h"

using nomsoi::Log;

HRESULT NOMSOIUtility::PackNGo(const std::string& soiDirectory) {
  NOMZUBVGXGen package;
  NOMZUBVgxXmlFile* mainFile = package.GetMainVgxXmlFile();
  if (mainFile == nullptr) return E_FAIL;

  std::string mainPath;
  mainFile->GetFilePath(mainPath);
  if (mainPath.empty()) {
    Log("Info:\t Failed to get SOI.vgxXml file path");
    return E_FAIL;
  }
  FormatFilePath(mainPath);

  HRESULT result;
  {
    // An unopened main document is not reported here: the steps below run on what the wrapper
    // holds, and the list look-ups then find nothing.
    NOMZUBDOMWrapper doc;
    doc.OpenDocument(mainPath);
    for (const nomsoi::ListGroup& group : nomsoi::kListGroups) {
      IXMLDOMNode* list = nullptr;
      doc.GetNode("CLitAssyGroup", &list, "Ident", group.ident);
      if (list == nullptr) continue;
      Log(group.before, 1);
      HandleChildrenNodes(list, doc, soiDirectory, mainPath);
      Log(group.after, 1);
      list->Release();
    }

    // The shared-resource manager takes a modifiable string: it gets a copy each time.
    std::string soiForMain = soiDirectory;
    NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soiForMain);
    result = doc.SaveDoc(mainPath);

    NOMZUBVgxViewFile* viewFile = package.GetMainVgxViewFile();
    std::string viewPath;
    if (viewFile != nullptr) viewFile->GetFilePath(viewPath);
    if (!viewPath.empty()) {
      NOMZUBDOMWrapper view;
      if (view.OpenDocument(viewPath) >= 0) {
        std::string soiForView = soiDirectory;
        NOMZUBVgxSharedResourceFileMgr::UpdateVgxViewForSOR(view, soiForView);
        view.SaveDoc(viewPath);
      }
    }
  }

  // Only the entries present now are visited; every one overwrites the result, so the last
  // document's outcome is what the caller sees.
  const std::size_t count = _CopiedXmlFiles.size();
  Log(nomsoi::kUpdatingRelativePaths);
  for (std::size_t i = 0; i < count; ++i) result = UpdateRelativePaths(_CopiedXmlFiles[i]);
  Log(nomsoi::kRelativePathsDone);
  return result;
}
