// SPDX-License-Identifier: MIT
#include "scene.h"

#include <algorithm>
#include <cmath>

#include "noise.h"
#include "stars.h"

namespace vornsim {

namespace {

// Each kind of randomness has its own keys.
constexpr uint64_t KEY_STARS = 0x5354415253000000u;
constexpr uint64_t KEY_PIXELS = 0x504958454C530000u;
constexpr uint64_t KEY_SHOT_NOISE = 0x53484F5400000000u;
constexpr uint64_t KEY_READ_NOISE = 0x5245414400000000u;

constexpr double DARK_DOUBLING_CELSIUS = 6.0;
constexpr uint64_t PIXELS_PER_HOT_PIXEL = 8192;
constexpr float HOT_PIXEL_FLOOR = 40.0f;  // the mildest hot pixel's dark current in those of an ordinary pixel

/// Dark current of one pixel in those of an average one: ordinary pixels differ by up to 20 percent, few are hot, and
/// of these most mildly.
float darkFactor(uint64_t hash)
{
    if (hash % PIXELS_PER_HOT_PIXEL == 0)
        return HOT_PIXEL_FLOOR / (unitInterval(hash) + 1.0f / 256.0f);
    return 0.8f + 0.4f * unitInterval(hash);
}

/// Limits what a simulated camera may ask for in error, so that no sum overflows: not-a-number becomes 0.
Integration plausible(Integration integration)
{
    constexpr double MAX_SECONDS = 1.0e7;
    constexpr double MAX_DRIFT_PIXELS = 1.0e6;
    const auto limit = [](double& value, double lowest, double highest) {
        value = std::isnan(value) ? 0.0 : std::clamp(value, lowest, highest);
    };
    limit(integration.lightSeconds, 0.0, MAX_SECONDS);
    limit(integration.darkSeconds, 0.0, MAX_SECONDS);
    limit(integration.driftX, -MAX_DRIFT_PIXELS, MAX_DRIFT_PIXELS);
    limit(integration.driftY, -MAX_DRIFT_PIXELS, MAX_DRIFT_PIXELS);
    return integration;
}

/// Fills @p plane with the light of a white screen through a telescope that darkens the corners.
void paintScreen(const SensorModel& sensor, const Integration& integration, LightPlane& plane)
{
    constexpr float SCREEN_LIGHT = 8000.0f;  // electrons a second a pixel in the middle
    constexpr float CORNER_LOSS = 0.2f;
    const auto light = SCREEN_LIGHT * static_cast<float>(integration.lightSeconds);
    const float middleX = static_cast<float>(sensor.width) / 2.0f;
    const float middleY = static_cast<float>(sensor.height) / 2.0f;
    const float corner = middleX * middleX + middleY * middleY;
    plane.electrons.resize(static_cast<size_t>(plane.width * plane.height));
    float* pixel = plane.electrons.data();
    for (int64_t y = plane.y; y < plane.y + plane.height; ++y) {
        const RowFilter filter = filterOfRow(sensor, {}, y);
        const float dy = static_cast<float>(y) - middleY;
        for (int64_t x = plane.x; x < plane.x + plane.width; ++x) {
            const float dx = static_cast<float>(x) - middleX;
            const float falloff = 1.0f - CORNER_LOSS * (dx * dx + dy * dy) / corner;
            *pixel++ = light * falloff * ((x & 1) != 0 ? filter.odd : filter.even);
        }
    }
}

uint32_t plausibleBinning(uint32_t binning)
{
    return std::clamp(binning, 1u, 0xFFFFu);
}

/// Adds up the charge of a row of bin cells and turns it into converter values.
class Readout {
public:
    Readout(uint64_t seed, const SensorModel& sensor, const Integration& integration)
        : sensor_(sensor),
          pixelKey_(hashOf(KEY_PIXELS, seed)),
          shotKey_(hashOf(hashOf(KEY_SHOT_NOISE, seed), integration.frameNumber)),
          readKey_(hashOf(hashOf(KEY_READ_NOISE, seed), integration.frameNumber)),
          darkElectrons_(static_cast<float>(sensor.darkCurrentAtZero * integration.darkSeconds *
                                            powerOfTwo(integration.celsius / DARK_DOUBLING_CELSIUS))),
          fullWell_(static_cast<float>(sensor.fullWell))
    {
    }

