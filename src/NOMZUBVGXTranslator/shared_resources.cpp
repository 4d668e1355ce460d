// The shared-resource manager: gathers the files a package document names in Resource elements
// (images, textures, thumbnails) into the SOI directory and points the document at the copies.
#include <cctype>
#include <filesystem>

#include "NOMZUBVGXTranslator/error_text.h"
#include "NOMZUBVGXTranslator/xml_handles.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/win32.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"

namespace nomzub {
namespace {

constexpr char kResourceElement[] = "Resource";
constexpr char kFileAttribute[] = "File";
constexpr char kDocumentAttribute[] = "Document";
constexpr char kMainDocumentName[] = "SOI.vgxXml";

// True when both module paths name one existing file (a resource already in the SOI directory),
// which must not be copied onto itself.
bool SameFile(const std::string& first, const std::string& second) {
  std::string first_native, second_native;
  DWORD error = 0;
  if (!nomplat::ToNativePath(first, &first_native, &error) ||
      !nomplat::ToNativePath(second, &second_native, &error)) {
    return false;
  }
  std::error_code ignored;
  return std::filesystem::equivalent(first_native, second_native, ignored);
}

// Copies the resource named by the element's File attribute into soiDirectory and sets File to
// the copy's bare name. An element without a File value is left alone. False when the resource
// could not be handled (cause logged; the attribute then keeps its value).
bool CopyResource(NOMZUBDOMWrapper& document, IXMLDOMNode* resource,
                  const std::string& soiDirectory) {
  std::string reference;
  const HRESULT read = document.GetAttribute(resource, kFileAttribute, reference);
  if (read < 0) return false;
  if (reference.empty()) return true;
  const std::string source = SharedResourceSource(document.DocumentPath(), reference);
  const std::string target = SharedResourceTarget(soiDirectory, reference);
  const std::string name = nomplat::PathFindFileNameA(reference.c_str());
  if (!SameFile(source, target)) {
    if (const DWORD error = nomplat::CurrentEnv()->CopyFile(source, target, false)) {
      LogServiceError("Cannot copy shared resource " + source + " to " + target + ": " +
                      DescribeWindowsError(error));
      return false;
    }
  }
  return document.AddAttribute(resource, kFileAttribute, name) >= 0;
}

// Handles every Resource element of the document. S_OK, or E_FAIL when there is no document or
// one of them could not be handled (the others are handled all the same).
HRESULT CopyResources(NOMZUBDOMWrapper& document, const std::string& soiDirectory) {
  if (!document.HasDocument()) {
    LogServiceError("Cannot gather the shared resources of " + document.DocumentPath() +
                    ": no document is open");
    return E_FAIL;
  }
  IXMLDOMNodeList* found = nullptr;
  if (document.GetNodes(kResourceElement, &found) < 0) return E_FAIL;
  HandlePtr<IXMLDOMNodeList> resources(found);
  long count = 0;
  resources->get_length(&count);
  bool all_handled = true;
  for (long i = 0; i < count; ++i) {
    IXMLDOMNode* item = nullptr;
    resources->get_item(i, &item);
    HandlePtr<IXMLDOMNode> resource(item);
    all_handled = CopyResource(document, resource.get(), soiDirectory) && all_handled;
  }
  return all_handled ? S_OK : E_FAIL;
}

// Points the view file's root at the main document as it lies in the SOI directory.
HRESULT ReferMainDocument(NOMZUBDOMWrapper& view) {
  IXMLDOMNode* found = nullptr;
  if (view.GetRootNode(&found) != S_OK) return E_FAIL;
  HandlePtr<IXMLDOMNode> root(found);
  return view.AddAttribute(root.get(), kDocumentAttribute, kMainDocumentName) < 0 ? E_FAIL : S_OK;
}

}  // namespace
}  // namespace nomzub

namespace nomzub {

namespace {

// True for a drive-qualified path ("X:\..." or "X:..."), a UNC path ("\\server\...") and a
// rooted one ("\..." or "/...").
bool IsAbsolute(const std::string& path) {
  if (!path.empty() && (path[0] == '\\' || path[0] == '/')) return true;
  return path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

}  // namespace

std::string SharedResourceSource(const std::string& documentPath, const std::string& reference) {
  if (IsAbsolute(reference)) return reference;
  const char* name = nomplat::PathFindFileNameA(documentPath.c_str());
  return documentPath.substr(0, static_cast<size_t>(name - documentPath.c_str())) + reference;
}

std::string SharedResourceTarget(const std::string& soiDirectory, const std::string& reference) {
  return soiDirectory + "\\" + nomplat::PathFindFileNameA(reference.c_str());
}

}  // namespace nomzub

HRESULT NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(NOMZUBDOMWrapper& doc,
                                                           std::string& soiDirectory) {
  return nomzub::CopyResources(doc, soiDirectory);
}

HRESULT NOMZUBVgxSharedResourceFileMgr::UpdateVgxViewForSOR(NOMZUBDOMWrapper& doc,
                                                            std::string& soiDirectory) {
  const HRESULT copied = nomzub::CopyResources(doc, soiDirectory);
  if (!doc.HasDocument()) return copied;
  const HRESULT referred = nomzub::ReferMainDocument(doc);
  return copied < 0 ? copied : referred;
}
