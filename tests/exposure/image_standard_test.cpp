// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;
using vorntest::TraceCapture;

/// A camera as after a successful readCCD().
struct ReadOutCamera : OpenedCamera {
    explicit ReadOutCamera(CAMERA_TYPE type = STANDARD) : OpenedCamera(type)
    {
        camera.imageReady = true;
        camera.lock();
    }
};

const char* const LOWER_TIMEOUT = "0C ?? 00 00 E8 03 ...";  // 1000 ms

TEST(GetImage, ReadsLittleEndianPixelsOnceAndReleasesTheLock)
{
    for (const CAMERA_TYPE type : {STANDARD, CLASSIC}) {
        SCOPED_TRACE(type);
        ReadOutCamera opened(type);
        opened.usb.parIn(6, "34 12 FF FF 00 80");
        if (type == STANDARD)
            opened.usb.out(0x04, LOWER_TIMEOUT);
        std::vector<uint16_t> image(4, 0xCCCC);
        EXPECT_TRUE(opened.camera.getImage(image.data(), 3));
        EXPECT_EQ(image, (std::vector<uint16_t>{0x1234, 0xFFFF, 0x8000, 0xCCCC}));
        opened.expectSettled();

        opened.camera.lock();  // somebody else's
        EXPECT_FALSE(opened.camera.getImage(image.data(), 3));
        EXPECT_FALSE(opened.lockFree());
        opened.camera.unlock();
        opened.expectSettled("Operation out of sequence");
    }
}

TEST(GetImage, AFailureReleasesTheLockAndLowersTheTimeoutAllTheSame)
{
    const Steps whole =
        Steps().out(0x04, "09 ?? 00 00 00 00 06 00 ...").in(0x88, 4, "01 02 03").in(0x88, 4, "04 05 06 00");
    for (const bool timeoutFails : {false, true}) {
        forEachFailure(whole, [&](const Steps& steps, bool ok) {
            ReadOutCamera opened;
            opened.camera.setParam(MAX_PACKET_SIZE, 4);
            opened.usb.append(steps).out(0x04, LOWER_TIMEOUT);
            opened.usb.device.fault = {.at = 2, .delayUs = 1500000};
            if (timeoutFails)
                opened.usb.fails();
            uint16_t image[3] = {};
            TraceCapture trace;
            EXPECT_EQ(opened.camera.getImage(image, 3), ok);
            EXPECT_EQ(trace.has("    set timeout 1000 failed"), timeoutFails);
            EXPECT_EQ(trace.has("    elapsed 1.5 s"), steps.size() > 1);
            EXPECT_EQ(image[0], steps.size() > 2 ? 0x0201 : 0);  // what arrived stays
            opened.expectSettled(ok ? "No error" : "Failed to get image");
        });
    }
}

// Twice this many bytes is 0 in 32 bits.
TEST(GetImage, DoesNotWrapTheLength)
{
    ReadOutCamera opened;
    opened.usb.out(0x04, LOWER_TIMEOUT);
    uint16_t image[4] = {};
    EXPECT_FALSE(opened.camera.getImage(image, 0x80000000U));
    opened.expectSettled("Failed to get image");
}

}  // namespace
