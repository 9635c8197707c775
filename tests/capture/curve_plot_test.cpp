// SPDX-License-Identifier: MIT
#include "capture/curve_plot.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "png_file.h"

namespace {

using namespace vorncapture;

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
