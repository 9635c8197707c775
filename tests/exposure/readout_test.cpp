// SPDX-License-Identifier: MIT
#include <tuple>

#include <gtest/gtest.h>

#include "family_steps.h"
#include "sensor_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::Steps;
using vorntest::TraceCapture;
using vorntest::writeRegister;

TEST(ReadoutRegion, IsCheckedAgainstTheWidthBothWays)
{
    struct {
        const char* label;
        ReadoutRegion region;
        const char* geometry;  ///< binning and region as they travel; null when refused
    } const CASES[] = {
        {"whole sensor", {0, 0, 100, 60, 1, 1}, "01 00 01 00 00 00 00 00 64 00 3C 00"},
        {"as high as the sensor is wide", {0, 0, 100, 100, 1, 1}, "01 00 01 00 00 00 00 00 64 00 64 00"},
        {"low rows below the sensor", {5, 60, 95, 40, 3, 4}, "03 00 04 00 05 00 3C 00 5F 00 28 00"},
        {"a sum that wraps", {0xFFFFFFFF, 0, 2, 1, 1, 1}, "01 00 01 00 FF FF 00 00 02 00 01 00"},
        {"nothing at all", {100, 100, 0, 0, 1, 1}, "01 00 01 00 64 00 64 00 00 00 00 00"},
        {"too wide", {0, 0, 101, 1, 1, 1}, nullptr},
        {"too far right", {1, 0, 100, 1, 1, 1}, nullptr},
        {"too high", {0, 0, 1, 101, 1, 1}, nullptr},
        {"too far down", {0, 41, 1, 60, 1, 1}, nullptr},
        {"binX 0", {0, 0, 1, 1, 0, 1}, nullptr},
        {"binY 0", {0, 0, 1, 1, 1, 0}, nullptr},
        {"binX too large", {0, 0, 1, 1, 4, 1}, nullptr},
        {"binY too large", {0, 0, 1, 1, 1, 5}, nullptr},
    };
    for (const auto& row : CASES) {
        for (const bool longForm : {true, false}) {
            SCOPED_TRACE(std::string(row.label) + (longForm ? ", long" : ", short"));
            SensorCamera small;
            small.camera.maxBinX = 3;
            small.camera.imageReady = true;
            if (row.geometry != nullptr && longForm) {
                small.usb.out(0x04, RAISE_TIMEOUT).command("02 00 01 00");
                small.usb.command(std::string("06 00 00 00 ") + row.geometry + " 43 00");
            } else if (row.geometry != nullptr) {
                small.usb.out(0x04, RAISE_TIMEOUT).command("02 00 00 00").command("04 00").command("05 00");
                small.usb.command(std::string("06 00 F4 01 ") + row.geometry + " 43 00").pause(500000);
            }
            TraceCapture trace;
            EXPECT_EQ(longForm ? small.readLong(row.region) : small.readShort(row.region, 0.5),
                      row.geometry != nullptr);
            // a refusal of the long form releases a lock it has not taken
            EXPECT_EQ(trace.has("    unlock()"), longForm && row.geometry == nullptr);
            EXPECT_FALSE(small.camera.exposureStarted);
            if (row.geometry != nullptr) {
                small.expectReadOut();
            } else {
                EXPECT_FALSE(small.camera.imageReady);
                small.expectSettled("Invalid parameter");
            }
        }
    }
    for (const bool longForm : {true, false}) {
        SensorCamera unknown(static_cast<CAMERA_TYPE>(6));
        EXPECT_FALSE(longForm ? unknown.readLong({0, 0, 1, 1, 1, 1}) : unknown.readShort({0, 0, 1, 1, 1, 1}, 0.5));
        unknown.expectSettled("Failed to read CCD");
    }
    SensorCamera idle;
    idle.camera.imageReady = true;
    EXPECT_FALSE(idle.camera.readCCD(0, 0, 100, 60, 1, 1));
    idle.expectSettled("Operation out of sequence");
    EXPECT_TRUE(idle.camera.imageReady);
}

constexpr double LONG = -1.0;

