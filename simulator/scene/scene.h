// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

namespace vornsim {

/// What a sensor is made of. Charges are in electrons.
struct SensorModel {
    uint32_t width = 0;   ///< pixels
    uint32_t height = 0;  ///< pixels
    bool colour = false;
    unsigned bayerX = 0;  ///< column phase of the RGGB pattern: 0 or 1
    unsigned bayerY = 0;  ///< row phase
    double electronsPerAdu = 0.5;
    double readNoise = 8.0;           ///< electrons rms a read
    double darkCurrentAtZero = 0.02;  ///< electrons a second a pixel at 0 degrees Celsius; doubles every 6 degrees
    double fullWell = 30000.0;        ///< electrons a pixel; binned charge saturates at twice that
    double biasAdu = 500.0;
    unsigned bits = 16;  ///< width of the converter
};

/// One integration. Light and dark charge are proportional to the two times.
struct Integration {
    double lightSeconds = 0.0;  ///< time with the shutter open (or without a shutter)
    double darkSeconds = 0.0;   ///< whole time between clearing and reading the sensor
    double celsius = 0.0;       ///< sensor temperature
    double driftX = 0.0;        ///< pixels the sky is shifted right against the sensor
    double driftY = 0.0;        ///< pixels the sky is shifted down
    uint64_t frameNumber = 0;   ///< makes the noise of each frame its own
};

/// Region and binning, as a sensor reads charge: binning adds charge of binX x binY pixels before it is digitised.
struct Region {
    uint32_t x = 0;
    uint32_t y = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t binX = 1;
    uint32_t binY = 1;
};

/// A night sky in front of a sensor: stars, sky glow, dark current, noise, hot pixels. Deterministic: the same seed,
/// sensor, integration and region give the same values on every machine. Star positions depend on the seed only, in
/// sensor pixels from the top-left corner, so cameras of any model with one seed see the same stars at the same places.
class Scene {
public:
    /// @param screen whether the sensor sees an evenly lit white screen, for flats, in the place of the sky: 8000
    ///     electrons a second a pixel in the middle and a fifth less in the corners, before colour filters
    explicit Scene(uint64_t seed, bool screen = false) : seed_(seed), screen_(screen) {}

    /// Reads out one integration. Noise belongs to a pixel and a frame: without binning, a region holds the very values
    /// that the whole frame has there. Binned cells are summed before the one read noise and the converter.
    /// @return the region's values row after row, `outWidth * outHeight` of them; source pixels beyond the sensor
    /// hold no charge and read as bias and read noise. Bin cells start at (x + column * binX, y + row * binY).
    std::vector<uint16_t> expose(const SensorModel& sensor, const Integration& integration, const Region& region,
                                 uint32_t outWidth, uint32_t outHeight) const;

private:
    uint64_t seed_;
    bool screen_;
};

/// A noiseless pattern that shows where each value comes from: the top-left sensor pixel of a bin cell at (column, row)
/// of the sensor gives (row * 256 + column) & 0xFFFF. Same geometry as Scene::expose().
std::vector<uint16_t> rampPattern(const Region& region, uint32_t outWidth, uint32_t outHeight);

}  // namespace vornsim
