// What each of the header-order translation units saw of the types both sides name.
#ifndef NOM_TESTS_HEADERS_HEADERS_PROBE_H_
#define NOM_TESTS_HEADERS_HEADERS_PROBE_H_

#include <cstddef>
#include <cstdint>

struct HeadersProbe {
  size_t x11_bool_size;
  size_t our_bool_size;
  int32_t e_fail;
  int glib_true;
  const char* geometry_name;
};

// X11 and GLib included before the public headers.
HeadersProbe ProbeOthersFirst();
// The public headers included before X11 and GLib.
HeadersProbe ProbeOursFirst();

#endif  // NOM_TESTS_HEADERS_HEADERS_PROBE_H_
