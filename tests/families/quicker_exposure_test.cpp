// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "exposure_camera.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::readLine4;
using vorntest::spiWrite;
using vorntest::Steps;
using vorntest::toHex;
using vorntest::TraceCapture;
using Image = std::vector<uint16_t>;

const char* const RAISE_TIMEOUT = "0C ?? 00 00 30 75 ...";  // 30000 ms
const char* const LOWER_TIMEOUT = "0C ?? 00 00 E8 03 ...";  // 1000 ms

Part raiseTimeout()
{
    Part timeout = part(Part::HARMLESS);
    timeout.steps.out(0x04, RAISE_TIMEOUT);
    return timeout;
}

Part spi(Part::Consequence consequence, const std::string& hex)
{
    Part write = part(consequence);
    spiWrite(write.steps, hex);
    return write;
}

Part waiting(long us)
{
    Part wait = part(Part::UNTRIED);
    wait.steps.pause(us);
    return wait;
}

TEST(StartExposureQuicker, KeepsGuidingAndTheAmplifierBit)
{
    const struct {
        bool amp;
        uint16_t guiding;
        const char* prepare;
        const char* start;
    } CASES[] = {{true, 0x0, "24 20", "22 00"}, {false, 0x0, "24 00", "22 00"}, {true, 0x5, "24 25", "22 05"}};
    for (const auto& row : CASES) {
        Part prepare = spi(Part::HARMLESS, row.prepare);
        spiWrite(prepare.steps, "50 00");
        Part start = spi(Part::FATAL, row.start);
        spiWrite(start.steps, "50 00");
        expectEachFailureOfStep(START, QUICKER, {prepare, waiting(200000), start}, [&](VornCameraImpl& camera) {
            camera.guideRelayState = row.guiding;
            const bool ok = camera.startExposure(row.amp);
            EXPECT_EQ(camera.ampRequested, row.amp);
            return ok;
        });
    }
}

TEST(ReadLongQuicker, WaitsBeforeTheReadoutUnlessTheAmplifierWasOn)
{
    for (const bool amp : {false, true}) {
        Part end = spi(Part::FATAL, "24 A3");
        if (!amp)
            end.afterwards.pause(250000);
        Parts parts = {raiseTimeout(), spi(Part::HARMLESS, "82 10"), spi(Part::HARMLESS, "82 10"), end};
        if (!amp)
            parts.push_back(waiting(250000));
        parts.push_back(spi(Part::FATAL, "53 E8"));
        expectEachFailureOfStep(READ, QUICKER, parts, [&](VornCameraImpl& camera) {
            camera.guideRelayState = 3;
            camera.ampRequested = amp;
            camera.setParam(QUICKER_READ_CCD_DELAY, 250000);
            TraceCapture trace;
            const bool ok = camera.readCCD(10, 20, 30, 40, 2, 3);
            EXPECT_TRUE(!ok || amp || trace.has("    elapsed 0.25 s"));
            EXPECT_EQ(camera.readoutRegion.x, 10U);  // remembered whatever the result
            EXPECT_EQ(camera.readoutRegion.binY, 3U);
            return ok;
        });
    }
}

TEST(ReadShortQuicker, SendsTheCodeAndWaitsForItAlsoAfterAFailure)
{
    struct {
        double seconds;
        const char* code;
        long waitUs;
        const char* line;
    } const CASES[] = {{0.1, "51 24", 99669, "    expCode 292"},
                       {0.0, "50 01", 341, "    expCode 1"},
                       {5.0, "5F FF", 1397760, "    expCode 4095"}};
    for (const auto& row : CASES) {
        Part start = spi(Part::FATAL, "27 A3");
        spiWrite(start.steps, row.code);
        start.afterwards.pause(row.waitUs);
        const Parts parts = {raiseTimeout(), spi(Part::HARMLESS, "80 00"), spi(Part::HARMLESS, "80 00"), start,
                             waiting(row.waitUs)};
        expectEachFailureOfStep(READ, QUICKER, parts, [&](VornCameraImpl& camera) {
            camera.guideRelayState = 3;
            TraceCapture trace;
            const bool ok = camera.readCCD(0, 0, 100, 60, 1, 1, row.seconds);
            EXPECT_TRUE(trace.has(row.line));
            EXPECT_TRUE(camera.exposureStarted);  // neither needed nor changed
            camera.exposureStarted = false;
            return ok;
        });
    }
}

