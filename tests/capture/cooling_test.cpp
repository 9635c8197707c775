// SPDX-License-Identifier: MIT
#include "capture/cooling.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "simulated_session.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

TEST(Cooling, HasSettledOnceItWasNearForLongEnough)
{
    TemperatureWatch watch(-10.0);
    const std::tuple<double, double, bool> readings[] = {
        {0.0, -9.4, false},  {5.0, -9.5, false},  {34.5, -10.5, false}, {35.0, -10.5, true},
        {36.0, -9.4, false}, {37.0, -9.5, false}, {66.5, -10.0, false}, {67.0, -10.0, true}};
    for (const auto& [seconds, celsius, settled] : readings) {
        watch.add(seconds, celsius);
        EXPECT_EQ(watch.settled(), settled) << seconds;
    }
}

TEST(Cooling, GoesDownARampAndSettles)
{
    CameraSession session("K12");
    const double begin = *session->readTelemetry().ccdCelsius();
    double before = begin + 0.01;
    double seconds = 0.0;
    const Status cooled = coolDown(*session.session.value(), {.targetCelsius = -10.0, .perMinute = 5.0}, nullptr,
                                   [&](const Telemetry& telemetry, double setPoint, double elapsed) {
                                       EXPECT_LE(setPoint, before);
                                       EXPECT_NEAR(setPoint, std::max(-10.0, begin - elapsed / 12.0), 0.01);
                                       EXPECT_GT(*telemetry.ccdCelsius(), setPoint - 0.5) << "colder than asked for";
                                       before = setPoint;
                                       seconds = elapsed;
                                   });
    EXPECT_TRUE(cooled.ok()) << cooled.error().text;
    EXPECT_NEAR(session.truth().sensorCelsius, -10.0, 0.5);
    const double rampSeconds = (begin + 10.0) * 12.0;
    EXPECT_GE(seconds, rampSeconds + TemperatureWatch::HOLD_SECONDS - 10.0);
    EXPECT_LT(seconds, rampSeconds + 120.0);
}

TEST(Cooling, EndsInTimeAndWhenToldToButGoesOnCooling)
{
    CameraSession session("K12");
    const Status tooLow = coolDown(*session.session.value(), {.targetCelsius = -55.0, .limitSeconds = 600.0});
    ASSERT_FALSE(tooLow.ok());
    EXPECT_EQ(tooLow.error().kind, ErrorKind::TIMEOUT);
    EXPECT_NE(tooLow.error().text.find("not settled at -55.0 degC; it is at -"), std::string::npos)
        << tooLow.error().text;

    CancelToken cancel;
    const Status stopped = coolDown(*session.session.value(), {.targetCelsius = 0.0}, &cancel,
                                    [&](const Telemetry&, double, double) { cancel.request(); });
    ASSERT_FALSE(stopped.ok());
    EXPECT_EQ(stopped.error().kind, ErrorKind::CANCELLED);
    const Telemetry telemetry = session->readTelemetry();
    EXPECT_EQ(telemetry.coolingState, COOLING_SETPOINT);
    EXPECT_NEAR(*telemetry.targetCelsius, 0.0, 0.1);
}

TEST(Cooling, WarmsUpUntilTheCoolerIsOff)
{
    CameraSession session("K12");
    Session& camera = *session.session.value();
    ASSERT_TRUE(coolDown(camera, {.targetCelsius = -15.0}).ok());
    ASSERT_TRUE(warmUp(camera, true).ok());
    EXPECT_EQ(camera.readTelemetry().coolingState, COOLING_INACTIVE);
    EXPECT_GT(session.truth().sensorCelsius, 10.0);
    ASSERT_TRUE(coolDown(camera, {.targetCelsius = -15.0, .wait = false}).ok());
    EXPECT_GT(session.truth().sensorCelsius, 10.0) << "it did not wait";
    const Status slow = warmUp(camera, true, 5.0);
    EXPECT_TRUE(slow.ok() || slow.error().kind == ErrorKind::TIMEOUT);
}

TEST(Cooling, RefusesWhatMakesNoSense)
{
    CameraSession session("K12");
    for (const CoolingRequest& request :
         {CoolingRequest{.targetCelsius = -61.0}, CoolingRequest{.targetCelsius = 41.0},
          CoolingRequest{.targetCelsius = std::nan("")}, CoolingRequest{.targetCelsius = 0.0, .perMinute = 0.0}})
        EXPECT_EQ(coolDown(*session.session.value(), request).error().kind, ErrorKind::BAD_REQUEST);
    CameraSession uncooled("XRM");
    EXPECT_EQ(coolDown(*uncooled.session.value(), {}).error().text, "Vorn XRM has no cooler");
    EXPECT_FALSE(warmUp(*uncooled.session.value(), false).ok());
}

}  // namespace
