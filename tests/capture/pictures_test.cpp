// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "capture/curve_plot.h"
#include "capture/debayer.h"
#include "capture/png_writer.h"
#include "png_file.h"
#include "test_directory.h"

namespace {

using namespace vorncapture;

using Rgb = std::array<uint16_t, 3>;

constexpr Rgb SKY = {900, 2000, 1400};
constexpr std::array<Rgb, 3> STARS = {{{9000, 2000, 1400}, {900, 9500, 1400}, {900, 2000, 9900}}};
constexpr unsigned STAR_SIZE = 8;

/// What stands at a place of the sensor: three stars, red, green and blue, in a sky with a strong tint.
const Rgb& sceneAt(unsigned x, unsigned y)
{
    const bool star = y / STAR_SIZE == 2 && x / STAR_SIZE % 2 == 1 && x < 6 * STAR_SIZE;
    return star ? STARS.at(x / STAR_SIZE / 2) : SKY;
}

/// What a sensor with this phase of its RGGB filters sees of the scene in a region.
Frame seen(int offsetX, int offsetY, const Region& region)
{
    Frame frame;
    frame.camera.caps.colour = COLOUR_RGGB;
    frame.camera.caps.offsetX = offsetX;
    frame.camera.caps.offsetY = offsetY;
    frame.region = region;
    frame.width = region.width;
    frame.height = region.height;
    for (unsigned y = region.y; y < region.y + region.height; ++y) {
        for (unsigned x = region.x; x < region.x + region.width; ++x) {
            const unsigned colour = (x + static_cast<unsigned>(offsetX)) % 2 + (y + static_cast<unsigned>(offsetY)) % 2;
            frame.pixels.push_back(sceneAt(x, y)[colour]);
        }
    }
    return frame;
}

class Colours : public ::testing::TestWithParam<int>, protected capturetest::TestDirectory {};

TEST_P(Colours, AreThoseOfTheSceneForEachPhaseAndRegion)
{
    const Frame frame =
        seen(GetParam() & 1, GetParam() >> 1 & 1, {static_cast<unsigned int>(GetParam() >> 2 & 1), 3, 61, 50});
    const std::vector<uint16_t> colours = debayer(frame);
    ASSERT_EQ(colours.size(), frame.pixels.size() * 3);
    ASSERT_TRUE(writePng(frame, path("a.png"), false).ok());
    const auto [channels, levels] = capturetest::readPng(path("a.png"));
    ASSERT_EQ(channels, 3U);
    ASSERT_EQ(levels.size(), colours.size());

    for (size_t i = 0; i < frame.pixels.size(); ++i) {
        const auto column = static_cast<unsigned>(i % frame.width);
        const unsigned x = column + frame.region.x;
        const unsigned y = static_cast<unsigned>(i / frame.width) + frame.region.y;
        const Rgb& scene = sceneAt(x, y);
        const unsigned inStar = std::min(x % STAR_SIZE, y % STAR_SIZE);
        if (inStar == 0 || std::max(x % STAR_SIZE, y % STAR_SIZE) == STAR_SIZE - 1)
            continue;  // beside a border between star and sky
        ASSERT_TRUE(std::equal(scene.begin(), scene.end(), &colours[i * 3])) << x << ", " << y;
        const uint8_t* level = &levels[i * 3];
        const auto [darkest, brightest] = std::minmax_element(level, level + 3);
        if (&scene == &SKY)  // grey
            ASSERT_TRUE(*darkest >= 63 && *brightest <= 65) << x << ", " << y;
        else
            ASSERT_TRUE(*brightest > 200 && *darkest < 80 && level + (&scene - STARS.data()) == brightest) << x;
    }
}

INSTANTIATE_TEST_SUITE_P(AllPhases, Colours, ::testing::Range(0, 8));

/// Cooling down along a ramp, with a minute in which the camera did not answer.
std::vector<CurvePoint> coolingNight()
{
    std::vector<CurvePoint> points;
    for (int second = 0; second <= 600; second += 5) {
        CurvePoint& point = points.emplace_back(CurvePoint{static_cast<double>(second), {}, {}, {}});
        if (second > 240 && second < 300)
            continue;
        point.targetCelsius = std::max(-20.0, 15.0 - second / 10.0);
        point.celsius = *point.targetCelsius + 1.5 * std::exp(-second / 200.0) * std::cos(second / 30.0);
        point.powerPercent = second < 350 ? second / 4.0 : 62.5;
    }
    return points;
}

// The references were drawn by this test and looked at. After a change of the drawing the test says where the new ones
// are; look at them and put them in the references' place.
TEST(CurvePlot, LooksAsItDid)
{
    const std::pair<std::string, std::vector<CurvePoint>> curves[] = {
        {"curve_of_a_night.png", coolingNight()},
        {"curve_of_a_moment.png", {{0.0, -9.98, -10.0, 40.0}, {2.0, -10.01, -10.0, 60.0}, {7.0, -10.0, -10.0, 50.0}}}};
    for (const auto& [name, points] : curves) {
        if (drawCurve(points).rgb == capturetest::readPng(CURVE_REFERENCES "/" + name).levels)
            continue;
        const std::string drawn = testing::TempDir() + name;
        ASSERT_TRUE(writeCurvePlot(points, drawn, true).ok());
        ADD_FAILURE() << "the drawing differs from " << name << ": see " << drawn;
    }
}

TEST(CurvePlot, DrawsLittleAndNothing)
{
    const std::vector<std::vector<CurvePoint>> rows = {{},
                                                       {{0.0, {}, {}, {}}},
                                                       {{0.0, 5.0, {}, {}}},
                                                       {{0.0, 5.0, 5.0, 0.0}, {1e-9, 5.0, 5.0, 0.0}},
                                                       {{0.0, -1e9, 1e9, 1e9}, {1e9, std::nan(""), -1e9, -1.0}}};
    for (const auto& points : rows) {
        const Canvas canvas = drawCurve(points);
        EXPECT_EQ(canvas.rgb.size(), size_t{canvas.width} * canvas.height * 3);
    }
    EXPECT_EQ(drawCurve({{0.0, 5.0, 5.0, {}}, {0.0, {}, {}, {}}}).rgb, drawCurve({{0.0, 5.0, 5.0, {}}}).rgb);
}

}  // namespace