TEST(GetImageQuicker, EachFailureReleasesTheLockAndLowersTheTimeout)
{
    Part dummy = part();
    dummy.steps.parIn(2, "AA BB");
    dummy.afterwards.out(0x04, LOWER_TIMEOUT);
    Part frame = {.afterwards = dummy.afterwards};
    frame.steps.parIn(12, "01 00 02 00 03 00 04 00 05 00 06 00");
    Part line = part(Part::HARMLESS);  // an unanswered question ends the wait
    readLine4(line.steps, 0);
    Part lower = part(Part::HARMLESS);
    lower.steps.out(0x04, LOWER_TIMEOUT);
    expectEachFailureOfStep(IMAGE, QUICKER, {line, dummy, frame, lower}, [](VornCameraImpl& camera) {
        setSensor(camera, 3, 2);
        camera.readoutRegion = {0, 0, 2, 2, 1, 1};
        uint16_t image[4] = {};
        const bool ok = camera.getImage(image, 4);
        EXPECT_EQ(image[0], ok ? 1 : 0);
        EXPECT_EQ(image[3], ok ? 5 : 0);
        return ok;
    });
}

TEST(GetImageQuicker, WaitsForLine4UntilItFallsOrTheCameraIsGone)
{
    for (const bool unplugged : {false, true}) {
        ExposureCamera quicker(QUICKER);
        quicker.camera.imageReady = true;
        setSensor(quicker.camera, 1, 1);
        quicker.camera.readoutRegion = {0, 0, 1, 1, 1, 1};
        readLine4(quicker.usb, 1);
        readLine4(quicker.usb, 1).pause(5000);
        if (unplugged) {
            quicker.usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").fails(LIBUSB_ERROR_NO_DEVICE).pause(5000);
            quicker.usb.thenUnplugged();
        } else {
            readLine4(quicker.usb, 0).pause(5000).parIn(2, "FF FF").parIn(2, "34 12").out(0x04, LOWER_TIMEOUT);
        }
        uint16_t image = 7;
        EXPECT_EQ(quicker.camera.getImage(&image, 1), !unplugged);
        EXPECT_EQ(image, unplugged ? 7 : 0x1234);
        quicker.expectSettled(unplugged ? "Failed to get image" : "No error");
    }
}

/// A frame whose values tell row and column, 100 * row + column, as it comes over the wire.
std::vector<uint8_t> ramp(unsigned width, unsigned height)
{
    std::vector<uint8_t> bytes;
    for (unsigned i = 0; i < width * height; i++) {
        const unsigned value = i / width * 100 + i % width;
        bytes.insert(bytes.end(), {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)});
    }
    return bytes;
}

/// A camera after a readout of @p region; its frame arrives when line 4 has fallen and a dummy word was read.
struct ReadOutQuicker : ExposureCamera {
    ReadOutQuicker(unsigned width, unsigned height, const ReadoutRegion& region) : ExposureCamera(QUICKER)
    {
        setSensor(camera, width, height);
        camera.readoutRegion = region;
        camera.imageReady = true;
        readLine4(usb, 0).parIn(2, "AA BB");
    }
    /// @return the buffer after getImage(), CCCC where nothing was written.
    Image imageOf(const std::string& frame, size_t values)
    {
        const auto length = static_cast<unsigned>(vorntest::parseHex(frame).size());
        usb.parIn(length, frame).out(0x04, LOWER_TIMEOUT);
        Image image(values, 0xCCCC);
        EXPECT_TRUE(camera.getImage(image.data(), 1));  // the count is only traced
        EXPECT_TRUE(usb.done());
        return image;
    }
};

