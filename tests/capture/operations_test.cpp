// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>

#include "capture/accessories.h"
#include "capture/cooling.h"
#include "simulated_session.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

std::string textOf(const Status& status)
{
    return status.ok() ? "ok" : status.error().text;
}

TEST(SleepUntil, EndsAtItsMomentOrSoonAfterAWishToStop)
{
    VirtualClock clock;
    const double start = clock.steadySeconds();
    std::vector<double> ticks;
    EXPECT_TRUE(sleepUntil(clock, start + 0.25, nullptr, [&ticks](double left) { ticks.push_back(left); }));
    EXPECT_NEAR(clock.steadySeconds(), start + 0.25, 1e-4);
    ASSERT_EQ(ticks.size(), 4U);
    EXPECT_NEAR(ticks[0] - ticks[1], CANCEL_STEP_SECONDS, 1e-4);
    EXPECT_LE(ticks[3], 0.0);
    EXPECT_TRUE(sleepUntil(clock, start, nullptr));

    CancelToken cancel;
    const double then = clock.steadySeconds();
    EXPECT_FALSE(sleepUntil(clock, then + 60.0, &cancel, [&cancel](double left) {
        if (left < 59.0)
            cancel.request();
    }));
    EXPECT_NEAR(clock.steadySeconds(), then + 1.0, 0.2);
    EXPECT_FALSE(sleepUntil(clock, then, &cancel)) << "the moment has passed, but the wish to stop is older";
}

TEST(Lines, AreSetUpDrivenAndReadAsFarAsThereAreAny)
{
    CameraSession open("K20");
    Session& session = *open.session.value();
    EXPECT_EQ(textOf(setLineDirections(session, 0x0F)), "ok");
    EXPECT_EQ(textOf(driveLines(session, 0xA5)), "ok");
    const auto levels = readLines(session);
    ASSERT_TRUE(levels.ok());
    EXPECT_EQ(levels.value() & 0x0F, 0x05) << "the others are inputs";
    const std::string tooMany = "Vorn K20 has 8 GPIO lines, so that the largest mask is 255";
    EXPECT_EQ(textOf(setLineDirections(session, 0x100)), tooMany);
    EXPECT_EQ(textOf(driveLines(session, 0x100)), tooMany);
    EXPECT_EQ(textOf(driveLines(session, 0xFF)), "ok");
    open.camera->failAt["getGPIO"] = 2;
    EXPECT_FALSE(readLines(session).ok());

    CameraSession without("K12");
    EXPECT_EQ(textOf(driveLines(*without.session.value(), 0)), "Vorn K12 has no GPIO lines");
    EXPECT_FALSE(readLines(*without.session.value()).ok());
}

TEST(Gain, IsSetInItsRangeAndReadBack)
{
    CameraSession open("K20");
    Session& session = *open.session.value();
    for (const GainSetting& setting : {GainSetting{0, 0}, GainSetting{63, 512}, GainSetting{17, 300}}) {
        EXPECT_EQ(textOf(setGain(session, setting)), "ok");
        const auto found = readGain(session);
        ASSERT_TRUE(found.ok());
        EXPECT_EQ(found.value().gain, setting.gain);
        EXPECT_EQ(found.value().offset, setting.offset);
    }
    for (const GainSetting& setting : {GainSetting{-1, 0}, GainSetting{64, 0}, GainSetting{0, -1}, GainSetting{0, 513}})
        EXPECT_EQ(textOf(setGain(session, setting)), "the gain goes from 0 to 63 and the offset from 0 to 512");
    open.camera->failAt["getGain"] = open.camera->count("getGain") + 1;
    EXPECT_FALSE(readGain(session).ok());
    CameraSession without("K12");
    EXPECT_EQ(textOf(setGain(*without.session.value(), {0, 0})), "Vorn K12 has no gain setting");
    EXPECT_FALSE(readGain(*without.session.value()).ok());
}

TEST(Guiding, KeepsTheRelayClosedForItsTimeAndNotLonger)
{
    CameraSession open("K12");
    Session& session = *open.session.value();
    double drift = 0.0;
    const auto driftSinceThen = [&open, &drift] {
        return open.truth().driftY - std::exchange(drift, open.truth().driftY);
    };
    EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, 1.0, nullptr)), "ok");
    session.clock().sleep(10.0);
    const double aSecond = driftSinceThen();
    EXPECT_NE(aSecond, 0.0);
    for (const double seconds : {0.35, 60.0}) {
        EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, seconds, nullptr)), "ok");
        session.clock().sleep(10.0);
        EXPECT_NEAR(driftSinceThen() / aSecond, seconds, 0.01 * seconds);
    }
    for (const double seconds : {0.0, 60.001, std::nan("")})
        EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, seconds, nullptr)),
                  "a guide pulse lasts from 1 to 60000 milliseconds");
    CancelToken cancel;
    EXPECT_EQ(textOf(guidePulse(session, GuideRelay::X_PLUS, 0.1, &cancel)), "ok");
    cancel.request();
    EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, 5.0, &cancel)), "stopped; the guide relays are open");
    session.clock().sleep(10.0);
    EXPECT_NEAR(driftSinceThen() / aSecond, 0.0, 0.1);
    CameraSession without("XRM");
    EXPECT_EQ(textOf(guidePulse(*without.session.value(), GuideRelay::X_PLUS, 0.1, nullptr)),
              "Vorn XRM has no guide port");
}

