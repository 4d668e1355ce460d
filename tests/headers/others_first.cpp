// X11's and GLib's headers first, then ours: our headers must not redefine BOOL, TRUE or FALSE,
// nor clash with any name those headers put in the global namespace.
#include <X11/Xmd.h>
#include <glib.h>

#include "NOMSOIHost.h"
#include "NOMSOITypes.h"
#include "NOMSOIUtility.h"
#include "headers_probe.h"

static_assert(sizeof(BOOL) == 1, "X11's BOOL is a byte");
static_assert(sizeof(nomsoi::BOOL) == 4, "ours is 32 bits");
static_assert(TRUE == 1 && FALSE == 0, "GLib's TRUE and FALSE stand");

HeadersProbe ProbeOthersFirst() {
  gboolean glib_true = TRUE;
  return {sizeof(BOOL), sizeof(nomsoi::BOOL), nomsoi::E_FAIL, glib_true,
          nomsoi::ItemKindName(nomsoi::ItemKind::kGeometry)};
}
