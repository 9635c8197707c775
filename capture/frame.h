// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture/camera_info.h"
#include "capture/clock.h"
#include "capture/exposure_request.h"
#include "capture/observation.h"

namespace vorncapture {

/// What the camera's sensors and settings say; what is unknown or absent is empty.
struct Telemetry {
    std::vector<std::optional<double>> celsius;  ///< one entry a temperature sensor; the first is the CCD's
    std::optional<COOLING_STATE> coolingState;
    std::optional<double> targetCelsius;  ///< set-point; only while the cooler regulates
    std::optional<double> coolerPowerPercent;
    std::optional<int> gain;    ///< camera setting, 0 to 63
    std::optional<int> offset;  ///< camera setting, 0 to 512

    /// @return the CCD's temperature in degrees Celsius.
    std::optional<double> ccdCelsius() const { return celsius.empty() ? std::nullopt : celsius.front(); }
};

/// A finished picture and all that is known about how it was made.
struct Frame {
    std::vector<uint16_t> pixels;  ///< width x height values in readout order, the first row first
    unsigned int width = 0;
    unsigned int height = 0;

    CameraInfo camera;
    ExposureRequest request;
    Region region;                                      ///< sensor pixels shown
    double exposureSeconds = 0.0;                       ///< truly integrated
    Clock::Utc start;                                   ///< when integration began
    Telemetry telemetry;                                ///< read just before
    std::string imageType = {};                         ///< "Flat Frame"; empty: as the request says
    std::optional<unsigned int> filter = std::nullopt;  ///< position of the filter wheel
    std::string filterName = {};                        ///< empty: it has none
    Observation observation = {};
    std::vector<std::string> notes;
    std::vector<std::string> warnings = {};  ///< those of the notes whose matter spoils the picture unless one acts

    /// @return true when the picture keeps the sensor's Bayer pattern: a colour sensor, unbinned.
    bool bayer() const { return camera.caps.colour == COLOUR_RGGB && request.binX == 1 && request.binY == 1; }

    /// Phase of the RGGB pattern in the picture: pixel (column, row) has the colour of the pattern's element
    /// ((column + bayerX()) % 2, (row + bayerY()) % 2).
    unsigned int bayerX() const { return (static_cast<unsigned int>(camera.caps.offsetX) + region.x) % 2; }
    unsigned int bayerY() const { return (static_cast<unsigned int>(camera.caps.offsetY) + region.y) % 2; }
};

}  // namespace vorncapture
