// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "exposure_camera.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::advancedPing;
using vorntest::TraceCapture;

Part command(const std::string& hex)
{
    Part exchange = part();
    advancedCommand(exchange.steps, hex);
    return exchange;
}

TEST(StartExposureAdvanced, WaitsForThePingAndStarts)
{
    Part ping = part(Part::UNTRIED);  // its failures mean another try
    advancedPing(ping.steps, "00 7A").pause(25000);
    advancedPing(ping.steps, "00 7B", "00 7B").pause(25000);
    advancedPing(ping.steps);
    expectEachFailureOfStep(START, ADVANCED, {command("02 00 00"), command("04"), ping, command("05")},
                            [](VornCameraImpl& camera) {
                                camera.hasShutter = true;  // no matter to this family
                                return camera.startExposure(true);
                            });
}

TEST(StartExposureAdvanced, GivesUpAtTheFourHundredAndFirstPing)
{
    for (const bool answers : {true, false}) {
        ExposureCamera advanced(ADVANCED);
        advancedCommand(advanced.usb, "02 00 00");
        advancedCommand(advanced.usb, "04");
        for (int failed = 0; failed < 400; failed++)
            advancedPing(advanced.usb, "00 00", "00 00").pause(25000);
        if (answers) {
            advancedPing(advanced.usb);
            advancedCommand(advanced.usb, "05");
        } else {
            advancedPing(advanced.usb, "00 00", "00 00");
        }
        TraceCapture trace;
        EXPECT_EQ(advanced.camera.startExposure(false), answers);
        EXPECT_TRUE(advanced.usb.done());
        EXPECT_EQ(trace.has("    Waited too long for ping"), !answers);
        EXPECT_EQ(advanced.camera.exposureStarted, answers);
        EXPECT_EQ(advanced.error(), answers ? "No error" : "Failed to start exposure");
    }
}

TEST(ReadLongAdvanced, SendsGeometryBigEndian)
{
    struct {
        bool preview;
        bool eightBit;
        const char* flags;
    } const CASES[] = {{false, false, "00 43"}, {true, false, "01 43"}, {false, true, "20 43"}, {true, true, "21 43"}};
    for (const auto& row : CASES) {
        const Parts parts = {command(std::string("06 00 00 00 02 00 03 01 02 00 05 03 04 00 3C ") + row.flags)};
        expectEachFailureOfStep(READ, ADVANCED, parts, [&](VornCameraImpl& camera) {
            setSensor(camera, 0x1000, 0x800);
            camera.previewMode = row.preview;
            camera.eightBitMode = row.eightBit;
            camera.darkFrameMode = true;  // no matter to this family
            return camera.readCCD(0x102, 5, 0x304, 60, 2, 3);
        });
    }
}

TEST(ReadShortAdvanced, SendsTheExposureCodeAndWaitsAlsoAfterAFailure)
{
    struct {
        double seconds;
        bool preview;
        bool eightBit;
        const char* code;
        const char* flags;
        long waitUs;
        const char* line;
    } const CASES[] = {
        {0.0, false, false, "00 01", "04 03", 1, "    exp code, ms, delay: 1, 1, 1e-06"},
        {0.02, true, true, "4E 20", "25 03", 20000, "    exp code, ms, delay: 20000, 1, 0.02"},
        {0.05, false, false, "00 32", "00 03", 50000, "    exp code, ms, delay: 50, 0, 0.05"},
        {0.0525, true, false, "00 34", "01 03", 52000, "    exp code, ms, delay: 52, 0, 0.052"},
        {10.0, false, true, "0B B8", "20 03", 3000000, "    exp code, ms, delay: 3000, 0, 3"},
    };
    for (const auto& row : CASES) {
        Part readout = command(std::string("06 ") + row.code + " 00 01 00 01 00 00 00 00 00 64 00 3C " + row.flags);
        readout.afterwards.pause(row.waitUs);
        Part wait = part(Part::UNTRIED);
        wait.steps.pause(row.waitUs);
        expectEachFailureOfStep(READ, ADVANCED, {readout, wait}, [&](VornCameraImpl& camera) {
            camera.previewMode = row.preview;
            camera.eightBitMode = row.eightBit;
            TraceCapture trace;
            const bool ok = camera.readCCD(0, 0, 100, 60, 1, 1, row.seconds);
            EXPECT_TRUE(trace.has(row.line));
            camera.exposureStarted = false;
            return ok;
        });
    }
}

