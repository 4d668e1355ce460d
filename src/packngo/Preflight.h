// The check a host makes before it hands a package on disk to Pack & Go: it walks the package as
// Pack & Go will, with the module's own resolution of references, without recursion and without
// writing or logging anything, and says what would be copied where, what is missing, and whether
// the run is safe to start (no reference cycle, no two files landing on one name, nothing outside
// the confinement roots, a bounded number of visits and nesting depth, room on the disk).
#ifndef NOM_PACKNGO_PREFLIGHT_H_
#define NOM_PACKNGO_PREFLIGHT_H_

#include "NOMSOIHost.h"
#include "win_types.h"

// The options, the plan and RunPreflight itself are declared in the configuration API: hosts call
// it there. It is defined with the module (src/packngo/Preflight.cpp) because it walks the package
// with the module's own resolution of references.

#endif  // NOM_PACKNGO_PREFLIGHT_H_
