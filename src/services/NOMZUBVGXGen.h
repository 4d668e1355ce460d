// Handles on the last generated package, and the shared-resource manager (NOMZUBVGXTranslator).
#ifndef NOM_SERVICES_NOMZUBVGXGEN_H_
#define NOM_SERVICES_NOMZUBVGXGEN_H_

#include <memory>
#include <string>

#include "win_types.h"

class NOMZUBDOMWrapper;

class NOM_API NOMZUBVgxXmlFile {
 public:
  explicit NOMZUBVgxXmlFile(std::string path) : path_(std::move(path)) {}
  // The main document's full path. S_OK.
  HRESULT GetFilePath(std::string& path);

 private:
  std::string path_;
};

class NOM_API NOMZUBVgxViewFile {
 public:
  explicit NOMZUBVgxViewFile(std::string path) : path_(std::move(path)) {}
  // The view file's full path. S_OK.
  HRESULT GetFilePath(std::string& path);

 private:
  std::string path_;
};

class NOM_API NOMZUBVGXGen {
 public:
  // Takes a snapshot of the package registered last (nomzub::RegisterPackage).
  NOMZUBVGXGen();
  virtual ~NOMZUBVGXGen();
  // The main document; null when no package is registered. Owned by this handle.
  NOMZUBVgxXmlFile* GetMainVgxXmlFile();
  // The view file; null when the package has none. Owned by this handle.
  NOMZUBVgxViewFile* GetMainVgxViewFile();

 private:
  std::unique_ptr<NOMZUBVgxXmlFile> main_;
  std::unique_ptr<NOMZUBVgxViewFile> view_;
};

// Both operations only read soiDirectory: the reference is modifiable for the callers' interface
// alone, and its content is the same after the call.
class NOM_API NOMZUBVgxSharedResourceFileMgr {
 public:
  // Copies every file named by a Resource element's File attribute (relative to the document's
  // own location, or absolute) into soiDirectory, overwriting, and sets File to the bare name.
  // S_OK; E_FAIL when a resource could not be copied (cause at level 2, the others still done) or
  // the wrapper holds no document.
  static HRESULT UpdateVgxXmlForSOR(NOMZUBDOMWrapper& doc, std::string& soiDirectory);
  // The same for the view file, and sets the root's Document attribute to "SOI.vgxXml".
  static HRESULT UpdateVgxViewForSOR(NOMZUBDOMWrapper& doc, std::string& soiDirectory);
};

namespace nomzub {

// Registers the package a fresh NOMZUBVGXGen finds: its main document and view file (module
// paths). An empty viewPath means the package has no view file.
NOM_API void RegisterPackage(const std::string& mainPath, const std::string& viewPath);
// Forgets the registered package: a fresh NOMZUBVGXGen then has no main document.
NOM_API void ClearPackage();

// Where the shared resource a document names with File="reference" lies: the reference when it
// is absolute (drive, UNC or rooted), else the reference taken from the directory of
// documentPath (the path the document was opened with; a bare name: the working directory).
NOM_API std::string SharedResourceSource(const std::string& documentPath,
                                         const std::string& reference);
// Where the shared-resource manager copies that resource: soiDirectory, a backslash and the
// reference's file name.
NOM_API std::string SharedResourceTarget(const std::string& soiDirectory,
                                         const std::string& reference);

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBVGXGEN_H_
