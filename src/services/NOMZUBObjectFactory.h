// Planning data objects by OID (NOMZUBProxy).
#ifndef NOM_SERVICES_NOMZUBOBJECTFACTORY_H_
#define NOM_SERVICES_NOMZUBOBJECTFACTORY_H_

#include <string>

#include "NOMSOITypes.h"

class NOM_API NOMIZUBObject {
 public:
  virtual ~NOMIZUBObject();
  // The object's display name; "" for an object without a name.
  virtual std::string GetName() = 0;
};

class NOM_API NOMZUBObjectFactory {
 public:
  // The process-wide factory, or what a test installed (possibly null).
  static NOMZUBObjectFactory* Instance();
  virtual ~NOMZUBObjectFactory();

  // The object with that OID: S_OK and *object set; S_FALSE and *object left null when there is
  // none; E_POINTER when object is null. The factory keeps ownership.
  virtual HRESULT GetObject(const std::string& id, NOMIZUBObject** object);

 protected:
  NOMZUBObjectFactory();
};

namespace nomzub {

// Registers (or renames) an object of the process-wide factory. Used by the connector when it
// loads a project, and by tests.
NOM_API void RegisterObject(const std::string& oid, const std::string& name);
// Forgets every registered object.
NOM_API void ClearObjects();

// Installs factory as what NOMZUBObjectFactory::Instance() returns (null: no factory);
// RestoreObjectFactory undoes it. For tests.
NOM_API void OverrideObjectFactory(NOMZUBObjectFactory* factory);
NOM_API void RestoreObjectFactory();

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBOBJECTFACTORY_H_
