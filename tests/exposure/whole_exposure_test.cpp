// SPDX-License-Identifier: MIT
// Exposures from their start to the image in the host's buffer, and each of their transfers failing.
#include <gtest/gtest.h>

#include "family_steps.h"
#include "sensor_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::advancedPing;
using vorntest::classicCommand;
using vorntest::spiWrite;
using vorntest::Steps;
using vorntest::writeRegister;

const char* const START_FAILED = "Failed to start exposure";
const char* const READ_FAILED = "Failed to read CCD";
const char* const IMAGE_FAILED = "Failed to get image";

constexpr ReadoutRegion REGION = {10, 11, 2, 1, 1, 1};
constexpr double LONG = -1.0;

/// @param atStart what the shutter is told then; null without a shutter
Steps standardLong(const char* atStart, const char* flags)
{
    Steps usb = Steps().ends({}, START_FAILED).command("02 00 00 00").command("04 00").command("05 00");
    if (atStart != nullptr)
        usb.pause(500000).command(atStart);
    usb.harmless().out(0x04, RAISE_TIMEOUT).ends({}, READ_FAILED).command("02 00 01 00");
    if (atStart != nullptr)
        usb.command("09 00 00 00");
    usb.command(std::string("06 00 00 00 01 00 01 00 0A 00 0B 00 02 00 01 00 ") + flags);
    usb.ends(Steps().out(0x04, LOWER_TIMEOUT), IMAGE_FAILED).parIn(4, "34 12 00 80");
    return usb.harmless().out(0x04, LOWER_TIMEOUT);
}

Steps standardShort()
{
    Steps usb = Steps().harmless().out(0x04, RAISE_TIMEOUT);
    usb.ends({}, READ_FAILED).command("02 00 00 00").command("04 00").command("05 00");
    usb.ends(Steps().pause(100000), READ_FAILED);  // the host waits also after a failure
    usb.command("06 00 64 00 01 00 01 00 0A 00 0B 00 02 00 01 00 43 00").untried().pause(100000);
    usb.ends(Steps().out(0x04, LOWER_TIMEOUT), IMAGE_FAILED).parIn(4, "34 12 00 80");
    return usb.harmless().out(0x04, LOWER_TIMEOUT);
}

// ADVANCED numbers go high byte first; what moves is one value less, behind two that mean nothing.
Steps advancedLong()
{
    Steps usb = advancedCommand(Steps().ends({}, START_FAILED), "02 00 00");
    advancedCommand(usb, "04");
    advancedPing(usb.untried(), "00 7A").pause(25000);  // a failure means another try
    advancedPing(usb, "00 7B", "00 7B").pause(25000);
    advancedPing(usb);
    advancedCommand(usb.ends({}, START_FAILED), "05");
    advancedCommand(usb.ends({}, READ_FAILED), "06 00 00 00 01 00 01 00 0A 00 0B 00 02 00 01 00 43");
    return usb.ends({}, IMAGE_FAILED).parIn(4, "0A 00 0B 00");
}

Steps advancedShort()
{
    Steps usb = Steps().ends(Steps().pause(100000), READ_FAILED);
    advancedCommand(usb, "06 00 64 00 01 00 01 00 0A 00 0B 00 02 00 01 00 03").untried().pause(100000);
    return usb.ends({}, IMAGE_FAILED).parIn(4, "0A 00 0B 00");
}

// CLASSIC columns 11 to 12 and row 12 count from 1, the ends are one past the last.
Steps classicLong()
{
    Steps usb = classicCommand(Steps().ends({}, START_FAILED), "02 00 00");
    classicCommand(usb, "04");
    classicCommand(usb, "05");
    classicCommand(usb.ends({}, READ_FAILED), "42").pause(2000000);
    classicCommand(usb, "02 01 00");
    classicCommand(usb, "06 00 01 01 0B 00 0C 00 0D 00 0D 00 00 03");
    return usb.ends({}, IMAGE_FAILED).parIn(4, "34 12 00 80");
}

Steps classicShort()
{
    Steps usb = Steps().ends(Steps().pause(100000), READ_FAILED);
    classicCommand(usb, "06 13 01 01 0B 00 0C 00 0D 00 0D 00 00 03").untried().pause(100000);
    return usb.ends({}, IMAGE_FAILED).parIn(4, "34 12 00 80");
}

/// Line 4 falls, a dummy word, a frame of 12 x 12 pixels whose last two are asked for.
Steps quickerImage(Steps usb)
{
    vorntest::readLine4(usb.harmless(), 0);  // an unanswered question ends the wait
    usb.ends(Steps().out(0x04, LOWER_TIMEOUT), IMAGE_FAILED).parIn(2, "AA BB");
    usb.parIn(288, "11 11" + vorntest::zeros(282) + " 34 12 00 80");
    return usb.harmless().out(0x04, LOWER_TIMEOUT);
}

/// With the amplifier switched off during the exposure and relays closed, or neither.
Steps quickerLong(bool amp)
{
    const std::string relays = amp ? "3" : "0";
    Steps usb = spiWrite(Steps().harmless(), amp ? "24 23" : "24 00");
    spiWrite(usb, "50 00").untried().pause(200000);
    spiWrite(usb.ends({}, START_FAILED), "22 0" + relays);
    spiWrite(usb, "50 00").harmless().out(0x04, RAISE_TIMEOUT);
    spiWrite(usb.harmless(), "80 00");
    spiWrite(usb.harmless(), "80 00");
    spiWrite(usb.ends(amp ? Steps() : Steps().pause(250000), READ_FAILED), "24 A" + relays);
    if (!amp)
        usb.untried().pause(250000);
    return quickerImage(spiWrite(usb.ends({}, READ_FAILED), "53 E8"));
}

