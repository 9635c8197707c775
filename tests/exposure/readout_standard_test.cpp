// SPDX-License-Identifier: MIT
#include <tuple>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;
using vorntest::TraceCapture;

/// A camera of 100 x 60 pixels that bins 3 x 4.
struct SmallCamera : OpenedCamera {
    SmallCamera()
    {
        camera.pixelCountX = 100;
        camera.pixelCountY = 60;
        camera.maxBinX = 3;
        camera.maxBinY = 4;
    }
};

const char* const RAISE_TIMEOUT = "0C ?? 00 00 30 75 ...";  // 30000 ms

TEST(ReadoutRegion, IsCheckedAgainstTheWidthBothWays)
{
    struct {
        const char* label;
        unsigned x, y, width, height, binX, binY;
        const char* geometry;  ///< binning and region as they travel; null when refused
    } const CASES[] = {
        {"whole sensor", 0, 0, 100, 60, 1, 1, "01 00 01 00 00 00 00 00 64 00 3C 00"},
        {"as high as the sensor is wide", 0, 0, 100, 100, 1, 1, "01 00 01 00 00 00 00 00 64 00 64 00"},
        {"low rows below the sensor", 5, 60, 95, 40, 3, 4, "03 00 04 00 05 00 3C 00 5F 00 28 00"},
        {"a sum that wraps", 0xFFFFFFFF, 0, 2, 1, 1, 1, "01 00 01 00 FF FF 00 00 02 00 01 00"},
        {"nothing at all", 100, 100, 0, 0, 1, 1, "01 00 01 00 64 00 64 00 00 00 00 00"},
        {"too wide", 0, 0, 101, 1, 1, 1, nullptr},
        {"too far right", 1, 0, 100, 1, 1, 1, nullptr},
        {"too high", 0, 0, 1, 101, 1, 1, nullptr},
        {"too far down", 0, 41, 1, 60, 1, 1, nullptr},
        {"binX 0", 0, 0, 1, 1, 0, 1, nullptr},
        {"binY 0", 0, 0, 1, 1, 1, 0, nullptr},
        {"binX too large", 0, 0, 1, 1, 4, 1, nullptr},
        {"binY too large", 0, 0, 1, 1, 1, 5, nullptr},
    };
    for (const auto& row : CASES) {
        for (const bool longForm : {true, false}) {
            SCOPED_TRACE(std::string(row.label) + (longForm ? ", long" : ", short"));
            SmallCamera small;
            small.camera.exposureStarted = longForm;
            small.camera.imageReady = true;
            if (row.geometry != nullptr && longForm) {
                small.usb.out(0x04, RAISE_TIMEOUT).command("02 00 01 00");
                small.usb.command(std::string("06 00 00 00 ") + row.geometry + " 43 00");
            } else if (row.geometry != nullptr) {
                small.usb.out(0x04, RAISE_TIMEOUT).command("02 00 00 00").command("04 00").command("05 00");
                small.usb.command(std::string("06 00 F4 01 ") + row.geometry + " 43 00").pause(500000);
            }
            TraceCapture trace;
            EXPECT_EQ(longForm ? small.camera.readCCD(row.x, row.y, row.width, row.height, row.binX, row.binY)
                               : small.camera.readCCD(row.x, row.y, row.width, row.height, row.binX, row.binY, 0.5),
                      row.geometry != nullptr);
            EXPECT_TRUE(small.usb.done());
            const bool accepted = row.geometry != nullptr;
            EXPECT_EQ(std::tuple(bool(small.camera.exposureStarted), bool(small.camera.imageReady), small.lockFree()),
                      std::tuple(false, accepted, !accepted));
            EXPECT_EQ(small.error(), accepted ? "No error" : "Invalid parameter");
            // a refusal of the long form releases a lock it has not taken
            EXPECT_EQ(trace.has("    unlock()"), longForm && !accepted);
            small.camera.unlock();
        }
    }
    SmallCamera idle;
    idle.camera.imageReady = true;
    EXPECT_FALSE(idle.camera.readCCD(0, 0, 100, 60, 1, 1));
    idle.expectSettled("Operation out of sequence");
    EXPECT_TRUE(idle.camera.imageReady);
}

