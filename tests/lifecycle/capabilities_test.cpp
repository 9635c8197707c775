// SPDX-License-Identifier: MIT
#include <cstring>
#include <tuple>

#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;

TEST(Capabilities, RecordFormGivesEveryField)
{
    OpenedCamera opened;
    VornCameraImpl& camera = opened.camera;
    camera.hasShutter = camera.has8BitMode = true;
    std::tie(camera.lineCount, camera.pixelCountX, camera.pixelCountY) = std::tuple(11, 12, 13);
    std::tie(camera.pixelSizeX, camera.pixelSizeY, camera.maxBinX, camera.maxBinY) = std::tuple(1.5, 2.5, 14, 15);
    std::tie(camera.tempSensorCount, camera.cooler) = std::tuple(16, COOLER_SELECTPOWER);
    std::tie(camera.colour, camera.offsetX) = std::tuple(COLOUR_RGGB, 1);
    const char* name = nullptr;
    CAMERA_TYPE type = CLASSIC;
    VornCapabilities caps;
    memset(&caps, 0xEE, sizeof caps);
    ASSERT_TRUE(camera.getCapabilities(&name, &type, &caps));
    EXPECT_EQ(std::tuple(std::string(name), type, caps.hasShutter, caps.hasGuidePort, caps.has8BitMode,
                         caps.hasFilterWheel, caps.lineCount, caps.pixelCountX, caps.pixelCountY, caps.pixelSizeX),
              std::tuple("Vorn K12", STANDARD, true, false, true, false, 11U, 12U, 13U, 1.5));
    EXPECT_EQ(std::tuple(caps.pixelSizeY, caps.maxBinX, caps.maxBinY, caps.tempSensorCount, caps.cooler, caps.colour,
                         caps.offsetX, caps.offsetY, caps.supportsLongExposure, caps.minShortExposure),
              std::tuple(2.5, 14U, 15U, 16U, COOLER_SELECTPOWER, COLOUR_RGGB, 1, 0, true, 0.001));
    EXPECT_EQ(caps.maxShortExposure, 3.0);
}

/// The pointer form with @p caps filled in place, null elsewhere.
bool pointerForm(VornCamera& camera, bool* third, double* shortest, double* longest, bool* longExposure)
{
    return camera.getCapabilities(nullptr, nullptr, nullptr, nullptr, third, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  longExposure, shortest, longest);
}

TEST(Capabilities, PointerFormGivesTheFamilyLimits)
{
    struct {
        CAMERA_TYPE type;
        unsigned width;
        bool longExposure;
        double shortest;
        double longest;
    } const CASES[] = {
        {CLASSIC, 1000, true, 0.001, 2.46},
        {STANDARD, 1000, true, 0.001, 3.0},
        {QUICKER, 1000, true, 0.001, 1.398},
        {IIDC, 1280, false, 0.001, 0.5},
        {ADVANCED, 1000, true, 0.001, 3.0},
        {STANDARD, 3326, true, 0.2, 3.0},
        {STANDARD, 3325, true, 0.001, 3.0},
        {QUICKER, 3326, true, 0.2, 1.398},
        {static_cast<CAMERA_TYPE>(9), 1000, true, 0.001, -1.0},  // the last output is left alone
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ", width " << row.width);
        OpenedCamera opened(row.type);
        opened.camera.pixelCountX = row.width;
        opened.camera.hasGPIO = true;  // the fifth output is the 8-bit mode, whatever this says
        bool has8BitMode = true;
        bool longExposure = !row.longExposure;
        double shortest = -1.0;
        double longest = -1.0;
        EXPECT_TRUE(pointerForm(opened.camera, &has8BitMode, &shortest, &longest, &longExposure));
        EXPECT_EQ(std::tuple(has8BitMode, longExposure, shortest, longest),
                  std::tuple(false, row.longExposure, row.shortest, row.longest));
    }
}

TEST(Capabilities, AClosedCameraHasNone)
{
    OpenedCamera opened;
    opened.camera.pixelCountX = 12;
    opened.usb.close();
    opened.camera.close();
    VornCapabilities caps = {};
    caps.pixelCountX = 77;
    const char* name = "mine";
    EXPECT_FALSE(opened.camera.getCapabilities(&name, nullptr, &caps));
    EXPECT_EQ(std::tuple(caps.pixelCountX, std::string(name)), std::tuple(77U, "mine"));
    EXPECT_EQ(opened.error(), "Device is not opened");
    EXPECT_EQ(opened.camera.pixelCountX, 12U);  // fields keep their values
}

}  // namespace
