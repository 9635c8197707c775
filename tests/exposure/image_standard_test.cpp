// SPDX-License-Identifier: MIT
#include <thread>

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

TEST(GetImage, AsksInChunksAndGoesOnAfterShortOnes)
{
    ReadOutCamera opened;
    opened.camera.setParam(MAX_PACKET_SIZE, 512);
    opened.usb.out(0x04, "09 ?? 00 00 00 00 58 02 ...");
    opened.usb.in(0x88, 512, std::vector<uint8_t>(512, 0x11)).in(0x88, 89, std::vector<uint8_t>(9, 0x22));
    opened.usb.in(0x88, 80, std::vector<uint8_t>(80, 0x33)).out(0x04, LOWER_TIMEOUT);
    std::vector<uint16_t> image(300);
    EXPECT_TRUE(opened.camera.getImage(image.data(), 300));
    EXPECT_EQ(image[255], 0x1111);
    EXPECT_EQ(image[256], 0x2222);
    EXPECT_EQ(image[260], 0x3322);  // the ninth byte was the last of the short transfer
    EXPECT_EQ(image[299], 0x3333);
}

TEST(GetImage, AFailureReleasesTheLockAndLowersTheTimeoutAllTheSame)
{
    const Steps whole =
        Steps().out(0x04, "09 ?? 00 00 00 00 06 00 ...").in(0x88, 7, "01 02 03").in(0x88, 4, "04 05 06 00");
    for (const bool timeoutFails : {false, true}) {
        forEachFailure(whole, [&](const Steps& steps, bool ok) {
            ReadOutCamera opened;
            opened.usb.append(steps).out(0x04, LOWER_TIMEOUT);
            if (timeoutFails)
                opened.usb.fails();
            uint16_t image[3] = {};
            TraceCapture trace;
            EXPECT_EQ(opened.camera.getImage(image, 3), ok);
            EXPECT_EQ(trace.has("    set timeout 1000 failed"), timeoutFails);
            EXPECT_EQ(image[0], steps.size() > 2 ? 0x0201 : 0);  // what arrived stays
            opened.expectSettled(ok ? "No error" : "Failed to get image");
        });
    }
}

TEST(GetImage, TellsTheTimeItTook)
{
    ReadOutCamera opened;
    opened.usb.parIn(2, "01 02").out(0x04, LOWER_TIMEOUT);
    opened.usb.device.fault = {.at = 2, .delayUs = 1500000};
    uint16_t image[1] = {};
    TraceCapture trace;
    EXPECT_TRUE(opened.camera.getImage(image, 1));
    EXPECT_TRUE(trace.has("    elapsed 1.5 s"));
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

TEST(GetImage, NothingElseReachesTheCameraFromReadoutToImage)
{
    OpenedCamera opened;
    opened.camera.pixelCountX = opened.camera.pixelCountY = 10;
    opened.camera.maxBinX = opened.camera.maxBinY = 1;
    opened.camera.hasFilterWheel = true;
    opened.usb.out(0x04, "0C ?? 00 00 30 75 ...").command("02 00 00 00").command("04 00").command("05 00");
    opened.usb.command("06 00 64 00 01 00 01 00 00 00 00 00 01 00 01 00 43 00").pause(100000);
    opened.usb.parIn(2, "01 02").out(0x04, LOWER_TIMEOUT);
    opened.usb.command("87 00").parIn(8, "05 00 00 00 02 00 02 00");  // of the other thread
    TraceCapture trace;
    ASSERT_TRUE(opened.camera.readCCD(0, 0, 1, 1, 1, 1, 0.1));
    std::thread other([&] { EXPECT_TRUE(opened.camera.getFilterWheelStatus(nullptr, nullptr, nullptr, nullptr)); });
    while (trace.textSoFar().find("lock busy") == std::string::npos)
        std::this_thread::yield();
    uint16_t image[1] = {};
    EXPECT_TRUE(opened.camera.getImage(image, 1));
    other.join();
    EXPECT_TRUE(opened.usb.done());
}

}  // namespace
