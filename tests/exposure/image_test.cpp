// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <tuple>

#include "exposure/pixel_kernels.h"
#include "family_steps.h"
#include "sensor_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::readLine4;
using vorntest::Steps;
using vorntest::TraceCapture;

TEST(GetImage, WorksOncePerReadout)
{
    ReadOutCamera standard(STANDARD);
    standard.usb.parIn(6, "34 12 FF FF 00 80").out(0x04, LOWER_TIMEOUT);
    EXPECT_EQ(standard.image(4, 3), (Image{0x1234, 0xFFFF, 0x8000, 0xCCCC}));
    standard.camera.lock();  // somebody else's
    uint16_t value = 0;
    EXPECT_FALSE(standard.camera.getImage(&value, 3));
    EXPECT_FALSE(standard.lockFree());
    standard.camera.unlock();
    standard.expectSettled("Operation out of sequence");
}

TEST(GetImage, AFailureKeepsWhatArrived)
{
    const Steps whole =
        Steps().out(0x04, "09 ?? 00 00 00 00 06 00 ...").in(0x88, 4, "01 02 03").in(0x88, 4, "04 05 06 00");
    for (const bool timeoutFails : {false, true}) {
        forEachFailure(whole, [&](const Steps& steps, bool ok) {
            ReadOutCamera standard(STANDARD);
            standard.camera.setParam(MAX_PACKET_SIZE, 4);
            standard.usb.append(steps).out(0x04, LOWER_TIMEOUT);
            standard.usb.device.fault = {.at = 2, .delayUs = 1500000};
            if (timeoutFails)
                standard.usb.fails();
            TraceCapture trace;
            EXPECT_EQ(standard.image(3, 3, ok)[0], steps.size() > 2 ? 0x0201 : steps.size() > 1 ? 0 : 0xCCCC);
            EXPECT_EQ(trace.has("    set timeout 1000 failed"), timeoutFails);
            EXPECT_EQ(trace.has("    elapsed 1.5 s"), steps.size() > 1);
        });
    }
}

// Twice the first two counts is 0 in 32 bits; nobody can hold the third frame.
TEST(GetImage, RefusesWhatNobodyCanHold)
{
    ReadOutCamera standard(STANDARD);
    standard.usb.out(0x04, LOWER_TIMEOUT);
    (void)standard.image(4, 0x80000000U, false);
    ReadOutCamera quicker(QUICKER, 0x10000, 0x8000);
    readLine4(quicker.usb, 0).parIn(2, "AA BB").out(0x04, LOWER_TIMEOUT);
    (void)quicker.image(4, 4, false);
    ReadOutCamera iidc(IIDC, 0xFFFF9000, 0xFFFF9000);
    (void)iidc.image(4, 4, false);
    ReadOutCamera advanced(ADVANCED);  // nor can an image have no pixels
    EXPECT_EQ(advanced.image(1, 0, false), Image{0xCCCC});
    ReadOutCamera unknown(static_cast<CAMERA_TYPE>(6));
    EXPECT_EQ(unknown.image(1, 1, false), Image{0xCCCC});
}

TEST(GetImageAdvanced, DropsTheTwoLeadingValues)
{
    const struct {
        bool eightBit;
        unsigned pixels;
        const char* sent;
        Image image;
        bool ok = true;
    } CASES[] = {
        // the count moved is one less than asked for, so that the last keeps its place
        {false, 4, "0A 00 0B 00 0C 00 0D 00", {0x0C, 0x0D, 0xCCCC, 0x0D, 0xCCCC}},
        {false, 1, "0A 00", {0x0A, 0xCCCC}},
        {true, 5, "80 FF 01 02 7F", {0x01, 0x02, 0x7F, 0xCCCC, 0x7F, 0xCCCC}},  // widened in place
        {false, 4, "0A 00 0B 00 0C 00", {0x0C, 0, 0xCCCC, 0, 0xCCCC}, false},   // what arrived is there, moved
    };
    for (const auto& row : CASES) {
        ReadOutCamera advanced(ADVANCED);
        advanced.camera.eightBitMode = row.eightBit;
        if (row.ok)
            advanced.usb.parIn(row.pixels * (row.eightBit ? 1 : 2), row.sent);
        else
            advanced.usb.out(0x04, "09 ?? 00 00 00 00 08 00 ...").in(0x88, 9, row.sent).in(0x88, 3, "").fails();
        EXPECT_EQ(advanced.image(row.image.size(), row.pixels, row.ok), row.image);
    }
}

