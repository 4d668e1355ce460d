// The positioning commands: the project's 3D states and simulation positions written into the
// main document of the last generated package.
#ifndef NOM_NOMZUBPROXY_POSITIONING_H_
#define NOM_NOMZUBPROXY_POSITIONING_H_

#include "win_types.h"

namespace nomzub::proxy {

// Puts one State element (Target = ident path, Visible = true|false) into the package's
// Operation element of each state, in the states' order, through the DOM wrapper: the State
// elements an earlier application wrote take the new values and more are appended. Only states
// of objects that the package holds count. S_OK; E_FAIL with the cause at level 2, the document
// left as it was, when no project is loaded, no package is registered, its main document cannot
// be read, parsed or written, no state applies, an operation holds more State elements than
// the project now has for it, or the wrapper refuses a change.
HRESULT ApplyStatesToPackage();

// Gives the main document's SimulationPositions element (appended when it has none) one Position
// element (Operation, Target = ident path, Placement) per simulation position of an object the
// package holds, reusing the Position elements an earlier application wrote. Results as
// ApplyStatesToPackage.
HRESULT ApplyPositionsToPackage();

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_POSITIONING_H_
