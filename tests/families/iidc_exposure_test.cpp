// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "exposure_camera.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::readRegister;
using vorntest::Steps;
using vorntest::TraceCapture;
using vorntest::writeRegister;

/// @p rate and @p shutter may be null: not written.
void writeShort(Steps& usb, const char* rate, const char* shutter, unsigned binning)
{
    if (rate != nullptr)
        writeRegister(usb, 0x0968, rate);
    if (shutter != nullptr)
        writeRegister(usb, 0x0918, shutter);
    if (binning == 1) {
        writeRegister(usb, 0x0608, "00 00 00 40");
        writeRegister(usb, 0x0604, "00 00 00 40");
    } else if (binning == 2) {
        writeRegister(usb, 0x0608, "00 00 00 00");
        writeRegister(usb, 0x0604, "00 00 00 A0");
    }
    writeRegister(usb, 0x061C, "00 00 00 80");
}

TEST(ReadShortIidc, ChoosesTheFastestFrameRateThatHoldsTheShutterTime)
{
    struct {
        double seconds;
        unsigned binning;
        const char* rate;     ///< 15, 7.5, 3.75 or 1.875 as a float
        const char* shutter;  ///< the time as a float
    } const CASES[] = {
        {0.001, 1, "00 00 70 41", "6F 12 83 3A"},
        {0.0666, 2, "00 00 70 41", "95 65 88 3D"},
        {0.066657, 1, "00 00 F0 40", "77 83 88 3D"},  // equal to the limit: the next rate
        {0.1, 1, "00 00 F0 40", "CD CC CC 3D"},
        {0.2, 2, "00 00 70 40", "CD CC 4C 3E"},
        {0.5, 1, "00 00 F0 3F", "00 00 00 3F"},
        {0.53, 3, "00 00 F0 3F", "14 AE 07 3F"},
        {0.532782, 1, nullptr, nullptr},  // equal to the last limit: neither is written
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.seconds);
        ExposureCamera iidc(IIDC);
        writeShort(iidc.usb, row.rate, row.shutter, row.binning);
        EXPECT_TRUE(iidc.camera.readCCD(4, 3, 20, 10, row.binning, row.binning, row.seconds));
        EXPECT_TRUE(iidc.usb.done());
        EXPECT_TRUE(iidc.camera.imageReady);
        EXPECT_EQ(iidc.camera.readoutRegion.height, 10U);
        EXPECT_FALSE(iidc.lockFree());
        iidc.camera.unlock();
    }
}

TEST(ReadShortIidc, RefusesUnequalBinningAndLongTimesWithTheTextUnchanged)
{
    const struct {
        unsigned binX;
        unsigned binY;
        double seconds;  ///< negative: the call for long exposures
        const char* line;
    } CASES[] = {
        {1, 2, 0.1, "<- VornCameraImpl::readCCD 00 - unsupported binning"},
        {2, 1, 9.0, "<- VornCameraImpl::readCCD 00 - unsupported binning"},
        {1, 1, 0.5328, "<- VornCameraImpl::readCCD 00 - too long exposure"},
        {1, 1, -1.0, "    long exposures are unsupported with VORN XR"},
    };
    for (const auto& row : CASES) {
        ExposureCamera iidc(IIDC);
        iidc.camera.imageReady = iidc.camera.exposureStarted = true;
        TraceCapture trace;
        EXPECT_FALSE(row.seconds < 0 ? iidc.camera.readCCD(0, 0, 10, 10, 1, 1)
                                     : iidc.camera.readCCD(0, 0, 10, 10, row.binX, row.binY, row.seconds));
        EXPECT_TRUE(trace.has(row.line));
        EXPECT_FALSE(iidc.camera.imageReady);
        iidc.expectSettled(row.seconds < 0 ? "Failed to read CCD" : "No error");
    }
}

TEST(ReadShortIidc, SucceedsWhateverTheRegistersSay)
{
    Steps whole;
    writeShort(whole, "00 00 F0 40", "CD CC CC 3D", 1);
    for (size_t failing = 0; failing < whole.size(); failing++) {
        ExposureCamera iidc(IIDC);
        iidc.usb.append(whole, 0, failing + 1).fails().append(whole, failing + 1);
        EXPECT_TRUE(iidc.camera.readCCD(0, 0, 10, 10, 1, 1, 0.1));
        EXPECT_TRUE(iidc.camera.imageReady);
        iidc.camera.unlock();
        iidc.expectSettled();
    }
}

