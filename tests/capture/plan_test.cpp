// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <limits>

#include "capture/exposure_plan.h"
#include "capture/exposure_time.h"
#include "simulated_session.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

TEST(Plan, RefusesBeforeTheCameraIsTouched)
{
    constexpr double NAN_SECONDS = std::numeric_limits<double>::quiet_NaN();
    constexpr unsigned int HUGE_COUNT = 0xFFFFFFFF;
    const struct {
        const char* model;
        ExposureRequest request;
        const char* text;  ///< part of what is said
    } rows[] = {
        {"K12", {.seconds = NAN_SECONDS}, "exposure time"},
        {"K12", {.seconds = 86400.5}, "longer than a day"},
        {"K12", {.seconds = -0.1}, "0 or more"},
        {"XRM", {.seconds = 0.6}, "up to 0.5 s"},
        {"K12", {.seconds = 1.0, .binX = 0}, "binning 0"},
        {"K12", {.seconds = 1.0, .binY = 0}, "binning 0"},
        {"K12", {.seconds = 1.0, .binX = 5}, "largest, 4x4"},
        {"K12", {.seconds = 1.0, .binY = 5}, "largest, 4x4"},
        {"K12", {.seconds = 1.0, .region = Region{0, 0, 0, 4}}, "empty"},
        {"K12", {.seconds = 1.0, .region = Region{55, 0, 10, 5}}, "64 x 48"},
        {"K12", {.seconds = 1.0, .region = Region{0, 44, 5, 5}}, "64 x 48"},
        {"K12", {.seconds = 1.0, .region = Region{HUGE_COUNT, 0, 2, 2}}, "64 x 48"},
        {"K12", {.seconds = 1.0, .region = Region{0, 0, 3, 3}, .binX = 4}, "smaller"},
        {"K12", {.seconds = 1.0, .region = Region{0, 0, 3, 3}, .binY = 4}, "smaller"},
        {"K01", {.seconds = 1.0, .preview = true}, "preview"},
        {"XRM", {.seconds = 0.1, .preview = true}, "preview"},
        {"K12", {.seconds = 1.0, .eightBit = true}, "8-bit"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const CameraSession session(row.model);
        const int calls = session.camera->device.callCount;
        const auto frame = session->expose(row.request);
        ASSERT_FALSE(frame.ok());
        EXPECT_EQ(frame.error().kind, ErrorKind::BAD_REQUEST);
        EXPECT_NE(frame.error().text.find(row.text), std::string::npos) << frame.error().text;
        EXPECT_EQ(frame.error().text.find('\n'), std::string::npos);
        EXPECT_EQ(session.camera->device.callCount, calls);
    }
}

TEST(Plan, ReadsAHighSensorAsFarDownAsTheDriverGoes)
{
    CameraInfo camera = CameraSession("K12")->info();
    camera.caps.pixelCountX = 40;
    camera.caps.pixelCountY = 60;
    for (const Region& region : {Region{0, 0, 40, 40}, Region{39, 39, 1, 1}})
        EXPECT_TRUE(planExposure(camera, {.seconds = 86400.0, .region = region}).ok());
    const auto refused = planExposure(camera, {.seconds = 1.0, .region = Region{0, 30, 40, 11}});
    ASSERT_FALSE(refused.ok());
    EXPECT_NE(refused.error().text.find("rows from 40"), std::string::npos);
    camera.caps.pixelCountX = camera.caps.pixelCountY = 0xFFFF9000;  // for which no memory is to be taken
    EXPECT_FALSE(planExposure(camera, {.seconds = 1.0}).ok());
}

TEST(Plan, AsksQuickerCamerasForASquareAroundTheRegion)
{
    const CameraInfo camera = CameraSession("K01")->info();  // 64 x 48
    EXPECT_EQ(camera.name, "Vorn K01");
    const struct {
        Region region, asked;
        size_t firstValue;
    } rows[] = {{{60, 40, 4, 8}, {56, 40, 8, 8}, 4},
                {{48, 44, 16, 4}, {48, 32, 16, 16}, 12 * 16},
                {{2, 5, 60, 40}, {2, 0, 60, 60}, 5 * 60}};
    for (const auto& row : rows) {
        const auto plan = planExposure(camera, {.seconds = 1e-6, .region = row.region});
        ASSERT_TRUE(plan.ok()) << plan.error().text;
        EXPECT_EQ(plan.value().asked, row.asked);
        EXPECT_EQ(plan.value().firstValue, row.firstValue);
        ASSERT_EQ(plan.value().notes.size(), 1U);
        EXPECT_EQ(plan.value().notes.front().find("the shortest exposure"), 0U);
    }
}

TEST(Plan, GivesPicturesOfAColourModelThatReportsNoneTheColoursOfTheUser)
{
    const CameraSession session("XRC");
    const auto silent = session->expose({.seconds = 0.01});
    ASSERT_TRUE(silent.ok()) << silent.error().text;
    EXPECT_FALSE(silent.value().bayer());
    ASSERT_EQ(silent.value().notes.size(), 1U);
    EXPECT_NE(silent.value().notes.front().find("--bayer RGGB"), std::string::npos);
    const auto told = session->expose({.seconds = 0.01, .region = Region{1, 0, 8, 8}, .bayer = BayerPhase{0, 1}});
    ASSERT_TRUE(told.ok()) << told.error().text;
    EXPECT_TRUE(told.value().bayer());
    EXPECT_EQ(told.value().bayerX(), 1U);
    EXPECT_EQ(told.value().bayerY(), 1U);
    EXPECT_TRUE(told.value().notes.empty());
    const auto binned = planExposure(session->info(), {.seconds = 0.01, .binX = 2, .binY = 2, .bayer = BayerPhase{}});
    ASSERT_EQ(binned.value().notes.size(), 1U);
    EXPECT_NE(binned.value().notes.front().find("grey"), std::string::npos);
}

TEST(ShortExposure, IsWhatTheCameraMakesOfIt)
{
    constexpr struct {
        CAMERA_TYPE family;
        double asked, made;
    } ROWS[] = {{QUICKER, 1.0, 2929 * 1024 / 3e6},
                {QUICKER, 0.0, 1024 / 3e6},
                {QUICKER, 2.0, 4095 * 1024 / 3e6},
                {STANDARD, 0.0123456, 0.012346},
                {ADVANCED, 0.0504, 0.05},
                {STANDARD, 1.2346, 1.235},
                {ADVANCED, 10.0, 3.0},
                {CLASSIC, 0.009499, 0.009},
                {CLASSIC, 0.0096, 0.01},
                {CLASSIC, 0.504, 0.5},
                {CLASSIC, 5.0, 2.46},
                {IIDC, 0.25, 0.25}};
    for (const auto& row : ROWS)
        EXPECT_NEAR(shortExposureMade(row.family, row.asked), row.made, 1e-9)
            << familyName(row.family) << " " << row.asked;
}

}  // namespace
