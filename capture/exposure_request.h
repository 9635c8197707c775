// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

namespace vorncapture {

/// A rectangle of the sensor, in unbinned sensor pixels counted from 0.
struct Region {
    unsigned int x = 0;
    unsigned int y = 0;
    unsigned int width = 0;
    unsigned int height = 0;

    bool operator==(const Region&) const = default;
};

/// Where a colour sensor's RGGB pattern begins: pixel (column, row) has the colour of the pattern's element
/// ((column + x) % 2, (row + y) % 2).
struct BayerPhase {
    int x = 0;  ///< 0 or 1
    int y = 0;  ///< 0 or 1

    bool operator==(const BayerPhase&) const = default;
};

/// What the caller wants to have exposed.
struct ExposureRequest {
    double seconds = 0.0;                         ///< 0 is the shortest exposure the camera can make
    std::optional<Region> region = std::nullopt;  ///< empty: the whole sensor
    unsigned int binX = 1;                        ///< sensor pixels summed in X into one of the image
    unsigned int binY = 1;                        ///< the same in Y
    bool dark = false;                            ///< keep the shutter shut
    bool preview = false;   ///< the camera's faster, noisier readout (STANDARD, CLASSIC, ADVANCED)
    bool eightBit = false;  ///< 8-bit readout, values 0 to 255 (ADVANCED)
    std::optional<BayerPhase> bayer = std::nullopt;  ///< of a sensor whose colours the camera does not report
};

}  // namespace vorncapture
