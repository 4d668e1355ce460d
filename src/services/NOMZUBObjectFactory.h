// Planning data objects by OID (NOMZUBProxy).
//
// Replaced with nomzub::SetObjectFactory, which may be called from any thread; the factory's
// objects are registered, cleared and read from one thread at a time (the module's).
#ifndef NOM_SERVICES_NOMZUBOBJECTFACTORY_H_
#define NOM_SERVICES_NOMZUBOBJECTFACTORY_H_

#include <string>

#include "win_types.h"

class NOM_API NOMIZUBObject {
 public:
  virtual ~NOMIZUBObject();
  // The object's display name; "" for an object without a name.
  virtual std::string GetName() = 0;
};

class NOM_API NOMZUBObjectFactory {
 public:
  // The process-wide factory, or what nomzub::SetObjectFactory installed; null while
  // nomzub::kNoObjectFactory is installed.
  static NOMZUBObjectFactory* Instance();
  virtual ~NOMZUBObjectFactory();

  // The object with that OID: S_OK and *object set; S_FALSE and *object left null when there is
  // none; E_POINTER when object is null. The factory keeps ownership.
  virtual HRESULT GetObject(const std::string& id, NOMIZUBObject** object);

 protected:
  NOMZUBObjectFactory();
};

namespace nomzub {

// Registers (or renames) an object of the process-wide factory. Used by the connector's session
// when it loads a project (the one place the project's objects are registered), and by tests.
NOM_API void RegisterObject(const std::string& oid, const std::string& name);
// Forgets every registered object; a pointer handed out before is no longer valid.
NOM_API void ClearObjects();

// Installed with SetObjectFactory, makes NOMZUBObjectFactory::Instance() return null: no factory
// at all. Never called through.
NOM_API extern NOMZUBObjectFactory* const kNoObjectFactory;

// Installs replacement as what NOMZUBObjectFactory::Instance() returns (null: the real factory;
// kNoObjectFactory: none) and returns the one it replaces (the real factory's address while that
// was in force, kNoObjectFactory while none was), so that installing what it returned puts back
// the previous state.
NOM_API NOMZUBObjectFactory* SetObjectFactory(NOMZUBObjectFactory* replacement);

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBOBJECTFACTORY_H_
