// Writing Mapping.xml: one Entity per object and per operation the identifier cache knows.
#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBObjectFactory.h"
#include "services/NOMZUBVGXIdentCache.h"
#include "utility/module_internal.h"

namespace {

// The object's display name from the factory, or "" when the factory or the object is missing.
// The factory is asked afresh every time and keeps ownership of the object.
std::string ObjectName(const std::string& oid) {
  std::string name;
  if (NOMZUBObjectFactory* factory = NOMZUBObjectFactory::Instance()) {
    NOMIZUBObject* object = nullptr;
    factory->GetObject(oid, &object);
    if (object != nullptr) name = object->GetName();
  }
  return name;
}

}  // namespace

HRESULT NOMSOIUtility::GenerateMappingXML(const std::string& directory) {
  nomsoi::Log("Info:\t GenerateMappingXML -->");
  NOMZUBDOMWrapper doc;
  const HRESULT created = doc.CreateDocument();
  if (created < 0) return created;
  IXMLDOMNode* root = nullptr;
  doc.CreateRootNode("Root", &root);
  if (root == nullptr) return E_FAIL;
  doc.AddAttribute(root, "Schema", "2");

  NOMZUBVGXIdentCache cache;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(_OIDIdentPathsMap2);
  NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(_OpOIDIdentPathMap2);

  for (const auto& [oid, identPaths] : _OIDIdentPathsMap2) {
    std::string idPath;
    for (const std::string& path : identPaths) {
      idPath += path;
      idPath += "#";
    }
    IXMLDOMNode* entity = nullptr;
    doc.CreateChildNode(root, "Entity", &entity);
    if (entity == nullptr) continue;
    AddElements(doc, entity, ObjectName(oid), idPath, oid);
    entity->Release();
  }

  NOMStringMultimap oidProcessIdents;
  PoupulateOIDProcessIdentMap(oidProcessIdents);
  NOMStringMap processIdentNames;
  cache.GetProcessIdentNameMap(processIdentNames);

  for (const auto& [operationOid, identPath] : _OpOIDIdentPathMap2) {
    IXMLDOMNode* entity = nullptr;
    doc.CreateChildNode(root, "Entity", &entity);
    if (entity == nullptr) continue;
    AddElements(doc, entity, ObjectName(operationOid), identPath, operationOid);
    AddViewInfo(doc, entity, operationOid, oidProcessIdents, processIdentNames);
    entity->Release();
  }

  root->Release();
  doc.SaveDoc(directory + "\\Mapping.xml");
  nomsoi::Log("Info:\t <-- GenerateMappingXML");
  return S_OK;
}
