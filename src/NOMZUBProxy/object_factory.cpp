// NOMZUBObjectFactory: the named objects of the connected project, by OID. The factory owns them;
// a pointer it hands out stays valid until ClearObjects.
#include <string>
#include <unordered_map>

#include "NOMZUBProxy/service_slot.h"
#include "services/NOMZUBObjectFactory.h"

NOMIZUBObject::~NOMIZUBObject() = default;
NOMZUBObjectFactory::NOMZUBObjectFactory() = default;
NOMZUBObjectFactory::~NOMZUBObjectFactory() = default;

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

// The process-wide factory (the class's constructor is protected).
class ProcessObjectFactory final : public NOMZUBObjectFactory {};

// Stands for "no factory" while installed; never called through.
class NoObjectFactory final : public NOMZUBObjectFactory {};
NoObjectFactory g_no_factory;

NOMZUBObjectFactory* ProcessFactory() {
  static ProcessObjectFactory factory;
  return &factory;
}

nomzub::proxy::ServiceSlot<NOMZUBObjectFactory> g_factory(ProcessFactory, &g_no_factory);

}  // namespace

NOMZUBObjectFactory* const nomzub::kNoObjectFactory = &g_no_factory;

NOMZUBObjectFactory* NOMZUBObjectFactory::Instance() { return g_factory.Get(); }

NOMZUBObjectFactory* nomzub::SetObjectFactory(NOMZUBObjectFactory* replacement) {
  return g_factory.Set(replacement);
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
