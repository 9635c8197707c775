// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture/clock.h"
#include "capture/result.h"

namespace vorncapture {

/// One look at a camera's cooling.
struct CurvePoint {
    double seconds = 0.0;  ///< since CoolingCurve::start, never less than the point before has
    std::optional<double> celsius;
    std::optional<double> targetCelsius;
    std::optional<double> powerPercent;
};

/// What a camera's cooling did.
struct CoolingCurve {
    std::string camera;  ///< for the title, "Vorn K12"
    Clock::Utc start;
    std::vector<CurvePoint> points;
};

/// @return the moments of the time scale, in seconds since @p start, at round times of day, at most ten; and how each
/// is written: "21:30", with seconds where they are needed, or "11-23" for whole days.
std::vector<std::pair<double, std::string>> timeScale(Clock::Utc start, double lastSeconds);

/// Draws sensor temperature (blue) and target (green) against the left scale in degrees Celsius, the cooler's power
/// (orange) against the right one from 0 to 100 per cent, with the time of day (UTC) below, a legend, and camera and
/// date above. Where values are missing the curves have gaps. The file is a PNG or SVG picture by the ending of its
/// name. Error: BAD_REQUEST (another ending), FILE_ERROR; then there is no new file and no piece of one.
Status writeCurvePlot(const CoolingCurve& curve, const std::string& path, bool overwrite);

/// Looks whether writeCurvePlot() can write such a file. Errors: as there.
Status checkCurvePlot(const std::string& path, bool overwrite);

}  // namespace vorncapture
