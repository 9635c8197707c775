// SPDX-License-Identifier: MIT
#include "scene/scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "scene/stars.h"

namespace vornsim {
namespace {

constexpr double NOWHERE_FULL = 1.0e9;

/// A sensor without noise of its own: one electron a unit, no bias, nothing saturates below the converter.
SensorModel quietSensor()
{
    SensorModel sensor;
    sensor.width = 320;
    sensor.height = 240;
    sensor.electronsPerAdu = 1.0;
    sensor.readNoise = 0.0;
    sensor.darkCurrentAtZero = 0.0;
    sensor.fullWell = NOWHERE_FULL;
    sensor.biasAdu = 0.0;
    return sensor;
}

Integration light(double seconds, uint64_t frame = 0)
{
    return {.lightSeconds = seconds, .darkSeconds = seconds, .frameNumber = frame};
}

std::vector<uint16_t> wholeFrame(const SensorModel& sensor, const Integration& integration, uint32_t bin = 1,
                                 uint64_t seed = 1)
{
    const Region region = {0, 0, sensor.width, sensor.height, bin, bin};
    return Scene(seed).expose(sensor, integration, region, sensor.width / bin, sensor.height / bin);
}

double mean(const std::vector<uint16_t>& values)
{
    double sum = 0.0;
    for (const uint16_t value : values)
        sum += value;
    return sum / static_cast<double>(values.size());
}

/// Covariance of the noise of pixels @p distance apart, their variance for 0, from two frames that differ in nothing
/// else.
double noiseCovariance(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b, size_t distance)
{
    double products = 0.0;
    for (size_t i = distance; i < a.size(); ++i)
        products += (a[i] - b[i]) * (a[i - distance] - b[i - distance]);
    return products / 2.0 / static_cast<double>(a.size() - distance);
}

TEST(Expose, ChargeFollowsTimeAndTemperature)
{
    SensorModel sensor = quietSensor();
    sensor.biasAdu = 100.0;
    sensor.darkCurrentAtZero = 5.0;
    const auto dark = [](double seconds, double celsius) {
        return Integration{.darkSeconds = seconds, .celsius = celsius};
    };
    const struct {
        const char* label;
        Integration once;
        Integration twice;
    } cases[] = {{"dark, twice the time", dark(20, 0), dark(40, 0)},
                 {"dark, 6 degrees warmer", dark(20, -3), dark(20, 3)},
                 {"light, twice the time", {.lightSeconds = 5}, {.lightSeconds = 10}}};
    for (const auto& c : cases) {
        const double once = mean(wholeFrame(sensor, c.once)) - 100.0;
        const double twice = mean(wholeFrame(sensor, c.twice)) - 100.0;
        EXPECT_GT(once, 9.0) << c.label;
        EXPECT_NEAR(twice / once, 2.0, 0.02) << c.label;
    }
    EXPECT_NEAR(mean(wholeFrame(sensor, dark(20, 0))), 200.0, 4.0) << "5 electrons a second at 0 degrees";
    EXPECT_NEAR(mean(wholeFrame(sensor, {})), 100.0, 0.01) << "no time, no charge";
}

TEST(Expose, NoiseIsThatOfElectronsAndOneReading)
{
    SensorModel sensor = quietSensor();
    sensor.biasAdu = 1000.0;
    sensor.electronsPerAdu = 0.5;
    sensor.readNoise = 8.0;
    const struct {
        const char* label;
        Integration integration;
        uint32_t bin;
    } cases[] = {
        {"bias", {}, 1}, {"binned bias", {}, 3}, {"dark", {.darkSeconds = 100}, 1}, {"sky", {.lightSeconds = 5}, 1}};
    sensor.darkCurrentAtZero = 2.0;
    for (const auto& c : cases) {
        Integration next = c.integration;
        next.frameNumber = 1;
        const auto first = wholeFrame(sensor, c.integration, c.bin);
        const auto second = wholeFrame(sensor, next, c.bin);
        const double electrons = (mean(first) - 1000.0) * 0.5;
        const double expected = (electrons + 8.0 * 8.0) / (0.5 * 0.5);
        EXPECT_NEAR(noiseCovariance(first, second, 0) / expected, 1.0, 0.06) << c.label;
        EXPECT_NEAR(noiseCovariance(first, second, 1) / expected, 0.0, 0.06) << c.label << ", neighbours";
        EXPECT_NEAR(noiseCovariance(first, second, sensor.width / c.bin) / expected, 0.0, 0.06) << c.label << ", rows";
    }
}

TEST(Expose, RegionHoldsThePixelsOfTheWholeFrame)
{
    SensorModel sensor;
    sensor.width = 320;
    sensor.height = 240;
    sensor.colour = true;
    const Integration integration = {.lightSeconds = 300, .darkSeconds = 301, .driftX = 0.3, .driftY = -2.7};
    const auto whole = wholeFrame(sensor, integration);
    EXPECT_EQ(whole, wholeFrame(sensor, integration)) << "two calls";
    EXPECT_NE(whole, wholeFrame(sensor, integration, 1, 2)) << "another seed";
    const Region regions[] = {{0, 0, 33, 17},    {287, 223, 33, 17}, {101, 50, 64, 64},
                              {150, 60, 41, 40}, {0, 150, 320, 38},  {319, 0, 1, 240}};
    for (const Region& region : regions) {
        const auto part = Scene(1).expose(sensor, integration, region, region.width, region.height);
        std::vector<uint16_t> expected;
        for (uint32_t row = 0; row < region.height; ++row) {
            const auto start = whole.begin() + int64_t{region.y + row} * sensor.width + region.x;
            expected.insert(expected.end(), start, start + region.width);
        }
        EXPECT_EQ(part, expected) << "region at " << region.x << "," << region.y;
    }
    SensorModel larger = sensor;
    larger.width = 400;
    larger.height = 300;
    EXPECT_EQ(whole, Scene(1).expose(larger, integration, {}, 320, 240)) << "the same sky on a larger sensor";
}

TEST(Expose, BinningAddsCharge)
{
    const SensorModel sensor = quietSensor();
    const Integration integration = light(4.0);
    const auto whole = wholeFrame(sensor, integration);
    const Region region = {3, 5, 60, 60, 3, 2};
    const auto binned = Scene(1).expose(sensor, integration, region, 20, 30);
    for (uint32_t row = 0; row < 30; ++row) {
        for (uint32_t column = 0; column < 20; ++column) {
            int sum = 0;
            for (uint32_t i = 0; i < 6; ++i)
                sum += whole[(5 + row * 2 + i / 3) * sensor.width + 3 + column * 3 + i % 3];
            // Six rounded values, of which negative ones were cut at 0, against one.
            ASSERT_NEAR(binned[row * 20 + column], sum, 4.0) << "cell " << column << "," << row;
        }
    }
}

TEST(Expose, WhatLiesBeyondTheSensorIsBias)
{
    SensorModel sensor = quietSensor();
    sensor.biasAdu = 700.0;
    sensor.darkCurrentAtZero = 100.0;
    const Integration integration = {.darkSeconds = 10};
    const auto corner = Scene(1).expose(sensor, integration, {318, 239, 6, 2, 2, 1}, 3, 2);
    EXPECT_NEAR(corner[0], 2700, 600) << "two pixels of 1000 electrons";
    EXPECT_EQ(std::vector<uint16_t>(corner.begin() + 1, corner.end()), std::vector<uint16_t>(5, 700));
    EXPECT_EQ(Scene(1).expose(sensor, integration, {500, 10, 2, 2}, 2, 2), std::vector<uint16_t>(4, 700));
    const auto half = Scene(1).expose(sensor, integration, {319, 0, 2, 1, 2, 1}, 1, 1);
    EXPECT_NEAR(half[0], 1700, 400) << "a cell that is half on the sensor";
}

TEST(Expose, SaturatesAtTheWellAndAtTheConverter)
{
    SensorModel sensor = quietSensor();
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
        const auto values = wholeFrame(sensor, {.darkSeconds = 10}, c.bin);
        EXPECT_EQ(values, std::vector<uint16_t>(values.size(), c.expected)) << c.expected;
    }
    sensor.bits = 16;
    EXPECT_EQ(Scene(1).expose(sensor, {.darkSeconds = 10}, {319, 0, 2, 1, 2, 1}, 1, 1)[0], 30100)
        << "a cell with one pixel on the sensor: each pixel has its own well";
    EXPECT_LT(mean(wholeFrame(quietSensor(), {})), 1.0) << "values below 0 are cut";
}

TEST(Expose, FewPixelsAreHotAndStayTheSame)
{
    SensorModel sensor = quietSensor();
    sensor.width = 1000;
    sensor.height = 800;
    sensor.darkCurrentAtZero = 1.0;
    const auto first = wholeFrame(sensor, {.darkSeconds = 100, .frameNumber = 1});
    const auto second = wholeFrame(sensor, {.darkSeconds = 100, .frameNumber = 2});
    int hot = 0;
    for (size_t i = 0; i < first.size(); ++i) {
        const bool isHot = first[i] > 2000;
        hot += isHot ? 1 : 0;
        ASSERT_EQ(isHot, second[i] > 2000) << i;
    }
    EXPECT_GT(hot, 50);
    EXPECT_LT(hot, 200);
}

LightPlane skyOf(const SensorModel& sensor, const Integration& integration, int64_t x = 0, int64_t y = 0,
                 int64_t width = 1024, int64_t height = 1024)
{
    LightPlane plane{x, y, width, height, {}};
    paintSky(7, sensor, integration, plane);
    return plane;
}

TEST(PaintSky, BayerPhaseDecidesWhichFilterIsWhere)
{
    // Faintest light of the pixels at (even, even), (odd, even), (even, odd), (odd, odd): the glow alone. In RGGB order
    // green is brightest, then red, then blue.
    const struct {
        unsigned bayerX;
        unsigned bayerY;
        const char* order;
    } cases[] = {{0, 0, "RGGB"}, {1, 0, "GRBG"}, {0, 1, "GBRG"}, {1, 1, "BGGR"}};
    for (const auto& c : cases) {
        SensorModel sensor = quietSensor();
        sensor.colour = true;
        sensor.bayerX = c.bayerX;
        sensor.bayerY = c.bayerY;
        const LightPlane plane = skyOf(sensor, light(100.0), 11, 6, 256, 256);
        float glow[4] = {1e9f, 1e9f, 1e9f, 1e9f};
        for (int64_t i = 0; i < int64_t{256} * 256; ++i) {
            float& faintest = glow[((plane.x + i % 256) & 1) + 2 * ((plane.y + i / 256) & 1)];
            faintest = std::min(faintest, plane.electrons[static_cast<size_t>(i)]);
        }
        std::string order;
        const auto [low, high] = std::minmax_element(glow, glow + 4);
        for (const float value : glow)
            order += value == *high ? 'G' : value == *low ? 'B' : 'R';
        EXPECT_EQ(order, c.order);
    }
}

TEST(PaintSky, StarsGrowTenfoldInNumberOverTwoAndAHalfMagnitudes)
{
    const LightPlane plane = skyOf(quietSensor(), light(1.0), 0, 0, 3000, 3000);
    int brighter[3] = {};
    for (int64_t y = 1; y < 2999; ++y) {
        for (int64_t x = 1; x < 2999; ++x) {
            const float* here = &plane.electrons[static_cast<size_t>(y * 3000 + x)];
            bool top = true;
            for (const int64_t step : {-3001, -3000, -2999, -1, 1, 2999, 3000, 3001})
                top = top && *here > here[step];
            for (int i = 0; top && i < 3; ++i)
                brighter[i] += *here > 10.0 * std::pow(10.0, i) ? 1 : 0;
        }
    }
    EXPECT_GT(brighter[2], 30) << "bright stars";
    EXPECT_NEAR(brighter[1] / static_cast<double>(brighter[2]), 10.0, 3.0);
    EXPECT_NEAR(brighter[0] / static_cast<double>(brighter[1]), 10.0, 2.0);
}

TEST(PaintSky, DriftMovesTheStars)
{
    const SensorModel sensor = quietSensor();
    Integration drifted = light(10.0);
    drifted.driftX = -300.0;
    drifted.driftY = -130.0;
    const LightPlane still = skyOf(sensor, light(10.0), 200, 200, 64, 64);
    EXPECT_EQ(skyOf(sensor, drifted, -100, 70, 64, 64).electrons, still.electrons);

    // Half a pixel: the brightest star's centre of light moves by as much.
    const LightPlane wide = skyOf(sensor, light(10.0));
    const auto brightest = std::max_element(wide.electrons.begin(), wide.electrons.end()) - wide.electrons.begin();
    const auto centre = [&](double drift) {
        Integration integration = light(10.0);
        integration.driftX = drift;
        const LightPlane around = skyOf(sensor, integration, brightest % 1024 - 8, brightest / 1024 - 8, 17, 17);
        double sum = 0.0;
        double moment = 0.0;
        for (size_t i = 0; i < around.electrons.size(); ++i) {
            sum += around.electrons[i];
            moment += around.electrons[i] * static_cast<double>(i % 17);
        }
        return moment / sum;
    };
    EXPECT_NEAR(centre(0.5) - centre(0.0), 0.5, 0.03);
    EXPECT_NEAR(centre(-0.25) - centre(0.0), -0.25, 0.03);
}

TEST(PaintSky, StarsHaveColours)
{
    SensorModel sensor = quietSensor();
    sensor.colour = true;
    const LightPlane plane = skyOf(sensor, light(1.0));
    float reddest = 0.0f;
    float bluest = 1e9f;
    for (size_t y = 0; y < 1024; y += 2) {
        for (size_t x = 0; x < 1024; x += 2) {
            const float red = plane.electrons[y * 1024 + x];
            const float blue = plane.electrons[(y + 1) * 1024 + x + 1];
            if (red + blue < 200.0f)
                continue;
            reddest = std::max(reddest, red / blue);
            bluest = std::min(bluest, red / blue);
        }
    }
    EXPECT_GT(reddest, 2.0f);
    EXPECT_LT(bluest, 0.7f);
}

TEST(Expose, IsTheSameOnEveryMachine)
{
    // FNV-1a over the values, recorded once: compilers, optimisation and processors must not change a bit.
    SensorModel sensor;
    sensor.width = 200;
    sensor.height = 150;
    sensor.colour = true;
    uint64_t hash = 0xCBF29CE484222325u;
    for (const uint16_t value : wholeFrame(sensor, {.lightSeconds = 60, .darkSeconds = 61.5, .celsius = -11.3}))
        hash = (hash ^ value) * 0x100000001B3u;
    EXPECT_EQ(hash, 5119465794020232093u);
}

TEST(Expose, SurvivesImpossibleRequests)
{
    SensorModel sensor;
    sensor.width = 40;
    sensor.height = 30;
    const double strange[] = {-1.0, std::nan(""), std::numeric_limits<double>::infinity(), -1e300};
    for (const double value : strange) {
        const Integration integration = {value, value, value, value, value, 0};
        EXPECT_EQ(Scene(1).expose(sensor, integration, {}, 40, 30).size(), 1200u) << value;
    }
    constexpr uint32_t HUGE_VALUE = 0xFFFFFFFFu;
    EXPECT_EQ(Scene(1).expose(sensor, light(1.0), {1, 1, 0, 0, 0, HUGE_VALUE}, 3, 2).size(), 6u);
    EXPECT_EQ(Scene(1).expose(sensor, light(1.0), {HUGE_VALUE, HUGE_VALUE, 9, 9, 7, 7}, 3, 2).size(), 6u);
    EXPECT_TRUE(Scene(1).expose(sensor, light(1.0), {}, 0, 5).empty());
    EXPECT_EQ(Scene(1).expose(SensorModel{}, light(1.0), {}, 2, 2).size(), 4u) << "a sensor without pixels";
}

TEST(RampPattern, TellsWhereEachValueComesFrom)
{
    EXPECT_EQ(rampPattern({2, 3, 3, 2}, 3, 2), (std::vector<uint16_t>{0x0302, 0x0303, 0x0304, 0x0402, 0x0403, 0x0404}));
    EXPECT_EQ(rampPattern({2, 3, 9, 8, 3, 4}, 3, 2),
              (std::vector<uint16_t>{0x0302, 0x0305, 0x0308, 0x0702, 0x0705, 0x0708}));
    EXPECT_EQ(rampPattern({300, 255, 1, 2}, 1, 2), (std::vector<uint16_t>{0x002C, 0x012C})) << "wraps at 16 bits";
}

}  // namespace
}  // namespace vornsim
