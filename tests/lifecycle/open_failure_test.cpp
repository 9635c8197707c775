// SPDX-License-Identifier: MIT
// What an open that fails still attempts, and what it leaves behind.
#include <gtest/gtest.h>

#include "standard_open.h"
#include "trace_capture.h"

namespace {

using vorntest::Script;
using vorntest::TraceCapture;

TEST(OpenStandard, EachFailingTransferLeavesItClosed)
{
    expectEachFailureOfOpen(STANDARD, StandardOpen({.flags = "80 12", .wheelPolls = 1}).parts());
}

TEST(OpenStandard, FivePingsWithoutAnswerFailIt)
{
    const Parts parts = StandardOpen().parts();
    const size_t ping = parts.size() - 2;
    ClosedCamera closed(STANDARD, Parts(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(ping)));
    for (const char* counter : {"64", "65", "66", "67", "68"})
        closed.usb.command(std::string("50 00 ") + counter + " 00").pause(20000).parIn(2, "00 00");
    closed.usb.close();
    TraceCapture trace;
    EXPECT_FALSE(closed.camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_TRUE(trace.has("    failed to initialize device!!!"));
    EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::open 00");
}

TEST(OpenStandard, AFailedLibusbOpenReleasesTheLockFirst)
{
    Script usb;
    VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    usb.open().fails(LIBUSB_ERROR_ACCESS);
    TraceCapture trace;
    EXPECT_FALSE(camera.open());
    EXPECT_EQ(trace.text(),
              "-> VornCameraImpl::open()\n    unlock()\n    libusb_open() -> LIBUSB_ERROR_ACCESS\n"
              "<- VornCameraImpl::open 00\n");
}

TEST(Open, ATypeOutsideTheEnumerationFails)
{
    Script usb;
    VornCameraImpl camera(&usb.device, "Vorn ?", static_cast<CAMERA_TYPE>(6));
    usb.open().driverActive(false).claim().altSetting(1);
    // product id and colour are read: the type is not IIDC
    usb.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, "34 DF").eepRead(0xE8, 5, "FF FF FF FF FF").close();
    TraceCapture trace;
    EXPECT_FALSE(camera.open());
    EXPECT_TRUE(trace.has("    unsupported device!!!"));
    EXPECT_STREQ(camera.getLastError(), "Failed to initialize device");
}

}  // namespace
