// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "capture/exposure_plan.h"
#include "capture/exposure_time.h"
#include "capture/session.h"
#include "fake_camera.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

/// Compares each pixel with what the sensor shows at its place.
::testing::AssertionResult showsRegion(const Frame& frame, const Region& region)
{
    const unsigned int binX = frame.request.binX;
    const unsigned int binY = frame.request.binY;
    if (frame.region != region || frame.width != region.width / binX || frame.height != region.height / binY ||
        frame.pixels.size() != size_t{frame.width} * frame.height)
        return ::testing::AssertionFailure()
               << "is " << frame.width << " x " << frame.height << " from " << frame.region.x << "," << frame.region.y;
    for (unsigned int row = 0; row < frame.height; ++row) {
        for (unsigned int column = 0; column < frame.width; ++column) {
            const uint16_t wanted = sensorValue(region.x + column * binX, region.y + row * binY);
            const uint16_t got = frame.pixels[size_t{row} * frame.width + column];
            if (got != wanted)
                return ::testing::AssertionFailure()
                       << "pixel " << column << "," << row << " is " << got << " instead of " << wanted;
        }
    }
    return ::testing::AssertionSuccess();
}

struct RegionCase {
    std::optional<Region> asked;
    unsigned int binX, binY;
    Region shown;
};

constexpr RegionCase REGIONS[] = {
    {std::nullopt, 1, 1, {0, 0, 40, 30}},          // whole, wider than high
    {std::nullopt, 4, 4, {0, 0, 40, 28}},          // 30 rows leave two over
    {std::nullopt, 3, 3, {0, 0, 39, 30}},          // a column left over
    {Region{39, 29, 1, 1}, 1, 1, {39, 29, 1, 1}},  // the last pixel
    {Region{33, 25, 7, 5}, 1, 1, {33, 25, 7, 5}},  // wide, in the far corner
    {Region{35, 3, 5, 27}, 1, 1, {35, 3, 5, 27}},  // high, at the far edge
    {Region{9, 0, 3, 30}, 1, 1, {9, 0, 3, 30}},    // all rows
    {Region{3, 5, 11, 9}, 2, 2, {2, 4, 10, 8}},    // off the binning grid
    {Region{4, 3, 12, 9}, 4, 3, {4, 3, 12, 9}},    // unequal binning
    {Region{5, 1, 8, 28}, 1, 4, {5, 0, 8, 28}},    //
};

/// Takes the pictures of REGIONS, short and long ones, as far as @p session's camera can.
void expectRegions(const FakeSession& session)
{
    const CAMERA_TYPE family = session.state->family;
    for (const RegionCase& row : REGIONS) {
        if (family == IIDC && (row.binX != row.binY || row.binX > 2))
            continue;
        SCOPED_TRACE(std::string(familyName(family)) + " row " + std::to_string(&row - REGIONS));
        for (const double seconds : {0.1, family == IIDC ? 0.2 : 5.0}) {
            const auto frame =
                session->expose({.seconds = seconds, .region = row.asked, .binX = row.binX, .binY = row.binY});
            ASSERT_TRUE(frame.ok()) << frame.error().text;
            EXPECT_TRUE(showsRegion(frame.value(), row.shown));
            EXPECT_EQ(frame.value().notes.empty(), !row.asked || *row.asked == row.shown);
        }
    }
}

TEST(Picture, ShowsTheAskedPixelsOfEveryFamily)
{
    for (const CAMERA_TYPE family : {CLASSIC, STANDARD, QUICKER, IIDC, ADVANCED})
        expectRegions(FakeSession(family));
    const auto state = makeState(QUICKER);
    state->precharge = true;
    expectRegions(FakeSession(state));
}

TEST(Picture, SumsTheBinningThatACameraCannotDo)
{
    for (const CAMERA_TYPE family : {QUICKER, IIDC}) {
        const FakeSession session(family);
        const auto frame = session->expose({.seconds = 0.1, .binX = 1, .binY = 2});
        ASSERT_TRUE(frame.ok()) << frame.error().text;
        ASSERT_EQ(frame.value().pixels.size(), 40U * 15U);
        EXPECT_EQ(frame.value().notes.size(), 1U);
        for (unsigned int i = 0; i < 600; ++i) {
            const unsigned int sum = sensorValue(i % 40, i / 40 * 2) + sensorValue(i % 40, i / 40 * 2 + 1);
            ASSERT_EQ(frame.value().pixels[i], std::min(sum, 65535U)) << familyName(family) << " pixel " << i;
        }
    }
}