TEST(Guiding, OpensTheRelaysAgainWhateverFails)
{
    const std::tuple<int, int, const char*, bool> rows[] = {
        {1, 2, "the guide relay does not close", false},
        {2, 3, "the guide relays do not open", false},  // the camera was closed and opened again, which has helped
        {-2, 3, "the guide relays do not open", true},
    };
    for (const auto& [failing, calls, text, mayMove] : rows) {
        CameraSession open("K12");
        open.camera->failAt["setGuideRelays"] = failing;
        const Status pulse = guidePulse(*open.session.value(), GuideRelay::Y_PLUS, 0.5, nullptr);
        ASSERT_EQ(textOf(pulse).find(text), 0U) << textOf(pulse);
        EXPECT_EQ(pulse.error().advice.find("pull the guide cable") != std::string::npos, mayMove);
        EXPECT_EQ(open.camera->count("setGuideRelays"), calls);
    }
}

TEST(Wheel, TurnsToItsPositionAndSaysWhereItIs)
{
    CameraSession open("K13");
    Session& session = *open.session.value();
    EXPECT_EQ(textOf(turnWheel(session, 3, nullptr)), "ok");
    EXPECT_EQ(open.truth().filterPosition, 3U);
    EXPECT_FALSE(open.truth().filterMoving);
    const std::string outside = "the filter wheel has the positions 1 to 5, not ";
    EXPECT_EQ(textOf(turnWheel(session, 0, nullptr)), outside + "0");
    EXPECT_EQ(textOf(turnWheel(session, 6, nullptr)), outside + "6");
    open.camera->wheelStandsAt = 3;
    EXPECT_EQ(textOf(turnWheel(session, 2, nullptr)), "the filter wheel stands at 3 and not at 2");
    CancelToken cancel;
    cancel.request();
    EXPECT_EQ(textOf(turnWheel(session, 1, &cancel)), "stopped; the filter wheel turns on to its position by itself");
    CameraSession without("XRM");
    EXPECT_EQ(textOf(turnWheel(*without.session.value(), 1, nullptr)), "Vorn XRM has no filter wheel");
}

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

TEST(Cooling, SaysWithinAMinuteThatATargetCannotBeReached)
{
    struct Row {
        double target;
        double secondsAtMost;  ///< from the beginning, or from the end of the sensor's movement
        const char* text;
    };
    constexpr Row ROWS[] = {
        {40.0, 60.0, "the cooler cannot reach 40.0 degC: without any power the sensor stays at 15."},
        {-55.0, 900.0, "the cooler cannot reach -55.0 degC: with all its power the sensor stays"}};
    for (const Row& row : ROWS) {
        CameraSession session("K12");
        double lastMoved = 0.0;
        double before = 0.0;
        double end = 0.0;
        const Status cooled = coolDown(*session.session.value(), {.targetCelsius = row.target}, nullptr,
                                       [&](const Telemetry& telemetry, double, double elapsed) {
                                           end = elapsed;
                                           if (std::exchange(before, *telemetry.ccdCelsius()) != before)
                                               lastMoved = elapsed;
                                       });
        ASSERT_FALSE(cooled.ok());
        EXPECT_EQ(cooled.error().kind, ErrorKind::NOT_REACHED);
        EXPECT_EQ(cooled.error().text.find(row.text), 0U) << cooled.error().text;
        EXPECT_LE(end - lastMoved, 60.0);
        EXPECT_LE(end, row.secondsAtMost);
    }
}

TEST(Cooling, IsNotGivenUpWhileTheSensorMovesOrTheCoolerRegulates)
{
    struct Row {
        double target;
        double power;
        double (*celsiusAt)(double seconds);
        double hopelessFrom;  ///< seconds; 0: never
    };
    const Row rows[] = {
        {-20.0, 100.0, [](double) { return 0.0; }, 45.0},
        {-20.0, 98.0, [](double) { return 0.0; }, 0.0},                           // regulates
        {-20.0, 100.0, [](double) { return -17.5; }, 180.0},                      // slows down near the target
        {-20.0, 100.0, [](double) { return -19.2; }, 0.0},                        // as good as there
        {-20.0, 100.0, [](double seconds) { return -seconds / 90.0; }, 0.0},      // 2/3 degree a minute
        {-20.0, 100.0, [](double seconds) { return -seconds / 300.0; }, 45.0},    // 1/5 degree a minute
        {10.0, 0.0, [](double seconds) { return -20.0 + seconds / 60.0; }, 0.0},  // warms up
        {10.0, 0.0, [](double seconds) { return seconds < 60.0 ? 0.0 : 9.5; }, 45.0},
        {10.0, 50.0, [](double) { return 0.0; }, 0.0},
    };
    for (const Row& row : rows) {
        ReachWatch watch(row.target);
        double hopeless = 0.0;
        for (double seconds = 0.0; seconds <= 400.0 && hopeless == 0.0; seconds += 1.0) {
            Telemetry reading;
            reading.coolerPowerPercent = row.power;
            for (const std::optional<double> celsius :
                 {std::optional<double>(row.celsiusAt(seconds)), std::optional<double>()}) {
                reading.celsius = {celsius};
                watch.add(seconds, row.target, reading);
            }
            hopeless = watch.obstacle() ? seconds : 0.0;
        }
        EXPECT_EQ(hopeless, row.hopelessFrom) << row.target << " with " << row.power << " %: " << row.celsiusAt(100.0);
    }
}

TEST(Cooling, EndsInTimeAndWhenToldToButGoesOnCooling)
{
    CameraSession session("K12");
    const Status slow = coolDown(*session.session.value(), {.targetCelsius = -15.0, .limitSeconds = 20.0});
    ASSERT_FALSE(slow.ok());
    EXPECT_EQ(slow.error().kind, ErrorKind::NOT_REACHED);
    EXPECT_EQ(slow.error().text.find("the sensor has not settled at -15.0 degC in 20 s; it is at "), 0U)
        << slow.error().text;

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
    EXPECT_TRUE(slow.ok() || slow.error().kind == ErrorKind::NOT_REACHED);
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