Steps quickerShort()
{
    Steps usb = Steps().harmless().out(0x04, RAISE_TIMEOUT);
    spiWrite(usb.harmless(), "80 00");
    spiWrite(usb.harmless(), "80 00");
    spiWrite(usb.ends(Steps().pause(99669), READ_FAILED), "27 A3");
    return quickerImage(spiWrite(usb, "51 24").untried().pause(99669));
}

Steps iidcShort()
{
    Steps usb;
    writeRegister(usb.harmless(), 0x0968, "00 00 F0 40");  // 7.5
    writeRegister(usb.harmless(), 0x0918, "CD CC CC 3D");  // 0.1
    writeRegister(usb.harmless(), 0x0608, "00 00 00 40");
    writeRegister(usb.harmless(), 0x0604, "00 00 00 40");
    writeRegister(usb.harmless(), 0x061C, "00 00 00 80");
    std::vector<uint8_t> frame(12 * 12);
    frame[142] = 0x12;
    frame[143] = 0x80;
    return usb.ends({}, IMAGE_FAILED).in(0x81, 12 * 12, frame);
}

TEST(Exposure, HoldsTheWholeConversation)
{
    const Image plain = {0x1234, 0x8000, 0xCCCC};
    const Image moved = {0xCCCC, 0x000B, 0xCCCC};
    const char* const unlocked = "    unlock()";
    const auto shutter = [](VornCameraImpl& camera) { camera.hasShutter = true; };
    const auto closed = [](VornCameraImpl& camera) { camera.hasShutter = camera.darkFrameMode = true; };
    const auto preview = [](VornCameraImpl& camera) { camera.previewMode = true; };
    const auto noAmplifier = [](VornCameraImpl& camera) {
        camera.ampRequested = false;
        camera.guideRelayState = 0;
    };
    const struct {
        CAMERA_TYPE type;
        double seconds;
        Steps conversation;
        Image image;
        const char* line;  ///< of the trace
        void (*prepare)(VornCameraImpl&) = [](VornCameraImpl&) {};
    } CASES[] = {
        {STANDARD, LONG, standardLong(nullptr, "43 01"), plain, unlocked, preview},
        {STANDARD, LONG, standardLong("09 00 01 00", "43 00"), plain, unlocked, shutter},
        {STANDARD, LONG, standardLong("09 00 00 00", "43 00"), plain, unlocked, closed},
        {STANDARD, 0.1, standardShort(), plain, unlocked, shutter},
        {ADVANCED, LONG, advancedLong(), moved, unlocked, shutter},
        {ADVANCED, 0.1, advancedShort(), moved, "    exp code, ms, delay: 100, 0, 0.1"},
        {CLASSIC, LONG, classicLong(), plain, unlocked, shutter},
        {CLASSIC, 0.1, classicShort(), plain, unlocked},
        {QUICKER, LONG, quickerLong(true), plain, "    elapsed 0 s"},
        {QUICKER, LONG, quickerLong(false), plain, "    elapsed 0.25 s", noAmplifier},
        {QUICKER, 0.1, quickerShort(), plain, "    expCode 292"},
        {IIDC, 0.1, iidcShort(), {0x1200, 0x8000, 0xCCCC}, nullptr},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ", row " << &row - CASES);
        forEachFailure(row.conversation, [&](const Steps& steps, bool ok) {
            const bool wholeFrames = row.type == QUICKER || row.type == IIDC;
            SensorCamera exposed(row.type, wholeFrames ? 12 : 100, wholeFrames ? 12 : 60);
            VornCameraImpl& camera = exposed.camera;
            camera.guideRelayState = 3;  // which QUICKER exposures leave as it is
            camera.ampRequested = true;
            (void)camera.setParam(QUICKER_READ_CCD_DELAY, 250000);
            row.prepare(camera);
            const bool amp = camera.ampRequested;
            camera.lastError = "No error";
            exposed.usb.append(steps);
            camera.exposureStarted = camera.imageReady = true;
            Image image(3, 0xCCCC);
            {
                auto trace = row.line != nullptr ? std::make_unique<vorntest::TraceCapture>() : nullptr;
                bool done = row.seconds >= 0 || camera.startExposure(amp);
                EXPECT_EQ(camera.exposureStarted, done);
                EXPECT_EQ(camera.imageReady, row.seconds >= 0);
                const unsigned remembered = wholeFrames && (done || row.seconds >= 0) ? 10 : 0;  // even if it fails
                if (row.seconds >= 0)
                    done = exposed.readShort(REGION, row.seconds);
                else if (done)
                    done = camera.readCCD(10, 11, 2, 1, 1, 1);
                EXPECT_EQ(camera.imageReady, done);
                EXPECT_EQ(camera.readoutRegion.x, remembered);
                EXPECT_EQ(exposed.lockFree(), !done);
                EXPECT_EQ(done && camera.getImage(image.data(), 2), ok);
                EXPECT_TRUE(!ok || trace == nullptr || trace->has(row.line)) << row.line;
            }
            EXPECT_EQ(camera.ampRequested, amp);
            EXPECT_EQ(camera.exposureStarted, row.seconds >= 0);  // the short form neither needs nor changes it
            EXPECT_FALSE(camera.imageReady);
            EXPECT_TRUE(image == row.image || (!ok && (row.type != IIDC || image[0] == 0xCCCC)));
            exposed.expectSettled(steps.error());
        });
    }
}

}  // namespace
