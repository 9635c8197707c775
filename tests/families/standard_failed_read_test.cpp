// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "../lifecycle/standard_open.h"

namespace {

// The reads of a description fill cleared buffers, and the fields take what is there.
TEST(OpenStandard, FieldsTakeWhatAFailedReadLeft)
{
    Parts parts = StandardOpen{.flags = "80 11"}.parts();
    // the description: three steps of the command, two of the version, two for each of fourteen characters, then flags
    constexpr size_t FLAGS_READ = 3 + 2 + 28 + 1;
    parts.back().steps.cut(FLAGS_READ + 1).fails(LIBUSB_ERROR_TIMEOUT).close();
    vorntest::Script usb;
    append(usb, parts);
    VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    camera.hasShutter = camera.hasFilterWheel = true;
    camera.pixelCountX = camera.pixelCountY = camera.maxBinX = camera.maxBinY = 77;
    camera.pixelSizeX = camera.pixelSizeY = 7.7;
    EXPECT_FALSE(camera.open());
    EXPECT_TRUE(usb.done());
    EXPECT_EQ(camera.versionMajor, 2U);  // read before
    EXPECT_TRUE(camera.hasGuidePort);    // no flags: not absent
    EXPECT_FALSE(camera.hasShutter || camera.hasFilterWheel);
    EXPECT_EQ(camera.pixelCountX + camera.pixelCountY + camera.maxBinX + camera.maxBinY, 0U);
    EXPECT_EQ(camera.pixelSizeX + camera.pixelSizeY, 0.0);
}

}  // namespace
