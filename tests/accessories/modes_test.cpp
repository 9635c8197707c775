// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;

TEST(Modes, BelongToTheirFamilies)
{
    struct {
        CAMERA_TYPE type;
        bool preview;
        bool eightBit;
        bool dark;
    } const CASES[] = {
        {STANDARD, true, false, true},  {CLASSIC, true, false, false}, {ADVANCED, true, true, false},
        {QUICKER, false, false, false}, {IIDC, false, false, false},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type);
        OpenedCamera opened(row.type);
        VornCameraImpl& camera = opened.camera;
        camera.lock();  // none of them waits for it
        // the value already set is fine everywhere
        EXPECT_TRUE(camera.setPreviewMode(false) && camera.set8BitMode(false) && camera.setDarkFrameMode(false));
        EXPECT_EQ(opened.error(), "No error");

        EXPECT_EQ(camera.setDarkFrameMode(true), row.dark);
        EXPECT_EQ(opened.error(), "No error");  // a refusal leaves the text, unlike the next two
        EXPECT_EQ(camera.setPreviewMode(true), row.preview);
        EXPECT_EQ(opened.error(), row.preview ? "No error" : "Unsupported operation");
        camera.lastError = "No error";
        EXPECT_EQ(camera.set8BitMode(true), row.eightBit);
        EXPECT_EQ(opened.error(), row.eightBit ? "No error" : "Unsupported operation");
        EXPECT_EQ(camera.previewMode, row.preview);
        EXPECT_EQ(camera.eightBitMode, row.eightBit);
        EXPECT_EQ(camera.darkFrameMode, row.dark);
        camera.unlock();
    }
}

TEST(Shutter, MovesOnStandardCamerasOnly)
{
    OpenedCamera standard;
    EXPECT_FALSE(standard.camera.setShutter(true));
    EXPECT_EQ(standard.error(), "Unsupported operation");
    standard.camera.hasShutter = true;
    standard.usb.command("09 00 01 00").command("09 00 00 00");
    EXPECT_TRUE(standard.camera.setShutter(true));
    EXPECT_TRUE(standard.camera.setShutter(false));
    standard.usb.out(0x02, "43 00 4D 00 44 00 09 00 01 00").fails();
    EXPECT_FALSE(standard.camera.setShutter(true));
    EXPECT_EQ(standard.error(), "Failed to set shutter");
    EXPECT_TRUE(standard.lockFree());

    for (const CAMERA_TYPE type : {CLASSIC, ADVANCED, QUICKER, IIDC}) {
        OpenedCamera other(type);
        other.camera.hasShutter = true;
        EXPECT_FALSE(other.camera.setShutter(true));
        EXPECT_EQ(other.error(), "Failed to set shutter");
    }
}

TEST(GuideRelays, OpenAllFirstAndCloseAtMostOneOfAPair)
{
    struct {
        unsigned short mask;
        std::vector<const char*> relays;
    } const CASES[] = {
        {0x0, {}},
        {0x1, {"14 00"}},
        {0x2, {"15 00"}},
        {0x3, {"14 00"}},
        {0x4, {"16 00"}},
        {0x8, {"17 00"}},
        {0xC, {"16 00"}},
        {0x5, {"14 00", "16 00"}},
        {0xA, {"15 00", "17 00"}},
        {0xFFF0, {}},
        {0xFFFF, {"14 00", "16 00"}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.mask);
        Steps whole;
        whole.command("18 00");
        for (const char* relay : row.relays)
            whole.pause(5000).command(relay);
        forEachFailure(whole, [&](const Steps& steps, bool ok) {
            OpenedCamera standard;
            standard.camera.hasGuidePort = true;
            standard.usb.append(steps);
            EXPECT_EQ(standard.camera.setGuideRelays(row.mask), ok);
            EXPECT_EQ(standard.camera.guideRelayState, 0);
            standard.expectSettled(ok ? "No error" : "Failed to set guide relays");
        });
    }
    OpenedCamera without;
    EXPECT_FALSE(without.camera.setGuideRelays(1));
    EXPECT_EQ(without.error(), "Unsupported operation");
}

}  // namespace
