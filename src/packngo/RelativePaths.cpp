// Cutting the references of a copied product document down to bare file names.
#include "packngo/RelativePaths.h"

#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "utility/module_internal.h"

void NOMSOIUtility::FormatFilePath(std::string& path) { nomsoi::ToBackslashes(path); }

HRESULT NOMSOIUtility::UpdateRelativePaths(std::string path) {
  NOMZUBDOMWrapper doc;
  const HRESULT opened = doc.OpenDocument(path);
  if (opened < 0) return opened;
  HRESULT rc = S_OK;
  if (!nomsoi::CutReferencesToNames(doc, &rc)) return E_FAIL;  // the document is left as it is
  doc.SaveDoc(path);  // a failed save is not reported: the result is the last fetch's
  return rc;
}
