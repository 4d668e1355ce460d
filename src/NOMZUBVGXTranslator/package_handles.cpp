// The registry of the last generated package, and the handles NOMZUBVGXGen gives on it.
#include <mutex>

#include "services/NOMZUBVGXGen.h"

namespace nomzub {
namespace {

struct PackageRegistry {
  std::mutex mutex;
  bool registered = false;
  std::string main_path;
  std::string view_path;
};

PackageRegistry& Registry() {
  static PackageRegistry* registry = new PackageRegistry;  // never destroyed: usable during exit
  return *registry;
}

}  // namespace

void RegisterPackage(const std::string& mainPath, const std::string& viewPath) {
  PackageRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  registry.registered = true;
  registry.main_path = mainPath;
  registry.view_path = viewPath;
}

void ClearPackage() {
  PackageRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  registry.registered = false;
  registry.main_path.clear();
  registry.view_path.clear();
}

}  // namespace nomzub

HRESULT NOMZUBVgxXmlFile::GetFilePath(std::string& path) {
  path = path_;
  return S_OK;
}

HRESULT NOMZUBVgxViewFile::GetFilePath(std::string& path) {
  path = path_;
  return S_OK;
}

NOMZUBVGXGen::NOMZUBVGXGen() {
  nomzub::PackageRegistry& registry = nomzub::Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  if (!registry.registered) return;
  main_ = std::make_unique<NOMZUBVgxXmlFile>(registry.main_path);
  if (!registry.view_path.empty()) {
    view_ = std::make_unique<NOMZUBVgxViewFile>(registry.view_path);
  }
}

NOMZUBVGXGen::~NOMZUBVGXGen() = default;

NOMZUBVgxXmlFile* NOMZUBVGXGen::GetMainVgxXmlFile() { return main_.get(); }

NOMZUBVgxViewFile* NOMZUBVGXGen::GetMainVgxViewFile() { return view_.get(); }
