// SPDX-License-Identifier: MIT
// Exposures of ADVANCED and CLASSIC cameras, which are driven by commands.
#include <gtest/gtest.h>

#include "exposure_camera.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::advancedPing;
using vorntest::TraceCapture;
using Image = std::vector<uint16_t>;

constexpr double LONG = -1.0;

Part command(CAMERA_TYPE type, const std::string& hex)
{
    Part exchange = part();
    if (type == ADVANCED)
        advancedCommand(exchange.steps, hex);
    else
        vorntest::classicCommand(exchange.steps, hex);
    return exchange;
}

Part waiting(long us)
{
    Part wait = part(Part::UNTRIED);
    wait.steps.pause(us);
    return wait;
}

TEST(StartExposure, AdvancedWaitsForThePingAndClassicDoesNot)
{
    for (const CAMERA_TYPE type : {ADVANCED, CLASSIC}) {
        Part ping = part(Part::UNTRIED);  // its failures mean another try
        if (type == ADVANCED) {
            advancedPing(ping.steps, "00 7A").pause(25000);
            advancedPing(ping.steps, "00 7B", "00 7B").pause(25000);
            advancedPing(ping.steps);
        }
        const Parts parts = {command(type, "02 00 00"), command(type, "04"), ping, command(type, "05")};
        expectEachFailureOfStep(START, type, parts, [](VornCameraImpl& camera) {
            camera.hasShutter = true;  // no matter to these families
            return camera.startExposure(true);
        });
    }
}

TEST(StartExposureAdvanced, GivesUpAtTheFourHundredAndFirstPing)
{
    for (const bool answers : {true, false}) {
        ExposureCamera advanced(ADVANCED);
        append(advanced.usb, {command(ADVANCED, "02 00 00"), command(ADVANCED, "04")});
        for (int failed = 0; failed < 400; failed++)
            advancedPing(advanced.usb, "00 00", "00 00").pause(25000);
        if (answers)
            advancedCommand(advancedPing(advanced.usb), "05");
        else
            advancedPing(advanced.usb, "00 00", "00 00");
        TraceCapture trace;
        EXPECT_EQ(advanced.camera.startExposure(false), answers);
        EXPECT_EQ(trace.has("    Waited too long for ping"), !answers);
        EXPECT_EQ(advanced.camera.exposureStarted, answers);
        advanced.expectSettled(answers ? "No error" : "Failed to start exposure");
    }
}

// ADVANCED numbers go high byte first. CLASSIC columns 259 to 1031 and rows 6 to 65 count from 1, the ends are one past
// the last.
TEST(ReadCommand, SendsCodeAndGeometryAndWaitsAlsoAfterAFailure)
{
    const struct {
        CAMERA_TYPE type;
        double seconds;
        bool preview;
        bool eightBit;
        const char* code;
        const char* flags;
        long waitUs;
        const char* line = nullptr;
    } CASES[] = {
        {ADVANCED, LONG, false, false, "00 00", "00 43", 0},
        {ADVANCED, LONG, true, false, "00 00", "01 43", 0},
        {ADVANCED, LONG, false, true, "00 00", "20 43", 0},
        {ADVANCED, 0.0, false, false, "00 01", "04 03", 1, "    exp code, ms, delay: 1, 1, 1e-06"},
        {ADVANCED, 0.02, true, true, "4E 20", "25 03", 20000, "    exp code, ms, delay: 20000, 1, 0.02"},
        {ADVANCED, 0.05, false, false, "00 32", "00 03", 50000, "    exp code, ms, delay: 50, 0, 0.05"},
        {ADVANCED, 0.0525, true, false, "00 34", "01 03", 52000, "    exp code, ms, delay: 52, 0, 0.052"},
        {ADVANCED, 10.0, false, true, "0B B8", "20 03", 3000000, "    exp code, ms, delay: 3000, 0, 3"},
        {CLASSIC, LONG, false, false, "00", "00 03", 0},
        {CLASSIC, LONG, true, false, "00", "01 03", 0},
        {CLASSIC, 0.0, false, false, "01", "00 03", 1000},
        {CLASSIC, 0.0095, false, false, "09", "00 03", 9000},
        {CLASSIC, 0.01, false, false, "0A", "00 03", 10000},
        {CLASSIC, 5.0, true, false, "FF", "01 03", 2460000},
    };
    for (const auto& row : CASES) {
        const char* const geometry =
            row.type == ADVANCED ? " 00 02 00 03 01 02 00 05 03 04 00 3C " : " 02 03 03 01 06 00 07 04 42 00 ";
        Parts parts = {command(row.type, std::string("06 ") + row.code + geometry + row.flags)};
        if (row.seconds >= 0) {
            parts[0].afterwards.pause(row.waitUs);
            parts.push_back(waiting(row.waitUs));
        } else if (row.type == CLASSIC) {
            parts = {command(CLASSIC, "42"), waiting(2000000), command(CLASSIC, "02 01 00"), parts[0]};
        }
        expectEachFailureOfStep(READ, row.type, parts, [&](VornCameraImpl& camera) {
            setSensor(camera, 0x1000, 0x800);
            camera.previewMode = row.preview;
            camera.eightBitMode = row.eightBit;
            camera.darkFrameMode = true;  // no matter to these families
            TraceCapture trace;
            const bool ok = row.seconds < 0 ? camera.readCCD(0x102, 5, 0x304, 60, 2, 3)
                                            : camera.readCCD(0x102, 5, 0x304, 60, 2, 3, row.seconds);
            EXPECT_TRUE(row.line == nullptr || trace.has(row.line));
            camera.exposureStarted = false;
            return ok;
        });
    }
}

