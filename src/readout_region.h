// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Region and binning of the last readCCD(), in sensor pixels.
struct ReadoutRegion {
    uint32_t x = 0;
    uint32_t y = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t binX = 0;
    uint32_t binY = 0;
};
