// Our headers first, then X11's and GLib's: theirs must compile as if ours were not there (no
// macro of ours renames their BOOL, TRUE or FALSE).
#include <X11/Xmd.h>
#include <glib.h>

#include "NOMSOIHost.h"
#include "NOMSOITypes.h"
#include "NOMSOIUtility.h"
#include "headers_probe.h"

static_assert(sizeof(BOOL) == 1, "X11's BOOL is a byte");
static_assert(sizeof(nomsoi::BOOL) == 4, "ours is 32 bits");
static_assert(TRUE == 1 && FALSE == 0, "GLib's TRUE and FALSE stand");

HeadersProbe ProbeOursFirst() {
  gboolean glib_true = TRUE;
  return {sizeof(BOOL), sizeof(nomsoi::BOOL), nomsoi::E_FAIL, glib_true,
          nomsoi::ItemKindName(nomsoi::ItemKind::kGeometry)};
}