TEST(GetImageAdvanced, DropsTheTwoLeadingValues)
{
    // five values present, four asked for: the count moved is three, the fourth stays in its place
    ExposureCamera advanced(ADVANCED);
    advanced.camera.imageReady = true;
    advanced.usb.parIn(8, "0A 00 0B 00 0C 00 0D 00");
    uint16_t image[5] = {0, 0, 0, 0, 0x0E};
    EXPECT_TRUE(advanced.camera.getImage(image, 4));
    EXPECT_EQ(std::vector<uint16_t>(image, image + 5), (std::vector<uint16_t>{0xC, 0xD, 0xE, 0xD, 0xE}));

    advanced.camera.imageReady = true;
    advanced.usb.parIn(2, "0A 00");  // nothing to move
    EXPECT_TRUE(advanced.camera.getImage(image, 1));
    EXPECT_EQ(image[0], 0xA);
}

TEST(GetImageAdvanced, WidensEightBitsInPlace)
{
    ExposureCamera advanced(ADVANCED);
    EXPECT_TRUE(advanced.camera.set8BitMode(true));
    advanced.camera.imageReady = true;
    advanced.usb.parIn(5, "80 FF 01 02 7F");
    uint16_t image[6] = {0, 0, 0, 0, 0, 0x0E};
    EXPECT_TRUE(advanced.camera.getImage(image, 5));
    EXPECT_EQ(std::vector<uint16_t>(image, image + 6), (std::vector<uint16_t>{0x01, 0x02, 0x7F, 0x0E, 0x7F, 0x0E}));
}

TEST(GetImageAdvanced, DropsThemAlsoAfterAFailure)
{
    Part frame = part();
    frame.steps.parIn(6, "0A 00 0B 00 0C 00");
    expectEachFailureOfStep(IMAGE, ADVANCED, {frame}, [&](VornCameraImpl& camera) {
        uint16_t image[4] = {1, 2, 3, 4};
        const bool ok = camera.getImage(image, 3);
        EXPECT_EQ(image[1], 4);
        return ok;
    });
    ExposureCamera cutOff(ADVANCED);
    cutOff.camera.imageReady = true;
    cutOff.usb.out(0x04, "09 ?? 00 00 00 00 08 00 ...").in(0x88, 9, "0A 00 0B 00 0C 00").in(0x88, 3, "");
    cutOff.usb.fails(LIBUSB_ERROR_TIMEOUT);
    uint16_t image[5] = {0, 0, 0, 0, 0x0E};
    EXPECT_FALSE(cutOff.camera.getImage(image, 4));
    EXPECT_EQ(image[0], 0x0C);  // what arrived is there, moved
    EXPECT_EQ(cutOff.error(), "Failed to get image");
}

TEST(GetImageAdvanced, ACountOfZeroIsRefusedWithoutTraffic)
{
    ExposureCamera advanced(ADVANCED);
    advanced.camera.imageReady = true;
    uint16_t image[2] = {7, 8};
    EXPECT_FALSE(advanced.camera.getImage(image, 0));
    EXPECT_EQ(image[0], 7);
    EXPECT_TRUE(advanced.lockFree());
}

TEST(ExposureAdvanced, WholeLongExposure)
{
    ExposureCamera advanced(ADVANCED);
    advancedCommand(advanced.usb, "02 00 00");
    advancedCommand(advanced.usb, "04");
    advancedPing(advanced.usb);
    advancedCommand(advanced.usb, "05");
    advancedCommand(advanced.usb, "06 00 00 00 01 00 01 00 00 00 00 00 02 00 01 00 43");
    advanced.usb.parIn(4, "0A 00 0B 00");
    EXPECT_EQ(takeImage(advanced.camera, {0, 0, 2, 1, 1, 1}, -1.0, 3, 2), (std::vector<uint16_t>{0xCCCC, 0xB, 0xCCCC}));
    EXPECT_TRUE(advanced.usb.done());
}

}  // namespace