    /// Adds row @p y of the sensor, whose light is in @p plane, to @p charge; column `first` falls into cell 0.
    void addRow(const LightPlane& plane, int64_t y, int64_t first, uint32_t binX, std::vector<float>& charge) const
    {
        const uint64_t pixelRowKey = hashOf(pixelKey_, static_cast<uint64_t>(y));
        const uint64_t shotRowKey = hashOf(shotKey_, static_cast<uint64_t>(y));
        const float* light = plane.electrons.data() + (y - plane.y) * plane.width;
        size_t cell = 0;
        uint32_t inCell = 0;
        for (int64_t column = 0; column < plane.width; ++column) {
            const auto x = static_cast<uint64_t>(first + column);
            const float mean = light[column] + darkElectrons_ * darkFactor(hashOf(pixelRowKey, x));
            // The normal distribution stands for Poisson's; where it goes below zero, read noise covers it.
            const float electrons = mean + std::sqrt(mean) * gaussian(hashOf(shotRowKey, x));
            charge[cell] += std::min(electrons, fullWell_);
            if (++inCell == binX) {
                inCell = 0;
                ++cell;
            }
        }
    }

    /// Converts cells of charge, the first at (@p x, @p y), to values.
    void convert(const std::vector<float>& charge, uint64_t x, uint64_t y, uint32_t binX, bool binned,
                 uint16_t* values) const
    {
        const uint64_t rowKey = hashOf(readKey_, y);
        const float well = binned ? 2.0f * fullWell_ : fullWell_;
        const auto readNoise = static_cast<float>(sensor_.readNoise);
        const auto electronsPerAdu = static_cast<float>(sensor_.electronsPerAdu);
        const auto bias = static_cast<float>(sensor_.biasAdu);
        const auto highest = static_cast<float>((1u << std::min(sensor_.bits, 16u)) - 1u);
        for (size_t cell = 0; cell < charge.size(); ++cell) {
            const float electrons =
                std::min(charge[cell], well) + readNoise * gaussian(hashOf(rowKey, x + cell * binX));
            const float value = bias + electrons / electronsPerAdu + 0.5f;
            values[cell] = static_cast<uint16_t>(std::clamp(value, 0.0f, highest));
        }
    }

private:
    const SensorModel& sensor_;
    uint64_t pixelKey_;
    uint64_t shotKey_;
    uint64_t readKey_;
    float darkElectrons_;
    float fullWell_;
};

}  // namespace

std::vector<uint16_t> Scene::expose(const SensorModel& sensor, const Integration& integration, const Region& region,
                                    uint32_t outWidth, uint32_t outHeight) const
{
    const uint32_t binX = plausibleBinning(region.binX);
    const uint32_t binY = plausibleBinning(region.binY);
    // Where the cells lie on the sensor: what is beyond its edges never held charge.
    const int64_t sensorWidth = sensor.width;
    const int64_t sensorHeight = sensor.height;
    LightPlane plane;
    plane.x = region.x;
    plane.y = region.y;
    plane.width = std::clamp<int64_t>(sensorWidth - plane.x, 0, int64_t{outWidth} * binX);
    plane.height = std::clamp<int64_t>(sensorHeight - plane.y, 0, int64_t{outHeight} * binY);
    if (plane.width == 0 || plane.height == 0)
        plane.width = plane.height = 0;
    const Integration limited = plausible(integration);
    if (screen_)
        paintScreen(sensor, limited, plane);
    else
        paintSky(hashOf(KEY_STARS, seed_), sensor, limited, plane);

    const Readout readout(seed_, sensor, limited);
    std::vector<uint16_t> values(size_t{outWidth} * outHeight);
    std::vector<float> charge(outWidth);
    for (uint32_t row = 0; row < outHeight; ++row) {
        std::fill(charge.begin(), charge.end(), 0.0f);
        const int64_t top = plane.y + int64_t{row} * binY;
        const int64_t bottom = std::min(top + binY, plane.y + plane.height);
        for (int64_t y = top; y < bottom; ++y)
            readout.addRow(plane, y, plane.x, binX, charge);
        readout.convert(charge, region.x, static_cast<uint64_t>(top), binX, binX * binY > 1,
                        values.data() + size_t{row} * outWidth);
    }
    return values;
}

std::vector<uint16_t> rampPattern(const Region& region, uint32_t outWidth, uint32_t outHeight)
{
    const uint32_t binX = plausibleBinning(region.binX);
    const uint32_t binY = plausibleBinning(region.binY);
    std::vector<uint16_t> values;
    values.reserve(size_t{outWidth} * outHeight);
    for (uint32_t row = 0; row < outHeight; ++row) {
        const uint32_t y = region.y + row * binY;
        for (uint32_t column = 0; column < outWidth; ++column)
            values.push_back(static_cast<uint16_t>(y * 256 + region.x + column * binX));
    }
    return values;
}

}  // namespace vornsim
