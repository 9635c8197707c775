// SPDX-License-Identifier: MIT
#include <thread>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
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
        EXPECT_TRUE(opened.usb.done());
        EXPECT_TRUE(opened.lockFree());

        opened.camera.lock();  // somebody else's
        EXPECT_FALSE(opened.camera.getImage(image.data(), 3));
        EXPECT_EQ(opened.error(), "Operation out of sequence");
        EXPECT_FALSE(opened.lockFree());
        opened.camera.unlock();
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
    struct {
        const char* label;
        bool requestFails;
        bool timeoutFails;
        const char* error;
    } const CASES[] = {
        {"request refused", true, false, "Failed to get image"},
        {"data cut off", false, false, "Failed to get image"},
        {"unplugged", false, true, "Failed to get image"},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ReadOutCamera opened;
        opened.usb.out(0x04, "09 ?? 00 00 00 00 06 00 ...");
        if (row.requestFails)
            opened.usb.fails(LIBUSB_ERROR_PIPE);
        else
            opened.usb.in(0x88, 7, "01 02 03").in(0x88, 4, "").fails(LIBUSB_ERROR_TIMEOUT);
        opened.usb.out(0x04, LOWER_TIMEOUT);
        if (row.timeoutFails)
            opened.usb.fails(LIBUSB_ERROR_NO_DEVICE);
        uint16_t image[3] = {};
        TraceCapture trace;
        EXPECT_FALSE(opened.camera.getImage(image, 3));
        EXPECT_TRUE(opened.usb.done());
        EXPECT_TRUE(opened.lockFree());
        EXPECT_EQ(opened.error(), row.error);
        EXPECT_EQ(trace.has("    set timeout 1000 failed"), row.timeoutFails);
        if (!row.requestFails) {
            EXPECT_EQ(image[0], 0x0201);  // what arrived stays
        }
    }
}

TEST(GetImage, AFailedTimeoutAloneIsOnlyMentioned)
{
    ReadOutCamera opened;
    opened.usb.parIn(2, "01 02").out(0x04, LOWER_TIMEOUT).fails();
    uint16_t image[1] = {};
    TraceCapture trace;
    EXPECT_TRUE(opened.camera.getImage(image, 1));
    EXPECT_TRUE(trace.has("    set timeout 1000 failed"));
    EXPECT_EQ(opened.error(), "No error");
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
    EXPECT_EQ(opened.error(), "Failed to get image");
    EXPECT_TRUE(opened.lockFree());
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