TEST(ReadLong, ClosesTheShutterAndEndsAtTheFirstFailure)
{
    struct {
        bool hasShutter;
        bool preview;
        const char* flags;
    } const CASES[] = {{false, true, "43 01"}, {true, false, "43 00"}};
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.flags);
        Steps whole;
        whole.command("02 00 01 00");
        if (row.hasShutter)
            whole.command("09 00 00 00");
        whole.command(std::string("06 00 00 00 02 00 01 00 0A 00 14 00 1E 00 28 00 ") + row.flags);
        forEachFailure(whole, [&](const Steps& steps, bool ok) {
            SmallCamera small;
            small.camera.hasShutter = row.hasShutter;
            small.camera.darkFrameMode = true;  // no matter to the long form
            small.camera.previewMode = row.preview;
            small.camera.exposureStarted = true;
            small.usb.out(0x04, RAISE_TIMEOUT).append(steps);
            EXPECT_EQ(small.camera.readCCD(10, 20, 30, 40, 2, 1), ok);
            EXPECT_FALSE(small.camera.exposureStarted);
            EXPECT_EQ(small.camera.imageReady, ok);
            EXPECT_EQ(small.lockFree(), !ok);
            EXPECT_EQ(small.camera.readoutRegion.width, 0U);  // this family does not remember it
            small.camera.unlock();
            small.expectSettled(ok ? "No error" : "Failed to read CCD");
        });
    }
}

TEST(ReadShort, SendsTheExposureCodeAndWaitsForIt)
{
    struct {
        double seconds;
        bool preview;
        bool dark;
        const char* code;
        const char* flags;
        long waitUs;
    } const CASES[] = {
        {0.0, false, false, "01 00", "43 04", 1},       {0.02, false, false, "20 4E", "43 04", 20000},
        {0.02, true, true, "20 4E", "43 15", 20000},    {0.05, false, false, "32 00", "43 00", 50000},
        {0.05, false, true, "32 00", "43 10", 50000},   {0.0525, true, false, "34 00", "43 01", 52000},
        {3.0, false, false, "B8 0B", "43 00", 3000000}, {10.0, false, false, "B8 0B", "43 00", 3000000},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.seconds);
        SmallCamera small;
        small.camera.previewMode = row.preview;
        small.camera.darkFrameMode = row.dark;
        small.camera.hasShutter = true;       // no matter to the short form
        small.camera.exposureStarted = true;  // nor this
        small.usb.out(0x04, RAISE_TIMEOUT).command("02 00 00 00").command("04 00").command("05 00");
        small.usb.command(std::string("06 00 ") + row.code + " 01 00 01 00 00 00 00 00 64 00 3C 00 " + row.flags);
        small.usb.pause(row.waitUs);
        EXPECT_TRUE(small.camera.readCCD(0, 0, 100, 60, 1, 1, row.seconds));
        EXPECT_TRUE(small.usb.done());
        EXPECT_TRUE(small.camera.exposureStarted);
        EXPECT_TRUE(small.camera.imageReady);
        EXPECT_FALSE(small.lockFree());
        small.camera.unlock();
    }
}

TEST(ReadShort, WaitsAfterAFailedReadoutCommandOnly)
{
    const Steps whole = Steps()
                            .command("02 00 00 00")
                            .command("04 00")
                            .command("05 00")
                            .command("06 00 64 00 01 00 01 00 00 00 00 00 64 00 3C 00 43 00");
    forEachFailure(whole, [](const Steps& steps, bool ok) {
        SmallCamera small;
        small.usb.out(0x04, RAISE_TIMEOUT).append(steps);
        if (steps.size() > 9)
            small.usb.pause(100000);
        EXPECT_EQ(small.camera.readCCD(0, 0, 100, 60, 1, 1, 0.1), ok);
        EXPECT_EQ(small.camera.imageReady, ok);
        EXPECT_EQ(small.lockFree(), !ok);
        small.camera.unlock();
        small.expectSettled(ok ? "No error" : "Failed to read CCD");
    });
}

TEST(Readout, GoesOnWhenTheTimeoutCannotBeRaised)
{
    SmallCamera small;
    small.camera.exposureStarted = true;
    small.usb.out(0x04, RAISE_TIMEOUT).fails().command("02 00 01 00");
    small.usb.command("06 00 00 00 01 00 01 00 00 00 00 00 64 00 3C 00 43 00");
    EXPECT_TRUE(small.camera.readCCD(0, 0, 100, 60, 1, 1));
    small.camera.unlock();
}

}  // namespace