TEST(Picture, EightBitRowsLoseTheirPadding)
{
    const FakeSession session(ADVANCED);
    const auto frame = session->expose({.seconds = 0.1, .region = Region{1, 2, 7, 3}, .eightBit = true});
    ASSERT_TRUE(frame.ok());
    ASSERT_EQ(frame.value().pixels.size(), 21U);
    for (unsigned int i = 0; i < 21; ++i)
        EXPECT_EQ(frame.value().pixels[i], sensorValue(1 + i % 7, 2 + i / 7) % 256) << i;
}

struct Refusal {
    CAMERA_TYPE family;
    ExposureRequest request;
    const char* text;  ///< part of what is said
};

TEST(Plan, RefusesBeforeTheCameraIsTouched)
{
    constexpr double NAN_SECONDS = std::numeric_limits<double>::quiet_NaN();
    constexpr unsigned int HUGE_COUNT = 0xFFFFFFFF;
    const Refusal rows[] = {
        {STANDARD, {.seconds = NAN_SECONDS}, "exposure time"},
        {STANDARD, {.seconds = 172800.0}, "longer than a day"},
        {IIDC, {.seconds = 0.6}, "up to 0.5 s"},
        {STANDARD, {.seconds = 1.0, .binY = 5}, "largest, 4x4"},
        {STANDARD, {.seconds = 1.0, .region = Region{0, 0, 0, 4}}, "empty"},
        {STANDARD, {.seconds = 1.0, .region = Region{31, 0, 10, 5}}, "40 x 30"},
        {STANDARD, {.seconds = 1.0, .region = Region{0, 26, 5, 5}}, "40 x 30"},
        {STANDARD, {.seconds = 1.0, .region = Region{HUGE_COUNT, 0, 2, 2}}, "40 x 30"},
        {STANDARD, {.seconds = 1.0, .region = Region{0, 0, 3, 3}, .binX = 4}, "smaller"},
        {QUICKER, {.seconds = 1.0, .preview = true}, "preview"},
        {STANDARD, {.seconds = 1.0, .eightBit = true}, "8-bit"},
    };
    for (const Refusal& row : rows) {
        SCOPED_TRACE(row.text);
        const FakeSession session(row.family);
        const auto frame = session->expose(row.request);
        ASSERT_FALSE(frame.ok());
        EXPECT_EQ(frame.error().kind, ErrorKind::BAD_REQUEST);
        EXPECT_NE(frame.error().text.find(row.text), std::string::npos) << frame.error().text;
        EXPECT_EQ(frame.error().text.find('\n'), std::string::npos);
        EXPECT_EQ(session.state->log.back(), "open");
    }
}

TEST(Plan, ReadsAHighSensorAsFarDownAsTheDriverGoes)
{
    CameraInfo camera{.name = "high", .family = STANDARD, .caps = makeState(STANDARD)->caps};
    camera.caps.pixelCountY = 60;
    EXPECT_TRUE(planExposure(camera, {.seconds = 1.0, .region = Region{0, 0, 40, 40}}).ok());
    const auto refused = planExposure(camera, {.seconds = 1.0, .region = Region{0, 30, 40, 11}});
    ASSERT_FALSE(refused.ok());
    EXPECT_NE(refused.error().text.find("rows from 40"), std::string::npos);
    camera.caps.pixelCountX = camera.caps.pixelCountY = 0xFFFF9000;  // for which no memory is to be taken
    EXPECT_FALSE(planExposure(camera, {.seconds = 1.0}).ok());
}

TEST(ShortExposure, IsWhatTheCameraMakesOfIt)
{
    struct Row {
        CAMERA_TYPE family;
        double asked, made;
    };
    constexpr Row ROWS[] = {{QUICKER, 0.1, 292 * 1024 / 3e6},
                            {QUICKER, 0.0, 1024 / 3e6},
                            {QUICKER, 2.0, 4095 * 1024 / 3e6},
                            {STANDARD, 0.0123456, 0.012346},
                            {ADVANCED, 0.0504, 0.05},
                            {STANDARD, 1.2346, 1.235},
                            {ADVANCED, 10.0, 3.0},
                            {CLASSIC, 0.0094, 0.009},
                            {CLASSIC, 0.0096, 0.01},
                            {CLASSIC, 0.504, 0.5},
                            {CLASSIC, 5.0, 2.46},
                            {IIDC, 0.25, 0.25}};
    for (const Row& row : ROWS)
        EXPECT_NEAR(shortExposureMade(row.family, row.asked), row.made, 1e-9)
            << familyName(row.family) << " " << row.asked;
}

}  // namespace
