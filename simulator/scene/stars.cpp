// SPDX-License-Identifier: MIT
#include "stars.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "noise.h"

namespace vornsim {

namespace {

constexpr float SKY_GLOW = 2.0f;  // electrons a second a pixel: a dark site through a small telescope
constexpr Tint SKY_TINT = {0.95f, 1.0f, 1.05f};

// A colour filter passes part of the light; the green ones pass most, and sensors are least sensitive in the blue.
constexpr Tint FILTERS = {0.55f, 0.70f, 0.48f};

// Stars are kept in square tiles, each with its own sequence of random numbers, so that those near any rectangle can
// be found without knowing the others.
constexpr int64_t TILE_PIXELS = 64;
constexpr float STARS_PER_TILE = 13.0f;  // on average

// The number of stars brighter than F grows as 1/F, that is tenfold for 2.5 magnitudes (10^0.4 a magnitude), as
// counts of real stars near the Milky Way do. Drawing F as faintest / u with u even in (0, 1] gives just that.
constexpr float FAINTEST_STAR = 25.0f;    // electrons a second
constexpr float BRIGHTEST_STAR = 4.0e7f;  // electrons a second; no tile may outshine the whole sky

// Moffat profile with exponent 3, whose wings are those of real seeing: I(r) = peak / (1 + r^2 / a^2)^3 with
// peak = flux * 2 / (pi a^2). a^2 = 12 makes it 3.5 pixels wide at half its height, like a Gaussian of sigma 1.5.
constexpr float MOFFAT_A2 = 12.0f;
constexpr float PEAK_PER_FLUX = 2.0f / (std::numbers::pi_v<float> * MOFFAT_A2);
constexpr int64_t MIN_REACH_PIXELS = 4;
constexpr int64_t MAX_REACH_PIXELS = 128;

struct Star {
    double x = 0.0;  // sensor pixels; a pixel's centre has whole coordinates
    double y = 0.0;
    float electrons = 0.0f;
    Tint tint;
};

/// Tint of a star from red (-1) over white (0) to blue (+1).
Tint starTint(float blueness)
{
    return {1.0f - 0.55f * blueness, 1.0f, 1.0f + 0.55f * blueness};
}

/// Distance at which a star's light falls below @p cutoff electrons.
int64_t reachOf(float peak, float cutoff)
{
    int64_t reach = MIN_REACH_PIXELS;
    while (reach < MAX_REACH_PIXELS) {
        const float falloff = 1.0f + static_cast<float>(reach * reach) / MOFFAT_A2;
        if (peak < cutoff * falloff * falloff * falloff)
            break;
        reach += reach / 4;
    }
    return std::min(reach, MAX_REACH_PIXELS);
}

void paintStar(const SensorModel& sensor, const Star& star, float cutoff, LightPlane& plane)
{
    const float peak = star.electrons * PEAK_PER_FLUX;
    const int64_t reach = reachOf(peak, cutoff);
    const auto centreX = static_cast<int64_t>(std::floor(star.x));
    const auto centreY = static_cast<int64_t>(std::floor(star.y));
    const auto offsetX = static_cast<float>(star.x - static_cast<double>(centreX));
    const auto offsetY = static_cast<float>(star.y - static_cast<double>(centreY));

    const int64_t left = std::max(centreX - reach, plane.x);
    const int64_t right = std::min(centreX + reach + 1, plane.x + plane.width);
    const int64_t top = std::max(centreY - reach, plane.y);
    const int64_t bottom = std::min(centreY + reach + 1, plane.y + plane.height);
    if (left >= right)
        return;
    for (int64_t y = top; y < bottom; ++y) {
        const RowFilter filter = filterOfRow(sensor, star.tint, y);
        const float dy = static_cast<float>(y - centreY) - offsetY;
        float* pixel = plane.electrons.data() + (y - plane.y) * plane.width + (left - plane.x);
        for (int64_t x = left; x < right; ++x, ++pixel) {
            const float dx = static_cast<float>(static_cast<int32_t>(x - centreX)) - offsetX;
            const float dimming = 1.0f + (dx * dx + dy * dy) / MOFFAT_A2;
            const float light = peak / (dimming * dimming * dimming);
            *pixel += light * ((x & 1) != 0 ? filter.odd : filter.even);
        }
    }
}

void paintTile(uint64_t tileKey, float density, int64_t tileX, int64_t tileY, const SensorModel& sensor,
               const Integration& integration, float cutoff, LightPlane& plane)
{
    const float expected = STARS_PER_TILE * density;
    const float wanted = expected + std::sqrt(expected) * gaussian(hashOf(tileKey, 0));
    const auto count = static_cast<uint64_t>(std::max(wanted, 0.0f));
    for (uint64_t n = 1; n <= count; ++n) {
        const uint64_t place = hashOf(tileKey, 2 * n);
        const uint64_t colour = hashOf(tileKey, 2 * n + 1);
        constexpr double STEP = static_cast<double>(TILE_PIXELS) / 65536.0;
        Star star;
        star.x = static_cast<double>(tileX * TILE_PIXELS) + static_cast<double>(place & 0xFFFF) * STEP;
        star.y = static_cast<double>(tileY * TILE_PIXELS) + static_cast<double>((place >> 16) & 0xFFFF) * STEP;
        star.x += integration.driftX;
        star.y += integration.driftY;
        const float flux = std::min(FAINTEST_STAR / unitInterval(place), BRIGHTEST_STAR);
        star.electrons = flux * static_cast<float>(integration.lightSeconds);
        star.tint = starTint(unitInterval(colour) + unitInterval(colour << 24) - 1.0f);
        paintStar(sensor, star, cutoff, plane);
    }
}

/// Random values at the corners of a grid of @p step tiles, smoothly interpolated. @return 0 to 1.
float smoothNoise(uint64_t key, int64_t tileX, int64_t tileY, int64_t step)
{
    const auto floorDivide = [step](int64_t value) { return (value >= 0 ? value : value - step + 1) / step; };
    const auto ease = [step](int64_t within) {
        const float t = static_cast<float>(within) / static_cast<float>(step);
        return t * t * (3.0f - 2.0f * t);
    };
    const int64_t x = floorDivide(tileX);
    const int64_t y = floorDivide(tileY);
    const float right = ease(tileX - x * step);
    const float down = ease(tileY - y * step);
    const auto corner = [key](int64_t cx, int64_t cy) { return unitInterval(hashOf(key, cx, cy)); };
    const float upper = corner(x, y) * (1.0f - right) + corner(x + 1, y) * right;
    const float lower = corner(x, y + 1) * (1.0f - right) + corner(x + 1, y + 1) * right;
    return upper * (1.0f - down) + lower * down;
}

/// How crowded the sky is around a tile, 1 on average: star clouds and dark lanes of some hundred pixels.
float starDensity(uint64_t seed, int64_t tileX, int64_t tileY)
{
    constexpr uint64_t KEY_CLOUDS = 0x434C4F5544530000u;
    const uint64_t key = hashOf(KEY_CLOUDS, seed);
    return 0.2f + 1.0f * smoothNoise(key, tileX, tileY, 9) + 0.6f * smoothNoise(key + 1, tileX, tileY, 4);
}

/// @return the tile that sensor coordinate @p pixel lies in.
int64_t tileOf(double pixel)
{
    return static_cast<int64_t>(std::floor(pixel / static_cast<double>(TILE_PIXELS)));
}

void paintGlow(const SensorModel& sensor, float glow, LightPlane& plane)
{
    for (int64_t row = 0; row < plane.height; ++row) {
        const RowFilter filter = filterOfRow(sensor, SKY_TINT, plane.y + row);
        float* values = plane.electrons.data() + row * plane.width;
        for (int64_t column = 0; column < plane.width; ++column)
            values[column] = glow * (((plane.x + column) & 1) != 0 ? filter.odd : filter.even);
    }
}

}  // namespace

RowFilter filterOfRow(const SensorModel& sensor, const Tint& tint, int64_t row)
{
    if (!sensor.colour)
        return {};
    const bool redRow = ((row + sensor.bayerY) & 1) == 0;
    const float green = tint.green * FILTERS.green;
    RowFilter filter = redRow ? RowFilter{tint.red * FILTERS.red, green} : RowFilter{green, tint.blue * FILTERS.blue};
    if ((sensor.bayerX & 1) != 0)
        std::swap(filter.even, filter.odd);
    return filter;
}

void paintSky(uint64_t seed, const SensorModel& sensor, const Integration& integration, LightPlane& plane)
{
    plane.electrons.assign(static_cast<size_t>(plane.width * plane.height), 0.0f);
    if (!(integration.lightSeconds > 0.0))
        return;
    const float glow = SKY_GLOW * static_cast<float>(integration.lightSeconds);
    paintGlow(sensor, glow, plane);

    // What a tenth of the sky's own noise hides need not be drawn.
    const float cutoff = 0.1f * std::sqrt(1.0f + glow);
    const int64_t firstX = tileOf(static_cast<double>(plane.x - MAX_REACH_PIXELS) - integration.driftX);
    const int64_t lastX = tileOf(static_cast<double>(plane.x + plane.width + MAX_REACH_PIXELS) - integration.driftX);
    const int64_t firstY = tileOf(static_cast<double>(plane.y - MAX_REACH_PIXELS) - integration.driftY);
    const int64_t lastY = tileOf(static_cast<double>(plane.y + plane.height + MAX_REACH_PIXELS) - integration.driftY);
    // Always in the same order: floating-point sums depend on it.
    for (int64_t tileY = firstY; tileY <= lastY; ++tileY) {
        for (int64_t tileX = firstX; tileX <= lastX; ++tileX)
            paintTile(hashOf(seed, tileX, tileY), starDensity(seed, tileX, tileY), tileX, tileY, sensor, integration,
                      cutoff, plane);
    }
}

}  // namespace vornsim
