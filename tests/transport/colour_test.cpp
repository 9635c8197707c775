// SPDX-License-Identifier: MIT
#include <tuple>

#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;

TEST(CheckColour, DecodesTheRecord)
{
    struct {
        const char* record;  ///< empty: cannot be read
        COLOUR_TYPE colour;
        int offsetX;
        int offsetY;
    } const CASES[] = {
        {"84 D9 01 00 55", COLOUR_RGGB, 0, 0}, {"84 D9 01 01 55", COLOUR_RGGB, 0, 1},
        {"84 D9 01 02 55", COLOUR_RGGB, 1, 0}, {"84 D9 01 03 55", COLOUR_RGGB, 1, 1},
        {"84 D9 01 04 55", COLOUR_NONE, 0, 0}, {"84 D9 01 FF 55", COLOUR_NONE, 0, 0},
        {"85 D9 01 03 55", COLOUR_NONE, 0, 0}, {"84 D8 01 03 55", COLOUR_NONE, 0, 0},
        {"84 D9 00 03 55", COLOUR_NONE, 0, 0}, {"", COLOUR_NONE, 0, 0},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.record);
        OpenedCamera standard;
        standard.camera.colour = COLOUR_RGGB;
        standard.camera.offsetX = standard.camera.offsetY = 9;
        standard.usb.eepRead(0xE8, 5, row.record);
        if (*row.record == '\0')
            standard.usb.cut(1).fails();
        standard.camera.checkColour();
        EXPECT_EQ(std::tuple(standard.camera.colour, standard.camera.offsetX, standard.camera.offsetY),
                  std::tuple(row.colour, row.offsetX, row.offsetY));
    }
}

}  // namespace