TEST(GetImageQuicker, WaitsForLine4UntilItFallsOrTheCameraIsGone)
{
    for (const bool unplugged : {false, true}) {
        ReadOutCamera quicker(QUICKER, 1, 1);
        readLine4(quicker.usb, 1);
        readLine4(quicker.usb, 1).pause(5000);
        if (unplugged) {
            quicker.usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").fails(LIBUSB_ERROR_NO_DEVICE).pause(5000);
            quicker.usb.thenUnplugged();
        } else {
            readLine4(quicker.usb, 0).pause(5000).parIn(2, "FF FF").parIn(2, "34 12").out(0x04, LOWER_TIMEOUT);
        }
        EXPECT_EQ(quicker.image(1, 1, !unplugged), Image{static_cast<uint16_t>(unplugged ? 0xCCCC : 0x1234)});
    }
}

/// A QUICKER camera whose @p frame arrives. @return the image, as ReadOutCamera::image().
Image quickerImage(ReadOutCamera& quicker, const std::string& frame, size_t values)
{
    readLine4(quicker.usb, 0).parIn(2, "AA BB").parIn(static_cast<unsigned>(vorntest::parseHex(frame).size()), frame);
    quicker.usb.out(0x04, LOWER_TIMEOUT);
    return quicker.image(values, 1);  // the count is only traced
}

TEST(GetImageQuicker, PutsRowsAHeightApart)
{
    const std::tuple<const char*, ReadoutRegion, Image> CASES[] = {
        {"square corner", {4, 2, 2, 2, 1, 1}, {0x24, 0x25, 0x34, 0x35, 0xCCCC}},
        {"wide: rows overlap, the later wins", {1, 1, 3, 2, 1, 1}, {0x11, 0x12, 0x21, 0x22, 0x23, 0xCCCC}},
        {"high: gaps stay", {0, 0, 1, 3, 1, 1}, {0, 0xCCCC, 0xCCCC, 0x10, 0xCCCC, 0xCCCC, 0x20, 0xCCCC}},
        {"binned differently, 2 x 4 in all", {3, 1, 3, 3, 3, 1}, {0x11, 0xCCCC, 0xCCCC, 0x21, 0xCCCC, 0xCCCC, 0x31}},
        {"offset not a multiple of the binning", {3, 3, 3, 1, 2, 1}, {0x31, 0xCCCC}},
    };
    for (const auto& [label, region, image] : CASES) {
        SCOPED_TRACE(label);
        std::vector<uint8_t> frame;  // each value tells row and column, as hex digits
        for (unsigned y = 0; y < 4 / region.binY; y++) {
            for (unsigned x = 0; x < 6 / region.binX; x++)
                frame.insert(frame.end(), {static_cast<uint8_t>(y * 16 + x), 0});
        }
        ReadOutCamera quicker(QUICKER, 6, 4, region);
        EXPECT_EQ(quickerImage(quicker, vorntest::toHex(frame), image.size()), image);
    }
}

// The height is checked against the width, so a region may reach below the frame.
TEST(GetImageQuicker, ReadsNothingBelowTheFrame)
{
    for (const bool pairs : {false, true}) {
        ReadOutCamera quicker(QUICKER, 3, 1, {0, 0, 3, 3, 1, 1});
        quicker.camera.pcCds = pairs;
        EXPECT_EQ(quickerImage(quicker, pairs ? "00 00 01 00 00 00 02 00 00 00 03 00" : "02 00 04 00 06 00", 9),
                  (Image{2, 4, 6, 0, 0, 0, 0, 0, 0}));
    }
}