TEST(GetImageAdvanced, DropsTheTwoLeadingValues)
{
    const struct {
        CAMERA_TYPE type;
        bool eightBit;
        unsigned pixels;
        unsigned bytes;
        const char* sent;
        Image image;  ///< of what held 0, 0, 0, 0, 0E, 0F
    } CASES[] = {
        // the count moved is one less than asked for, so that the last keeps its place
        {ADVANCED, false, 4, 8, "0A 00 0B 00 0C 00 0D 00", {0x0C, 0x0D, 0x0E, 0x0D, 0x0E, 0x0F}},
        {ADVANCED, false, 1, 2, "0A 00", {0x0A, 0, 0, 0, 0x0E, 0x0F}},
        {ADVANCED, true, 5, 5, "80 FF 01 02 7F", {0x01, 0x02, 0x7F, 0x0F, 0x7F, 0x0F}},  // widened in place
        {CLASSIC, false, 2, 4, "34 12 FF 00", {0x1234, 0x00FF, 0, 0, 0x0E, 0x0F}},       // but CLASSIC drops none
    };
    for (const auto& row : CASES) {
        ExposureCamera exposed(row.type);
        exposed.camera.eightBitMode = row.eightBit;
        exposed.camera.imageReady = true;
        exposed.usb.parIn(row.bytes, row.sent);
        Image image = {0, 0, 0, 0, 0x0E, 0x0F};
        EXPECT_TRUE(exposed.camera.getImage(image.data(), row.pixels));
        EXPECT_EQ(image, row.image);
        exposed.expectSettled();
    }
}

TEST(GetImageAdvanced, DropsThemAlsoAfterAFailure)
{
    ExposureCamera cutOff(ADVANCED);
    cutOff.camera.imageReady = true;
    cutOff.usb.out(0x04, "09 ?? 00 00 00 00 08 00 ...").in(0x88, 9, "0A 00 0B 00 0C 00").in(0x88, 3, "");
    cutOff.usb.fails(LIBUSB_ERROR_TIMEOUT);
    Image image = {0, 0, 0, 0, 0x0E};
    EXPECT_FALSE(cutOff.camera.getImage(image.data(), 4));
    EXPECT_EQ(image, (Image{0x0C, 0, 0x0E, 0, 0x0E}));  // what arrived is there, moved
    cutOff.expectSettled("Failed to get image");

    cutOff.camera.imageReady = true;
    EXPECT_FALSE(cutOff.camera.getImage(image.data(), 0));  // no pixels: refused without traffic
    EXPECT_EQ(image[0], 0x0C);
    EXPECT_TRUE(cutOff.lockFree());
}

}  // namespace
