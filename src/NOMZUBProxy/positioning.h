// The positioning commands: the project's 3D states and simulation positions written into the
// main document of the last generated package.
#ifndef NOM_NOMZUBPROXY_POSITIONING_H_
#define NOM_NOMZUBPROXY_POSITIONING_H_

#include "NOMSOITypes.h"

namespace nomzub::proxy {

// Puts one State element (Target = ident path, Visible = true|false) into the package's
// Operation element of each state, replacing the states applied before. Only states of objects
// that the package holds count. S_OK; E_FAIL with the cause at level 2 when no project is
// loaded, no package is registered, its main document cannot be read or written, or no state
// applies (the document is then left as it was).
HRESULT ApplyStatesToPackage();

// Replaces the main document's SimulationPositions element with one Position element
// (Operation, Target = ident path, Placement) per simulation position of an object the package
// holds. Results as ApplyStatesToPackage.
HRESULT ApplyPositionsToPackage();

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_POSITIONING_H_