TEST(GetImageQuicker, SubtractsPrechargeRowAfterRow)
{
    ReadOutCamera quicker(QUICKER, 4, 2, {1, 0, 3, 2, 1, 1});
    quicker.camera.pcCds = true;
    quicker.camera.prechargeOffset = 256;
    TraceCapture trace;
    EXPECT_EQ(quickerImage(quicker,
                           "EE EE EE EE  E8 03 DC 05  DC 05 E8 03  00 00 80 7F "  // 1000 1500, 1500 1000, 0 32640
                           "EE EE EE EE  00 00 7F 7F  FF FF FF FF  00 00 FF FF",  // 0 32639, 65535 65535, 0 65535
                           7),
              (Image{1256, 0, 65535, 65534, 256, 65535, 0xCCCC}));
    EXPECT_TRUE(trace.has("    copying buffer with precharge substraction 4 x 2 to 1, 0 - 3, 2"));
}

// Rows of ten pixels: eight go through registers where there are any, two do not.
TEST(PixelKernel, SubtractsPrechargeAlikeInEveryLane)
{
    const std::tuple<uint16_t, uint16_t, int32_t, uint16_t> CASES[] = {
        {1000, 1500, 256, 1256},      {1500, 1000, 256, 0},      {100, 116, -32, 0},     {100, 117, -32, 2},
        {0, 32639, 256, 65534},       {0, 32640, 256, 65535},    {65535, 65535, -1, 0},  {0, 65535, -65536, 65534},
        {65535, 0, 131071, 1},        {65535, 0, 200000, 65535}, {0, 65535, -200000, 0}, {32768, 32767, 3, 1},
        {0, 65535, INT32_MAX, 65535}, {65535, 0, INT32_MIN, 0},
    };
    for (const auto& [precharge, signal, offset, value] : CASES) {
        std::vector<uint16_t> frame;
        for (int i = 0; i < 10; i++)
            frame.insert(frame.end(), {precharge, signal});
        std::vector<uint16_t> image(11, 0xCCCC);
        vornccd::subtractPrecharge(frame, {10, 1, 0, 0, 10, 1}, static_cast<uint32_t>(offset), image.data());
        std::vector<uint16_t> expected(10, value);
        expected.push_back(0xCCCC);
        EXPECT_EQ(image, expected) << precharge << " " << signal << " " << offset;
    }
}

TEST(GetImageIidc, PutsTheRegionInTheHighBytes)
{
    // a frame of 6 x 4; each byte tells row and column
    const char* const frame = "00 01 02 03 04 05 10 11 12 13 14 15 20 21 22 23 24 25 30 31 32 33 34 7F";
    const char* const binned = "00 01 02 10 11 FF";
    const std::tuple<const char*, ReadoutRegion, Image> CASES[] = {
        {"lower right", {4, 2, 2, 2, 1, 1}, {0x2400, 0x2500, 0x3400, 0x7F00, 0xCCCC}},
        {"wide", {1, 1, 3, 2, 1, 1}, {0x1100, 0x1200, 0x1300, 0x2100, 0x2200, 0x2300, 0xCCCC}},
        {"binned", {2, 0, 4, 4, 2, 2}, {0x0100, 0x0200, 0x1100, 0xFF00, 0xCCCC}},
        {"below the frame", {0, 2, 1, 4, 1, 1}, {0x2000, 0x3000, 0, 0, 0xCCCC}},  // the width is the limit
    };
    for (const auto& [label, region, image] : CASES) {
        SCOPED_TRACE(label);
        ReadOutCamera iidc(IIDC, 6, 4, region);
        iidc.usb.in(0x81, region.binX == 2 ? 6 : 24, region.binX == 2 ? binned : frame);
        iidc.usb.device.fault = {.at = 1, .delayUs = 250000};
        TraceCapture trace;
        EXPECT_EQ(iidc.image(image.size(), 9999), image);  // the count is only traced
        EXPECT_TRUE(trace.has("    elapsed 0.25 s"));
    }
}

}  // namespace
