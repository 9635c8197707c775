// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "scene.h"

namespace vornsim {

/// Light that falls on a rectangle of the sensor during an integration, before noise.
struct LightPlane {
    int64_t x = 0;                 ///< sensor column of the first value
    int64_t y = 0;                 ///< sensor row of the first value
    int64_t width = 0;             ///< pixels
    int64_t height = 0;            ///< pixels
    std::vector<float> electrons;  ///< row after row, `width * height` of them
};

/// Share of the light that reaches the pixels of an even and of an odd column in one sensor row.
struct RowFilter {
    float even = 1.0f;
    float odd = 1.0f;
};

/// Relative strength of a light in the three colours of a Bayer sensor; a monochrome one sees 1.
struct Tint {
    float red = 1.0f;
    float green = 1.0f;
    float blue = 1.0f;
};

/// @return what the filters over sensor row @p row let through of light of this tint.
RowFilter filterOfRow(const SensorModel& sensor, const Tint& tint, int64_t row);

/// Fills @p plane with the sky's glow and the stars of @p seed. A value depends on the seed, the sensor's colour
/// filters and the integration only, not on which rectangle it is part of.
void paintSky(uint64_t seed, const SensorModel& sensor, const Integration& integration, LightPlane& plane);

}  // namespace vornsim
