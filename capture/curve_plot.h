// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture/result.h"

namespace vorncapture {

/// One look at a camera's cooling.
struct CurvePoint {
    double seconds = 0.0;  ///< since the first one
    std::optional<double> celsius;
    std::optional<double> targetCelsius;
    std::optional<double> powerPercent;
};

/// A picture of 8-bit red, green and blue, row after row.
struct Canvas {
    unsigned int width = 0;
    unsigned int height = 0;
    std::vector<uint8_t> rgb;
};

constexpr uint32_t TEMPERATURE_COLOUR = 0x1F5FBF;
constexpr uint32_t TARGET_COLOUR = 0x2F9F3F;
constexpr uint32_t POWER_COLOUR = 0xD08020;

/// Draws sensor temperature (blue) and target (green) against the left scale in degrees Celsius, the cooler's power
/// (orange) against the right one from 0 to 100 per cent, and the time below in minutes.
Canvas drawCurve(const std::vector<CurvePoint>& points);

/// Writes the drawing as a PNG file. Error: FILE_ERROR; then there is no new file and no piece of one.
Status writeCurvePlot(const std::vector<CurvePoint>& points, const std::string& path, bool overwrite);

}  // namespace vorncapture
