// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::Script;

TEST(Construction, SetsTheDefaults)
{
    Script usb;
    VornHostBulkTimeout = 1500;
    VornCameraImpl camera(&usb.device, "Vorn K16", ADVANCED);
    VornHostBulkTimeout = 30000;
    EXPECT_STREQ(camera.getName(), "Vorn K16");
    EXPECT_EQ(camera.timeout, 1500U);
    EXPECT_EQ(camera.quickerStartExposureDelay, 200000);
    EXPECT_EQ(camera.quickerReadCCDDelay, 100000);
    EXPECT_FALSE(camera.hasShutter || camera.hasGuidePort || camera.has8BitMode || camera.hasFilterWheel ||
                 camera.hasGPIO || camera.exposureStarted || camera.imageReady || camera.previewMode ||
                 camera.eightBitMode || camera.darkFrameMode || camera.pcCds || camera.cooler != COOLER_NONE);
    EXPECT_EQ(camera.pixelCountX + camera.pixelCountY + camera.maxBinX + camera.maxBinY + camera.tempSensorCount +
                  camera.lineCount + camera.guideRelayState + camera.prechargeOffset + camera.getSerialNumber() +
                  camera.getVersionMajor() + camera.getVersionMinor(),
              0U);
    EXPECT_STREQ(camera.getLastError(), "No error");
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
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ", parameter " << row.param);
        Script usb;
        VornCameraImpl camera(&usb.device, "Vorn", row.type);
        EXPECT_EQ(camera.getParam(row.param), row.initial);
        EXPECT_EQ(camera.setParam(row.param, -77), row.supported);  // no value is refused
        EXPECT_EQ(camera.getParam(row.param), row.supported ? -77 : 0);
        EXPECT_STREQ(camera.getLastError(), row.supported ? "No error" : "Invalid parameter");
    }
}

}  // namespace
