// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::TraceCapture;

TEST(CheckColour, DecodesTheRecord)
{
    struct {
        const char* record;
        COLOUR_TYPE colour;
        int offsetX;
        int offsetY;
    } const CASES[] = {
        {"84 D9 01 00 55", COLOUR_RGGB, 0, 0}, {"84 D9 01 01 55", COLOUR_RGGB, 0, 1},
        {"84 D9 01 02 55", COLOUR_RGGB, 1, 0}, {"84 D9 01 03 55", COLOUR_RGGB, 1, 1},
        {"84 D9 01 04 55", COLOUR_NONE, 0, 0}, {"84 D9 01 FF 55", COLOUR_NONE, 0, 0},
        {"85 D9 01 03 55", COLOUR_NONE, 0, 0}, {"84 D8 01 03 55", COLOUR_NONE, 0, 0},
        {"84 D9 00 03 55", COLOUR_NONE, 0, 0}, {"FF FF FF FF FF", COLOUR_NONE, 0, 0},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.record);
        OpenedCamera standard;
        standard.camera.colour = COLOUR_RGGB;
        standard.camera.offsetX = standard.camera.offsetY = 9;
        standard.usb.eepRead(0xE8, 5, row.record);
        standard.camera.checkColour();
        EXPECT_EQ(standard.camera.colour, row.colour);
        EXPECT_EQ(standard.camera.offsetX, row.offsetX);
        EXPECT_EQ(standard.camera.offsetY, row.offsetY);
    }
}

TEST(CheckColour, AnUnreadableRecordMeansMonochrome)
{
    OpenedCamera standard;
    standard.camera.colour = COLOUR_RGGB;
    standard.camera.offsetX = 1;
    standard.usb.i2cWrite("A2 00 E8").fails(LIBUSB_ERROR_TIMEOUT);
    TraceCapture trace;
    standard.camera.checkColour();
    EXPECT_EQ(standard.camera.colour, COLOUR_NONE);
    EXPECT_TRUE(trace.has("    colour = 1, offsetX = 0, offsetY = 0"));
}

}  // namespace
