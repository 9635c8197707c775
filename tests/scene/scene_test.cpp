// SPDX-License-Identifier: MIT
#include "scene/scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "scene/stars.h"

namespace vornsim {
namespace {

using Values = std::vector<uint16_t>;

/// A sensor without noise of its own: one electron a unit, no bias, nothing saturates below the converter.
const SensorModel QUIET = {.width = 320,
                           .height = 240,
                           .electronsPerAdu = 1.0,
                           .readNoise = 0.0,
                           .darkCurrentAtZero = 0.0,
                           .fullWell = 1.0e9,
                           .biasAdu = 0.0};

Values wholeFrame(const SensorModel& sensor, const Integration& integration, uint32_t bin = 1, uint64_t seed = 1)
{
    const Region region = {0, 0, sensor.width, sensor.height, bin, bin};
    return Scene(seed).expose(sensor, integration, region, sensor.width / bin, sensor.height / bin);
}

double mean(const Values& values)
{
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

TEST(Expose, AScreenIsEvenlyLitButForTheCorners)
{
    const Scene screen(1, true);
    const auto meanOf = [&](uint32_t x, uint32_t y) {
        return mean(screen.expose(QUIET, {.lightSeconds = 0.5}, {x, y, 16, 16, 1, 1}, 16, 16));
    };
    EXPECT_NEAR(meanOf(152, 112), 4000.0, 20.0) << "in the middle";
    // The middle of these pixels is 0.944 of the way to the corner, which loses a fifth: 4000 (1 - 0.2 * 0.8912)
    EXPECT_NEAR(meanOf(0, 0), 3287.0, 20.0) << "near a corner";
    EXPECT_NEAR(meanOf(304, 224), meanOf(0, 0), 40.0) << "in the corner opposite";
}

TEST(Expose, ChargeFollowsTimeAndTemperature)
{
    SensorModel sensor = QUIET;
    sensor.biasAdu = 100.0;
    sensor.darkCurrentAtZero = 5.0;
    const struct {
        const char* label;
        Integration once, twice;
    } cases[] = {
        {"dark, twice the time", {.darkSeconds = 20, .celsius = 0}, {.darkSeconds = 40, .celsius = 0}},
        {"dark, 6 degrees warmer", {.darkSeconds = 20, .celsius = -3}, {.darkSeconds = 20, .celsius = 3}},
        {"light, twice the time", {.lightSeconds = 5}, {.lightSeconds = 10}},
    };
    for (const auto& c : cases) {
        const double once = mean(wholeFrame(sensor, c.once)) - 100.0;
        const double twice = mean(wholeFrame(sensor, c.twice)) - 100.0;
        EXPECT_GT(once, 9.0) << c.label;
        EXPECT_NEAR(twice / once, 2.0, 0.02) << c.label;
    }
    EXPECT_NEAR(mean(wholeFrame(sensor, cases[0].once)), 200.0, 4.0) << "5 electrons a second at 0 degrees";
    EXPECT_NEAR(mean(wholeFrame(sensor, {})), 100.0, 0.01) << "no time, no charge";
}

TEST(Expose, RegionHoldsThePixelsOfTheWholeFrame)
{
    SensorModel sensor = {.width = 320, .height = 240, .colour = true};
    const Integration integration = {.lightSeconds = 300, .darkSeconds = 301, .driftX = 0.3, .driftY = -2.7};
    const Values whole = wholeFrame(sensor, integration);
    EXPECT_NE(whole, wholeFrame(sensor, integration, 1, 2)) << "another seed";
    for (const Region& region : {Region{287, 223, 33, 17}, {101, 50, 64, 64}, {0, 150, 320, 38}, {319, 0, 1, 240}}) {
        const Values part = Scene(1).expose(sensor, integration, region, region.width, region.height);
        Values expected;
        for (uint32_t row = 0; row < region.height; ++row) {
            const auto start = whole.begin() + int64_t{region.y + row} * sensor.width + region.x;
            expected.insert(expected.end(), start, start + region.width);
        }
        EXPECT_EQ(part, expected) << "region at " << region.x << "," << region.y;
    }
    sensor.width = 400;
    EXPECT_EQ(whole, Scene(1).expose(sensor, integration, {}, 320, 240)) << "the same sky on a larger sensor";
}

TEST(Expose, BinningAddsCharge)
{
    const SensorModel sensor = QUIET;
    const Values whole = wholeFrame(sensor, {.lightSeconds = 4});
    const Values binned = Scene(1).expose(sensor, {.lightSeconds = 4}, {3, 5, 60, 60, 3, 2}, 20, 30);
    for (uint32_t cell = 0; cell < 20 * 30; ++cell) {
        int sum = 0;
        for (uint32_t i = 0; i < 6; ++i)
            sum += whole[(5 + cell / 20 * 2 + i / 3) * sensor.width + 3 + cell % 20 * 3 + i % 3];
        // Six rounded values, of which negative ones were cut at 0, against one.
        ASSERT_NEAR(binned[cell], sum, 4.0) << "cell " << cell % 20 << "," << cell / 20;
    }
}

TEST(Expose, WhatLiesBeyondTheSensorIsBias)
{
    SensorModel sensor = QUIET;
    sensor.biasAdu = 700.0;
    sensor.darkCurrentAtZero = 100.0;
    const Values corner = Scene(1).expose(sensor, {.darkSeconds = 10}, {317, 239, 6, 2, 2, 1}, 3, 2);
    EXPECT_NEAR(corner[0], 2700, 600) << "two pixels of 1000 electrons";
    EXPECT_NEAR(corner[1], 1700, 400) << "a cell that is half on the sensor";
    EXPECT_EQ(Values(corner.begin() + 2, corner.end()), Values(4, 700));
}

TEST(Expose, SaturatesAtTheWellAndAtTheConverter)
{
    SensorModel sensor = QUIET;
    sensor.darkCurrentAtZero = 1.0e6;
    sensor.fullWell = 30000.0;
    sensor.biasAdu = 100.0;
    const struct {
        double electronsPerAdu;
        unsigned bits;
        uint32_t bin;
        uint16_t expected;
    } cases[] = {
        {1.0, 16, 1, 30100}, {1.0, 16, 2, 60100}, {1.0, 16, 4, 60100}, {0.4, 16, 1, 65535}, {1.0, 12, 1, 4095}};
    for (const auto& c : cases) {
        sensor.electronsPerAdu = c.electronsPerAdu;
        sensor.bits = c.bits;
        const Values values = wholeFrame(sensor, {.darkSeconds = 10}, c.bin);
        EXPECT_EQ(values, Values(values.size(), c.expected)) << c.expected;
    }
    EXPECT_LT(mean(wholeFrame(QUIET, {})), 1.0) << "values below 0 are cut";
}

TEST(PaintSky, BayerPhaseDecidesWhichFilterIsWhere)
{
    // Faintest light of the pixels at (even, even), (odd, even), (even, odd), (odd, odd): the glow alone. In RGGB order
    // green is brightest, then red, then blue.
    for (unsigned phase = 0; phase < 4; ++phase) {
        SensorModel sensor = QUIET;
        sensor.colour = true;
        sensor.bayerX = phase & 1;
        sensor.bayerY = phase >> 1;
        LightPlane plane = {11, 6, 256, 256, {}};
        paintSky(7, sensor, {.lightSeconds = 100}, plane);
        float glow[4] = {1e9f, 1e9f, 1e9f, 1e9f};
        for (int64_t i = 0; i < int64_t{256} * 256; ++i) {
            float& faintest = glow[((plane.x + i % 256) & 1) + 2 * ((plane.y + i / 256) & 1)];
            faintest = std::min(faintest, plane.electrons[static_cast<size_t>(i)]);
        }
        std::string order;
        const auto [low, high] = std::minmax_element(glow, glow + 4);
        for (unsigned i = 0; i < 4; ++i)
            order += glow[i ^ phase] == *high ? 'G' : glow[i ^ phase] == *low ? 'B' : 'R';
        EXPECT_EQ(order, "RGGB") << phase;
    }
}

TEST(Expose, IsTheSameOnEveryMachine)
{
    // FNV-1a over the values, recorded once: compilers, optimisation and processors must not change a bit.
    uint64_t hash = 0xCBF29CE484222325u;
    for (const uint16_t value :
         wholeFrame({.width = 200, .height = 150, .colour = true},
                    {.lightSeconds = 60, .darkSeconds = 61.5, .celsius = -11.3, .driftX = 20.3, .driftY = -2.7}))
        hash = (hash ^ value) * 0x100000001B3u;
    EXPECT_EQ(hash, 6023482773688083279u);
}

TEST(Expose, SurvivesImpossibleRequests)
{
    const SensorModel sensor = {.width = 40, .height = 30};
    for (const double value : {-1.0, std::nan(""), std::numeric_limits<double>::infinity(), -1e300}) {
        const Integration integration = {value, value, value, value, value, 0};
        EXPECT_EQ(Scene(1).expose(sensor, integration, {}, 40, 30).size(), 1200u) << value;
    }
    constexpr uint32_t HUGE_VALUE = 0xFFFFFFFFu;
    for (const Region& region : {Region{1, 1, 0, 0, 0, HUGE_VALUE}, {HUGE_VALUE, HUGE_VALUE, 9, 9, 7, 7}})
        EXPECT_EQ(Scene(1).expose(sensor, {.lightSeconds = 1}, region, 3, 2).size(), 6u);
    EXPECT_EQ(Scene(1).expose(SensorModel{}, {.lightSeconds = 1}, {}, 2, 2).size(), 4u) << "a sensor without pixels";
}

TEST(RampPattern, TellsWhereEachValueComesFrom)
{
    EXPECT_EQ(rampPattern({2, 3, 9, 8, 3, 4}, 3, 2), (Values{0x0302, 0x0305, 0x0308, 0x0702, 0x0705, 0x0708}));
    EXPECT_EQ(rampPattern({300, 255, 1, 2}, 1, 2), (Values{0x002C, 0x012C})) << "wraps at 16 bits";
}

}  // namespace
}  // namespace vornsim