TEST(GetImageQuicker, PutsRowRAtRTimesTheHeightOfTheRegion)
{
    struct {
        const char* label;
        ReadoutRegion region;
        Image image;
    } const CASES[] = {
        {"square corner", {4, 2, 2, 2, 1, 1}, {204, 205, 304, 305, 0xCCCC}},
        {"wide: rows overlap, the later wins", {1, 1, 3, 2, 1, 1}, {101, 102, 201, 202, 203, 0xCCCC}},
        {"high: gaps stay", {0, 0, 1, 3, 1, 1}, {0, 0xCCCC, 0xCCCC, 100, 0xCCCC, 0xCCCC, 200, 0xCCCC}},
        {"binned, 3 x 2 in all", {2, 2, 4, 2, 2, 2}, {101, 102, 0xCCCC}},
        {"binned differently, 2 x 4 in all", {3, 1, 3, 3, 3, 1}, {101, 0xCCCC, 0xCCCC, 201, 0xCCCC, 0xCCCC, 301}},
        {"offset not a multiple of the binning", {3, 3, 3, 1, 2, 1}, {301, 0xCCCC}},
        {"whole frame", {0, 0, 6, 4, 3, 2}, {0, 1, 100, 101}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ReadOutQuicker quicker(6, 4, row.region);
        EXPECT_EQ(quicker.imageOf(toHex(ramp(6 / row.region.binX, 4 / row.region.binY)), row.image.size()), row.image);
    }
}

// The height is checked against the width, so a region may reach below the frame.
TEST(GetImageQuicker, ReadsNothingBelowTheFrame)
{
    const Image expected = {2, 4, 6, 0, 0, 0, 0, 0, 0};
    ReadOutQuicker plain(3, 1, {0, 0, 3, 3, 1, 1});
    EXPECT_EQ(plain.imageOf("02 00 04 00 06 00", 9), expected);
    ReadOutQuicker pairs(3, 1, {0, 0, 3, 3, 1, 1});
    pairs.camera.pcCds = true;
    EXPECT_EQ(pairs.imageOf("00 00 01 00 00 00 02 00 00 00 03 00", 9), expected);
}

TEST(GetImageQuicker, RefusesAFrameThatNobodyCanHold)
{
    ReadOutQuicker quicker(0xFFFF9000, 0xFFFF9000, {0, 0, 2, 2, 1, 1});
    quicker.usb.out(0x04, LOWER_TIMEOUT);
    uint16_t image[4] = {};
    EXPECT_FALSE(quicker.camera.getImage(image, 4));
    quicker.expectSettled("Failed to get image");
}

TEST(GetImageQuicker, SubtractsPrechargeRowAfterRow)
{
    ReadOutQuicker quicker(4, 2, {1, 0, 3, 2, 1, 1});
    quicker.camera.pcCds = true;
    quicker.camera.prechargeOffset = 256;
    TraceCapture trace;
    const Image image = quicker.imageOf(
        "EE EE EE EE  E8 03 DC 05  DC 05 E8 03  00 00 80 7F "  // 1000 1500, 1500 1000, 0 32640
        "EE EE EE EE  00 00 7F 7F  FF FF FF FF  00 00 FF FF",  // 0 32639, 65535 65535, 0 65535
        7);
    EXPECT_EQ(image, (Image{1256, 0, 65535, 65534, 256, 65535, 0xCCCC}));
    EXPECT_TRUE(trace.has("    copying buffer with precharge substraction 4 x 2 to 1, 0 - 3, 2"));

    ReadOutQuicker negative(3, 1, {0, 0, 3, 1, 1, 1});
    negative.camera.pcCds = true;
    negative.camera.prechargeOffset = 4294967264U;  // -32
    EXPECT_EQ(negative.imageOf("64 00 74 00 64 00 75 00 64 00 73 00", 3), (Image{0, 2, 0}));
}

}  // namespace