// Of the region 0x102, 5, 0x304 x 60, binned 2 x 3. STANDARD numbers go low byte first, ADVANCED ones high byte first;
// CLASSIC columns 259 to 1031 and rows 6 to 65 count from 1, the ends are one past the last. QUICKER cameras learn the
// binning alone.
TEST(ReadCommand, SendsCodeGeometryAndFlags)
{
    const char* const GEOMETRY[] = {" 02 03 03 01 06 00 07 04 42 00 ", " 02 00 03 00 02 01 05 00 04 03 3C 00 ", "", "",
                                    " 00 02 00 03 01 02 00 05 03 04 00 3C "};
    enum Mode { PREVIEW = 1, EIGHT_BIT = 2, DARK = 4 };
    const struct {
        CAMERA_TYPE type;
        double seconds;
        unsigned modes;
        const char* code;
        const char* flags;
        long waitUs = 0;
    } CASES[] = {
        {STANDARD, 0.0, 0, "01 00", "43 04", 1},
        {STANDARD, 0.02, PREVIEW | DARK, "20 4E", "43 15", 20000},
        {STANDARD, 0.05, DARK | EIGHT_BIT, "32 00", "43 10", 50000},
        {STANDARD, 0.0525, PREVIEW, "34 00", "43 01", 52000},
        {STANDARD, 10.0, 0, "B8 0B", "43 00", 3000000},
        {ADVANCED, LONG, PREVIEW, "00 00", "01 43"},
        {ADVANCED, LONG, EIGHT_BIT, "00 00", "20 43"},
        {ADVANCED, 0.0, DARK, "00 01", "04 03", 1},
        {ADVANCED, 0.02, PREVIEW | EIGHT_BIT, "4E 20", "25 03", 20000},
        {ADVANCED, 10.0, EIGHT_BIT, "0B B8", "20 03", 3000000},
        {CLASSIC, LONG, PREVIEW, "00", "01 03"},
        {CLASSIC, 0.0, DARK, "01", "00 03", 1000},
        {CLASSIC, 0.01, 0, "0A", "00 03", 10000},
        {CLASSIC, 5.0, PREVIEW | EIGHT_BIT, "FF", "01 03", 2460000},
        {QUICKER, 0.0, 0, "50 01", "", 341},
        {QUICKER, 5.0, 0, "5F FF", "", 1397760},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ", " << row.seconds << " s, modes " << row.modes);
        SensorCamera exposed(row.type, 0x1000, 0x800);
        exposed.camera.previewMode = (row.modes & PREVIEW) != 0;
        exposed.camera.eightBitMode = (row.modes & EIGHT_BIT) != 0;
        exposed.camera.darkFrameMode = (row.modes & DARK) != 0;
        const std::string readout = std::string("06 ") + row.code + GEOMETRY[row.type - 1] + row.flags;
        if (row.type == STANDARD) {
            exposed.usb.out(0x04, RAISE_TIMEOUT).command("02 00 00 00").command("04 00").command("05 00");
            exposed.usb.command("06 00 " + readout.substr(3));
        } else if (row.type == ADVANCED) {
            vorntest::advancedCommand(exposed.usb, readout);
        } else if (row.type == QUICKER) {
            exposed.usb.out(0x04, RAISE_TIMEOUT);
            for (const char* words : {"82 10", "82 10", "27 A0", row.code})
                vorntest::spiWrite(exposed.usb, words);
        } else {
            if (row.seconds < 0)
                vorntest::classicCommand(vorntest::classicCommand(exposed.usb, "42").pause(2000000), "02 01 00");
            vorntest::classicCommand(exposed.usb, readout);
        }
        if (row.waitUs != 0)
            exposed.usb.pause(row.waitUs);
        const ReadoutRegion region = {0x102, 5, 0x304, 60, 2, 3};
        EXPECT_TRUE(row.seconds < 0 ? exposed.readLong(region) : exposed.readShort(region, row.seconds));
        EXPECT_EQ(exposed.camera.readoutRegion.x, row.type == QUICKER ? 0x102U : 0U);  // the others do not remember it
        EXPECT_EQ(exposed.camera.readoutRegion.binY, row.type == QUICKER ? 3U : 0U);
        exposed.expectReadOut();
    }
}

