// The View elements of an operation's entity: one per named process ident of the operation.
#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXIdentCache.h"

void NOMSOIUtility::PoupulateOIDProcessIdentMap(NOMStringMultimap& oidProcessIdentMap) {
  NOMZUBVGXIdentCache cache;
  NOMStringMap processIdentOids;
  cache.GetProcessIdentOIDMap(processIdentOids);
  // Inserting after equal keys keeps each operation's process idents in ascending order.
  for (const auto& [processIdent, oid] : processIdentOids) {
    oidProcessIdentMap.insert({oid, processIdent});
  }
}

void NOMSOIUtility::AddViewInfo(NOMZUBDOMWrapper& doc, IXMLDOMNode* entity,
                                const std::string& operationOID,
                                const NOMStringMultimap& oidProcessIdentMap,
                                const NOMStringMap& processIdentNameMap) {
  const auto range = oidProcessIdentMap.equal_range(operationOID);
  for (auto it = range.first; it != range.second; ++it) {
    const std::string& processIdent = it->second;
    const auto named = processIdentNameMap.find(processIdent);
    if (named == processIdentNameMap.end()) continue;
    IXMLDOMNode* view = nullptr;
    doc.CreateChildNode(entity, "View", &view);
    if (view == nullptr) continue;
    doc.AddAttribute(view, "Ident", processIdent);
    doc.AddAttribute(view, "Name", named->second);
    view->Release();
  }
}
