// SPDX-License-Identifier: MIT
#include <cstring>
#include <tuple>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "opening.h"

namespace {

using vorntest::OpenedCamera;

TEST(NewCamera, KnowsNothingOfItself)
{
    vorntest::Script usb;
    const VornCameraImpl camera(&usb.device, "Vorn", STANDARD);
    EXPECT_EQ(
        describe(camera),
        "version 0.0, 0 x 0 of 0.00 x 0.00 um, binning 0 x 0, sensors 0 of type 0, cooler 0 from 0 to 0, colour 1 "
        "at 0 0, lines 0, serial 0, clear 300000, precharge 0:.");
    EXPECT_FALSE(camera.exposureStarted || camera.imageReady || camera.previewMode || camera.eightBitMode ||
                 camera.darkFrameMode);
    EXPECT_EQ(camera.guideRelayState, 0);
    EXPECT_EQ(camera.openRetried, 0);
    const ReadoutRegion& region = camera.readoutRegion;
    EXPECT_EQ(region.x | region.y | region.width | region.height | region.binX | region.binY, 0U);
}

TEST(Parameters, BelongToTheirFamilies)
{
    struct {
        CAMERA_TYPE type;
        PARAM_TYPE param;
        bool supported;
        long initial;
    } const CASES[] = {
        {QUICKER, QUICKER_START_EXPOSURE_DELAY, true, 200000}, {QUICKER, QUICKER_READ_CCD_DELAY, true, 100000},
        {QUICKER, MAX_PACKET_SIZE, true, 0x1800000},           {STANDARD, MAX_PACKET_SIZE, true, 0x1800000},
        {STANDARD, QUICKER_START_EXPOSURE_DELAY, false, 0},    {STANDARD, QUICKER_READ_CCD_DELAY, false, 0},
        {QUICKER, static_cast<PARAM_TYPE>(4), false, 0},
    };
    VornHostBulkTimeout = 1500;
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ", parameter " << row.param);
        vorntest::Script usb;
        VornCameraImpl camera(&usb.device, "Vorn", row.type);
        EXPECT_STREQ(camera.getName(), "Vorn");
        EXPECT_EQ(camera.timeout, 1500U);
        EXPECT_EQ(camera.getParam(row.param), row.initial);
        EXPECT_EQ(camera.setParam(row.param, -77), row.supported);  // no value is refused
        EXPECT_EQ(camera.getParam(row.param), row.supported ? -77 : 0);
        EXPECT_STREQ(camera.getLastError(), row.supported ? "No error" : "Invalid parameter");
    }
    VornHostBulkTimeout = 30000;
}

TEST(Capabilities, RecordFormGivesEveryField)
{
    OpenedCamera opened;
    VornCameraImpl& camera = opened.camera;
    camera.hasShutter = camera.has8BitMode = true;
    camera.lineCount = 11;
    std::tie(camera.pixelCountX, camera.pixelCountY, camera.pixelSizeX, camera.pixelSizeY) =
        std::tuple(12, 13, 1.5, 2.5);
    std::tie(camera.maxBinX, camera.maxBinY, camera.tempSensorCount, camera.offsetX) = std::tuple(14, 15, 16, 1);
    std::tie(camera.cooler, camera.colour) = std::tuple(COOLER_SELECTPOWER, COLOUR_RGGB);
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

TEST(Capabilities, RecordFormAsksThroughTheVirtualTable)
{
    struct Overridden : VornCameraImpl {
        using VornCameraImpl::getCapabilities;
        using VornCameraImpl::VornCameraImpl;
        bool getCapabilities(const char** /*name*/, CAMERA_TYPE* /*type*/, bool* /*shutter*/, bool* /*guide*/,
                             bool* eightBit, bool* /*wheel*/, unsigned* /*lines*/, unsigned* /*x*/, unsigned* /*y*/,
                             double* /*sizeX*/, double* /*sizeY*/, unsigned* /*binX*/, unsigned* /*binY*/,
                             unsigned* /*sensors*/, COOLER_TYPE* /*cooler*/, COLOUR_TYPE* /*colour*/, int* /*offsetX*/,
                             int* /*offsetY*/, bool* /*longExposure*/, double* /*shortest*/, double* longest) override
        {
            *eightBit = true;
            *longest = 77.0;
            return true;
        }
    };
    vorntest::Script usb;
    Overridden camera(&usb.device, "Vorn", STANDARD);
    VornCapabilities caps = {};
    EXPECT_TRUE(camera.getCapabilities(nullptr, nullptr, &caps));  // although it is closed
    EXPECT_EQ(std::tuple(caps.has8BitMode, caps.maxShortExposure), std::tuple(true, 77.0));
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
        EXPECT_TRUE(opened.camera.getCapabilities(
            nullptr, nullptr, nullptr, nullptr, &has8BitMode, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
            nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &longExposure, &shortest, &longest));
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
    opened.camera.close();  // nothing more
    VornCapabilities caps = {};
    const char* name = "mine";
    EXPECT_FALSE(opened.camera.getCapabilities(&name, nullptr, &caps));
    EXPECT_EQ(std::tuple(caps.pixelCountX, std::string(name)), std::tuple(0U, "mine"));
    EXPECT_EQ(opened.camera.pixelCountX, 12U);  // fields keep their values
    opened.expectSettled("Device is not opened");
}

TEST(Destroy, LeavesAnOpenHandleAlone)
{
    VornCamera_destroy(nullptr);
    vorntest::Script usb;
    auto* camera = new VornCameraImpl(&usb.device, "Vorn K12", STANDARD);
    camera->handle = usb.device.openHandle();
    VornCamera_destroy(camera);  // the script expects no close
    EXPECT_EQ(usb.device.openCount, 1);
}

}  // namespace
