// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "../lifecycle/standard_open.h"
#include "opened_camera.h"

namespace {

// The reads of a description fill cleared buffers, and the fields take what is there.
TEST(OpenStandard, FieldsTakeWhatAFailedReadLeft)
{
    vorntest::Steps whole;
    const std::vector<StandardOpen::Phase> phases = StandardOpen{.flags = "80 11"}.write(whole);
    const auto ping = std::find(phases.begin(), phases.end(), StandardOpen::PING) - phases.begin();
    // behind the ping's six steps: three of the command, two of the version, two for each of fourteen characters
    const size_t flags = static_cast<size_t>(ping) + 6 + 3 + 2 + 28;
    vorntest::Script usb;
    usb.append(whole, 0, flags + 2).fails(LIBUSB_ERROR_TIMEOUT).close();
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
