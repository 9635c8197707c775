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

/// For builds with sanitizers: what the fonts' library keeps to the end of the process.
extern "C" const char* __lsan_default_suppressions();  // NOLINT: the sanitizer's name
extern "C" const char* __lsan_default_suppressions()   // NOLINT
{
    return "leak:libfontconfig\n";
}

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

constexpr std::array<uint8_t, 3> SENSOR_BLUE = {0x1F, 0x5F, 0xBF};

class CurvePlot : public ::testing::Test, protected capturetest::TestDirectory {
protected:
    static constexpr size_t WIDTH = 900;
    static constexpr size_t HEIGHT = 500;

    /// Draws a curve as PNG. @return the mean height of the sensor's curve in each column, 0 where there is none; the
    /// legend does not count
    std::vector<double> sensorCurve(const std::vector<CurvePoint>& points) const
    {
        using namespace std::chrono;
        const Clock::Utc start = sys_days{2024y / February / 29} + 23h + 55min;
        const Status written = writeCurvePlot({"Vorn K12", start, points}, path("a.png"), true);
        EXPECT_TRUE(written.ok()) << written.error().text;
        const auto [channels, levels] = capturetest::readPng(path("a.png"));
        EXPECT_EQ(channels, 3U);
        EXPECT_EQ(levels.size(), WIDTH * HEIGHT * 3);
        std::vector<double> means(WIDTH);
        for (size_t x = 0; x < WIDTH && levels.size() == WIDTH * HEIGHT * 3; ++x) {
            double sum = 0.0;
            double count = 0.0;
            for (size_t y = 60; y < HEIGHT; ++y) {
                if (std::equal(SENSOR_BLUE.begin(), SENSOR_BLUE.end(), &levels[(y * WIDTH + x) * 3])) {
                    sum += static_cast<double>(y);
                    count += 1.0;
                }
            }
            means[x] = count > 0.0 ? sum / count : 0.0;
        }
        return means;
    }
};

TEST_F(CurvePlot, ShowsTheTemperatureOverTheTimeWithItsGap)
{
    const auto points = coolingNight();
    const auto curve = sensorCurve(points);
    const auto at = [&curve](double seconds) { return curve[static_cast<size_t>(70.0 + 770.0 * seconds / 600.0)]; };
    EXPECT_EQ(at(270.0), 0.0) << "the camera did not answer";
    // The scale goes from -30 to 20 degrees between the lines 445 and 60.
    for (const double seconds : {60.0, 120.0, 180.0, 400.0, 590.0}) {
        const double celsius = *points[static_cast<size_t>(seconds / 5.0)].celsius;
        EXPECT_NEAR(at(seconds), 445.0 - (celsius + 30.0) / 50.0 * 385.0, 3.0) << seconds;
    }
}

TEST_F(CurvePlot, DrawsLittleAndNothing)
{
    const std::vector<std::vector<CurvePoint>> rows = {{},
                                                       {{0.0, {}, {}, {}}},
                                                       {{0.0, 5.0, {}, {}}},
                                                       {{0.0, 5.0, 5.0, 0.0}, {1e-9, 5.0, 5.0, 0.0}},
                                                       {{0.0, -1e9, 1e9, 1e9}, {1e9, std::nan(""), -1e9, -1.0}}};
    for (const auto& points : rows)
        (void)sensorCurve(points);
}

TEST_F(CurvePlot, IsPngOrSvgByItsNameAndNothingElse)
{
    EXPECT_TRUE(writeCurvePlot({"Vorn K12", {}, coolingNight()}, path("a.SVG"), false).ok());
    EXPECT_NE(contents("a.SVG").find("<svg"), std::string::npos);
    for (const char* name : {"a.jpg", "png", "a.svgz"}) {
        EXPECT_EQ(checkCurvePlot(path(name), false).error().kind, ErrorKind::BAD_REQUEST) << name;
        EXPECT_FALSE(writeCurvePlot({}, path(name), false).ok()) << name;
    }
    EXPECT_FALSE(checkCurvePlot(path("a.SVG"), false).ok()) << "exists";
    EXPECT_EQ(names().size(), 1U);
}

TEST(TimeScale, HasRoundTimesOfDay)
{
    using namespace std::chrono;
    const Clock::Utc start = sys_days{2024y / February / 29} + 23h + 58min + 57s;
    struct Row {
        double lastSeconds;
        const char* labels;
        double first;
    };
    constexpr Row ROWS[] = {
        {0.0, "23:58:57 ", 0.0},
        {4.0, "23:58:57 23:58:58 23:58:59 23:59:00 23:59:01 ", 0.0},
        {100.0, "23:59:00 23:59:15 23:59:30 23:59:45 00:00:00 00:00:15 00:00:30 ", 3.0},
        {3600.0, "00:00 00:10 00:20 00:30 00:40 00:50 ", 63.0},
        {30000.0, "00:00 01:00 02:00 03:00 04:00 05:00 06:00 07:00 08:00 ", 63.0},
        {86400.0 * 20.0, "03-03 03-06 03-09 03-12 03-15 03-18 ", 172863.0},
    };
    for (const Row& row : ROWS) {
        const auto scale = timeScale(start, row.lastSeconds);
        std::string labels;
        for (const auto& [seconds, label] : scale)
            labels += label + " ";
        EXPECT_EQ(labels, row.labels);
        EXPECT_NEAR(scale.empty() ? -1.0 : scale.front().first, row.first, 1e-6);
    }
}

}  // namespace
