// NOMZUBObjectFactory: the named objects of the connected project, by OID. The factory owns them;
// a pointer it hands out stays valid until ClearObjects.
#include <string>
#include <unordered_map>

#include "services/NOMZUBObjectFactory.h"

namespace {

class NamedObject : public NOMIZUBObject {
 public:
  explicit NamedObject(std::string name) : name_(std::move(name)) {}
  std::string GetName() override { return name_; }
  void Rename(const std::string& name) { name_ = name; }

 private:
  std::string name_;
};

// Held in the nodes themselves (no allocation of their own): a project may have hundreds of
// thousands of objects, and node-based storage keeps every handed-out pointer valid.
std::unordered_map<std::string, NamedObject>& Objects() {
  static std::unordered_map<std::string, NamedObject> objects;
  return objects;
}

bool g_factory_overridden = false;
NOMZUBObjectFactory* g_factory_override = nullptr;

}  // namespace

NOMIZUBObject::~NOMIZUBObject() = default;
NOMZUBObjectFactory::NOMZUBObjectFactory() = default;
NOMZUBObjectFactory::~NOMZUBObjectFactory() = default;

NOMZUBObjectFactory* NOMZUBObjectFactory::Instance() {
  static NOMZUBObjectFactory instance;
  return g_factory_overridden ? g_factory_override : &instance;
}

HRESULT NOMZUBObjectFactory::GetObject(const std::string& id, NOMIZUBObject** object) {
  if (object == nullptr) return E_POINTER;
  auto it = Objects().find(id);
  if (it == Objects().end()) return S_FALSE;
  *object = &it->second;
  return S_OK;
}

void nomzub::RegisterObject(const std::string& oid, const std::string& name) {
  const auto [it, inserted] = Objects().try_emplace(oid, name);
  if (!inserted) it->second.Rename(name);
}

void nomzub::ClearObjects() { Objects().clear(); }

void nomzub::OverrideObjectFactory(NOMZUBObjectFactory* factory) {
  g_factory_overridden = true;
  g_factory_override = factory;
}

void nomzub::RestoreObjectFactory() {
  g_factory_overridden = false;
  g_factory_override = nullptr;
}
