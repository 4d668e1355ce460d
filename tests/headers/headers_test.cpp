// The installed headers live beside X11's and GLib's in one translation unit, in either order.
// That they compile at all is most of the test; the probes check that each side's names still
// mean what that side defines.
#include <gtest/gtest.h>

#include <string>

#include "headers_probe.h"

namespace {

void ExpectBothSidesIntact(const HeadersProbe& probe) {
  EXPECT_EQ(1u, probe.x11_bool_size);
  EXPECT_EQ(4u, probe.our_bool_size);
  EXPECT_EQ(static_cast<int32_t>(0x80004005u), probe.e_fail);
  EXPECT_EQ(1, probe.glib_true);
  EXPECT_EQ(std::string("geometry"), probe.geometry_name);
}

TEST(PublicHeaders, Include_AfterX11AndGlib_BothSidesIntact) {
  ExpectBothSidesIntact(ProbeOthersFirst());
}

TEST(PublicHeaders, Include_BeforeX11AndGlib_BothSidesIntact) {
  ExpectBothSidesIntact(ProbeOursFirst());
}

}  // namespace