TEST(ReadShortIidc, ChoosesTheFastestFrameRate)
{
    struct {
        double seconds;
        unsigned binning;
        const char* rate;     ///< 15, 7.5, 3.75 or 1.875 as a float; null: not written
        const char* shutter;  ///< the time as a float
    } const CASES[] = {
        {0.001, 1, "00 00 70 41", "6F 12 83 3A"},
        {0.0666, 2, "00 00 70 41", "95 65 88 3D"},
        {0.066657, 1, "00 00 F0 40", "77 83 88 3D"},  // equal to the limit: the next rate
        {0.2, 2, "00 00 70 40", "CD CC 4C 3E"},
        {0.53, 3, "00 00 F0 3F", "14 AE 07 3F"},
        {0.532782, 1, nullptr, nullptr},  // equal to the last limit: neither is written
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.seconds);
        SensorCamera iidc(IIDC);
        if (row.rate != nullptr)
            writeRegister(writeRegister(iidc.usb, 0x0968, row.rate), 0x0918, row.shutter);
        if (row.binning < 3) {
            writeRegister(iidc.usb, 0x0608, row.binning == 1 ? "00 00 00 40" : "00 00 00 00");
            writeRegister(iidc.usb, 0x0604, row.binning == 1 ? "00 00 00 40" : "00 00 00 A0");
        }
        writeRegister(iidc.usb, 0x061C, "00 00 00 80");
        EXPECT_TRUE(iidc.readShort({4, 3, 20, 10, row.binning, row.binning}, row.seconds));
        EXPECT_EQ(iidc.camera.readoutRegion.height, 10U);
        iidc.expectReadOut();
    }
}

TEST(ReadShortIidc, RefusalsLeaveTheText)
{
    const std::tuple<unsigned, unsigned, double, const char*> CASES[] = {
        {1, 2, 0.1, "<- VornCameraImpl::readCCD 00 - unsupported binning"},
        {2, 1, 9.0, "<- VornCameraImpl::readCCD 00 - unsupported binning"},
        {1, 1, 0.5328, "<- VornCameraImpl::readCCD 00 - too long exposure"},
        {1, 1, LONG, "    long exposures are unsupported with VORN XR"},
    };
    for (const auto& [binX, binY, seconds, line] : CASES) {
        SensorCamera iidc(IIDC);
        iidc.camera.imageReady = true;
        const ReadoutRegion region = {0, 0, 10, 10, binX, binY};
        TraceCapture trace;
        EXPECT_FALSE(seconds < 0 ? iidc.readLong(region) : iidc.readShort(region, seconds));
        EXPECT_TRUE(trace.has(line));
        EXPECT_FALSE(iidc.camera.imageReady);
        iidc.expectSettled(seconds < 0 ? "Failed to read CCD" : "No error");
    }
}

TEST(ReadShortIidc, ReadsBackForTheTraceAlone)
{
    SensorCamera iidc(IIDC);
    writeRegister(iidc.usb, 0x061C, "00 00 00 80");
    const std::pair<unsigned, const char*> READS[] = {
        {0x0608, "00 00 00 40"}, {0x0604, "01 00 00 40"}, {0x0628, "EF BE AD DE"}, {0x0968, "00 00 F0 40"},
        {0x0918, "CD CC CC 3D"}, {0x0928, "00 00 80 3F"}, {0x0938, "00 00 00 40"}, {0x0948, "00 00 C0 3F"}};
    for (const auto& [offset, bytes] : READS)
        vorntest::readRegister(iidc.usb, offset, bytes);
    TraceCapture trace;
    EXPECT_TRUE(iidc.readShort({0, 0, 10, 10, 3, 3}, 0.532782));
    EXPECT_EQ(trace.text(),
              "-> VornCameraImpl::readCCD(0, 0, 10, 10, 3, 3, 0.532782)\n    lock()\n"
              "    format:     40000000\n    mode:       40000001\n    error:      deadbeef\n"
              "    framerate:  7.5\n    shutter:    0.1\n    gain:       1\n    brightness: 2\n    gama:       1.5\n"
              "<- VornCameraImpl::readCCD 1\n");
    iidc.expectReadOut();
}

}  // namespace
