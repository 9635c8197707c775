// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::bus;
using vorntest::Script;
using vorntest::TraceCapture;

// One test: the program has only one first call, whatever order the tests run in.
TEST(FirstCalls, MakeTheContextOnceAndNumberRequestsFromZero)
{
    Script usb;
    VornCamera* cameras[2] = {};
    bus().initResult = LIBUSB_ERROR_OTHER;
    TraceCapture trace;
    EXPECT_EQ(VornCamera_list(cameras, 2), 0);
    EXPECT_EQ(trace.text(), "-> VornCamera::list(...)\n    libusb_init -> **UNKNOWN**\n<- VornCamera::list 00\n");
    EXPECT_EQ(bus().listCalls, 0);
    bus().initResult = 0;
    EXPECT_EQ(VornCamera_list(cameras, 2), 1);  // tried again
    EXPECT_EQ(bus().initCalls, 2);
    VornCamera_destroy(cameras[0]);
    EXPECT_EQ(VornCamera_list(cameras, 2), 1);  // and never again
    EXPECT_EQ(bus().initCalls, 2);
    VornCamera_destroy(cameras[0]);

    VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    camera.handle = usb.device.openHandle();
    usb.out(0x04, "0C 00 00 00 32 00 ...").out(0x04, "0C 01 00 00 32 00 ...");
    EXPECT_TRUE(camera.setParTimeout(50));
    EXPECT_TRUE(camera.setParTimeout(50));
}

}  // namespace