TEST(ReadShortIidc, ReadsBackForTheTraceAlone)
{
    ExposureCamera iidc(IIDC);
    writeShort(iidc.usb, "00 00 F0 40", "CD CC CC 3D", 1);
    struct {
        unsigned offset;
        const char* bytes;
    } const READS[] = {{0x0608, "00 00 00 40"}, {0x0604, "01 00 00 40"}, {0x0628, "EF BE AD DE"},
                       {0x0968, "00 00 F0 40"}, {0x0918, "CD CC CC 3D"}, {0x0928, "00 00 80 3F"},
                       {0x0938, "00 00 00 40"}, {0x0948, "00 00 C0 3F"}};
    for (const auto& row : READS)
        readRegister(iidc.usb, row.offset, row.bytes);
    TraceCapture trace;
    EXPECT_TRUE(iidc.camera.readCCD(0, 0, 10, 10, 1, 1, 0.1));
    EXPECT_EQ(trace.text(),
              "-> VornCameraImpl::readCCD(0, 0, 10, 10, 1, 1, 0.100000)\n    lock()\n"
              " -> VornCameraImpl::writeAbsValue(fffff0f00968, 7.5)\n <- VornCameraImpl::writeAbsValue\n"
              " -> VornCameraImpl::writeAbsValue(fffff0f00918, 0.1)\n <- VornCameraImpl::writeAbsValue\n"
              "    format:     40000000\n    mode:       40000001\n    error:      deadbeef\n"
              "    framerate:  7.5\n    shutter:    0.1\n    gain:       1\n    brightness: 2\n    gama:       1.5\n"
              "<- VornCameraImpl::readCCD 1\n");
    iidc.camera.unlock();
}

TEST(GetImageIidc, PutsTheRegionInTheHighBytes)
{
    // a frame of 6 x 4; each byte tells row and column
    const std::vector<uint8_t> frame = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15,
                                        0x20, 0x21, 0x22, 0x23, 0x24, 0x25, 0x30, 0x31, 0x32, 0x33, 0x34, 0x7F};
    const std::vector<uint8_t> binned = {0x00, 0x01, 0x02, 0x10, 0x11, 0xFF};
    struct {
        const char* label;
        ReadoutRegion region;
        std::vector<uint16_t> image;  ///< CCCC is never written
    } const CASES[] = {
        {"upper left", {0, 0, 2, 1, 1, 1}, {0x0000, 0x0100, 0xCCCC}},
        {"lower right", {4, 2, 2, 2, 1, 1}, {0x2400, 0x2500, 0x3400, 0x7F00, 0xCCCC}},
        {"wide", {1, 1, 3, 2, 1, 1}, {0x1100, 0x1200, 0x1300, 0x2100, 0x2200, 0x2300, 0xCCCC}},
        {"binned", {2, 0, 4, 4, 2, 2}, {0x0100, 0x0200, 0x1100, 0xFF00, 0xCCCC}},
        {"below the frame", {0, 2, 1, 4, 1, 1}, {0x2000, 0x3000, 0, 0, 0xCCCC}},  // the width is the limit
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ExposureCamera iidc(IIDC);
        setSensor(iidc.camera, 6, 4);
        iidc.camera.readoutRegion = row.region;
        iidc.camera.imageReady = true;
        const std::vector<uint8_t>& sent = row.region.binX == 2 ? binned : frame;
        iidc.usb.in(0x81, static_cast<int>(sent.size()), sent);
        std::vector<uint16_t> image(row.image.size(), 0xCCCC);
        iidc.usb.device.fault = {.at = 1, .delayUs = 250000};
        TraceCapture trace;
        EXPECT_TRUE(iidc.camera.getImage(image.data(), 9999));  // the count is only traced
        EXPECT_TRUE(trace.has("    elapsed 0.25 s"));
        EXPECT_EQ(image, row.image);
        EXPECT_TRUE(iidc.usb.done());
    }
}

TEST(GetImageIidc, AFailureLeavesTheBufferAlone)
{
    Part frame = part();
    frame.steps.in(0x81, 6000, std::vector<uint8_t>(6000, 0x12));
    expectEachFailureOfStep(IMAGE, IIDC, {frame}, [](VornCameraImpl& camera) {
        camera.readoutRegion = {0, 0, 1, 1, 1, 1};
        uint16_t image[1] = {7};
        const bool ok = camera.getImage(image, 1);
        EXPECT_EQ(image[0], ok ? 0x1200 : 7);
        return ok;
    });
}

}  // namespace
