// NOMZUBObjectFactory: the named objects of the connected project, by OID. The factory owns them;
// a pointer it hands out stays valid until ClearObjects.
#include <map>
#include <memory>

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

std::map<std::string, std::unique_ptr<NamedObject>>& Objects() {
  static std::map<std::string, std::unique_ptr<NamedObject>> objects;
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
  *object = it->second.get();
  return S_OK;
}

void nomzub::RegisterObject(const std::string& oid, const std::string& name) {
  std::unique_ptr<NamedObject>& slot = Objects()[oid];
  if (slot) {
    slot->Rename(name);
  } else {
    slot = std::make_unique<NamedObject>(name);
  }
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
