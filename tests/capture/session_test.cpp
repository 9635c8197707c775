// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>

#include "fake_camera.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

double secondsBetween(Clock::Utc from, Clock::Utc to)
{
    return std::chrono::duration<double>(to - from).count();
}

TEST(OpenSession, LimitsTheReadsBeforeOpeningAndClosesAtTheEnd)
{
    const auto state = makeState(STANDARD);
    EXPECT_EQ(FakeSession(state)->info().serialNumber, 4711U);
    EXPECT_EQ(state->log, (std::vector<std::string>{"setParam 3 1048576", "open", "close"}));
}

TEST(OpenSession, TriesASecondTimeAndThenExplains)
{
    const auto recovers = makeState(STANDARD);
    recovers->failAt["open"] = 1;
    EXPECT_TRUE(FakeSession(recovers).session.ok());

    const auto fails = makeState(STANDARD);
    fails->failAt["open"] = 0;
    const auto mute = makeState(CLASSIC);
    mute->hangIn = "open";
    for (const auto& state : {fails, mute}) {
        const FakeSession session(state, 30ms);
        ASSERT_FALSE(session.session.ok());
        EXPECT_EQ(session.session.error().kind, ErrorKind::TIMEOUT);
        EXPECT_EQ(state->count("open"), state == fails ? 2 : 1);
    }
}

TEST(LongExposure, IsTimedByTheSensorsIntegration)
{
    struct Row {
        CAMERA_TYPE family;
        double lead, asked, made;
    };
    // The last ones lie beyond what delay() can say, and below the camera's own lead.
    constexpr Row ROWS[] = {
        {STANDARD, 0.0, 10.0, 10.0},   {CLASSIC, 2.0, 2.5, 2.5},        {QUICKER, 0.1, 1.5, 1.5},
        {ADVANCED, 0.3, 600.0, 600.0}, {STANDARD, 0.0, 5000.0, 5000.0}, {CLASSIC, 2.0, 2200.0, 2200.0},
        {ADVANCED, 4.0, 3.5, 4.0},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(std::string(familyName(row.family)) + " " + std::to_string(row.asked));
        const auto state = makeState(row.family);
        state->leadSeconds = row.lead;
        const FakeSession session(state);
        double lastElapsed = 0.0;
        const auto frame = session->expose({.seconds = row.asked}, nullptr, [&](Phase, double elapsed, double) {
            EXPECT_GE(elapsed, lastElapsed);
            lastElapsed = elapsed;
        });
        ASSERT_TRUE(frame.ok());
        EXPECT_NEAR(state->integrated, row.made, 1e-3);
        EXPECT_NEAR(frame.value().exposureSeconds, row.made, 1e-3);
        EXPECT_NEAR(secondsBetween(state->integratedFromUtc, frame.value().start), 0.0, 1e-6);
        EXPECT_EQ(state->count("startExposure"), 1);
    }
}

TEST(ShortExposure, BeginsItsTimeBeforeTheCommandReturns)
{
    for (const CAMERA_TYPE family : {STANDARD, IIDC}) {
        const auto state = makeState(family);
        const FakeSession session(state);
        const auto before = state->clock->utc();
        const auto frame = session->expose({.seconds = 0.5});
        ASSERT_TRUE(frame.ok());
        EXPECT_EQ(state->count("startExposure"), 0);
        // A register camera's command returns when the exposure begins; the fake lets the time pass inside it.
        EXPECT_NEAR(secondsBetween(before, frame.value().start), family == IIDC ? 0.5 : 0.0, 1e-6);
        EXPECT_NEAR(frame.value().exposureSeconds, 0.5, 1e-9);
    }
}

TEST(Exposure, KeepsTheShutterShutForDarks)
{
    const FakeSession session(STANDARD);
    ASSERT_TRUE(session->expose({.seconds = 1.0, .dark = true}).ok());
    EXPECT_EQ(session.state->count("setDarkFrameMode 1"), 1);
    ASSERT_TRUE(session->expose({.seconds = 1.0}).ok());
    EXPECT_EQ(session.state->count("setDarkFrameMode 0"), 1);
    const auto shutterless = FakeSession(ADVANCED)->expose({.seconds = 1.0, .dark = true});
    ASSERT_TRUE(shutterless.ok());
    EXPECT_EQ(shutterless.value().notes.size(), 1U);
}

TEST(Exposure, CancelledInAnyPhaseClosesTheShutterAndKeepsTheCameraUsable)
{
    for (const Phase when : {Phase::STARTING, Phase::EXPOSING, Phase::READING}) {
        for (const double seconds : {1.0, 10.0}) {
            SCOPED_TRACE(static_cast<int>(when));
            const auto state = makeState(STANDARD);
            const FakeSession session(state);
            CancelToken cancel;
            if (when == Phase::READING)  // asked for while the camera is busy transferring
                state->hangIn = "getImage";
            const auto stopAt = [&](Phase phase, double elapsed, double) {
                if (phase != when || (when == Phase::EXPOSING && seconds > 5.0 && elapsed < 5.0))
                    return;
                if (!cancel.requested())
                    cancel.request();
                state->release = true;
            };
            const auto frame = session->expose({.seconds = seconds}, &cancel, stopAt);
            ASSERT_FALSE(frame.ok());
            EXPECT_EQ(frame.error().kind, ErrorKind::CANCELLED);
            EXPECT_EQ(state->log.back(), "abortExposure");
            EXPECT_EQ(state->count("readCCD"), state->count("getImage"));  // a lock is never left behind
            EXPECT_EQ(state->count("getImage"), when == Phase::READING ? 1 : 0);
            EXPECT_TRUE(session->expose({.seconds = seconds}).ok());
        }
    }
}

TEST(Exposure, CancelledTwiceOrTimedOutLeavesAHangingReadout)
{
    for (const bool cancels : {true, false}) {
        const auto state = makeState(QUICKER);
        state->hangIn = "getImage";
        const FakeSession session(state, cancels ? 5000ms : 50ms);
        CancelToken cancel;
        const auto stop = [&](Phase phase, double, double) {
            if (cancels && phase == Phase::READING)
                cancel.request();
        };
        const auto frame = session->expose({.seconds = 0.01}, &cancel, stop);
        ASSERT_FALSE(frame.ok());
        EXPECT_EQ(frame.error().kind, cancels ? ErrorKind::CANCELLED : ErrorKind::TIMEOUT);
        EXPECT_TRUE(session->stuck());
        EXPECT_FALSE(session->expose({.seconds = 0.01}).ok());  // nothing more is asked of the camera
    }
}

TEST(Exposure, FailingOperationsCloseTheShutterAndTellWhetherTheCameraIsThere)
{
    struct Row {
        const char* operation;
        double seconds;
        const char* openError;  ///< when opened again; null when that works
        ErrorKind kind;
    };
    constexpr Row ROWS[] = {
        {"startExposure", 10.0, nullptr, ErrorKind::FAILED},
        {"readCCD", 10.0, nullptr, ErrorKind::FAILED},
        {"getImage", 10.0, nullptr, ErrorKind::FAILED},
        {"readCCD", 1.0, nullptr, ErrorKind::FAILED},
        {"getImage", 1.0, "Failed to open device", ErrorKind::DEVICE_LOST},
        {"startExposure", 10.0, "Failed to initialize device", ErrorKind::TIMEOUT},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(std::string(row.operation) + " " + std::to_string(row.seconds));
        const auto state = makeState(STANDARD);
        const FakeSession session(state);
        state->failAt[row.operation] = 1;
        if (row.openError != nullptr) {
            state->openError = row.openError;
            state->failAt["open"] = 2;
        }
        const auto frame = session->expose({.seconds = row.seconds});
        ASSERT_FALSE(frame.ok());
        EXPECT_EQ(frame.error().kind, row.kind) << frame.error().text;
        EXPECT_NE(frame.error().text.find("says the fake"), std::string::npos);
        const std::vector<std::string> tail(state->log.end() - 3, state->log.end());
        EXPECT_EQ(tail, (std::vector<std::string>{"abortExposure", "close", "open"}));
        if (row.openError == nullptr) {
            EXPECT_TRUE(session->expose({.seconds = row.seconds}).ok());
        }
    }
}

TEST(Telemetry, AsksOnlyWhatCannotEndTheProcess)
{
    const auto state = makeState(ADVANCED);
    state->celsius = std::nanf("");  // the camera names no encoding of its temperatures
    const Telemetry blind = FakeSession(state)->readTelemetry();
    EXPECT_FALSE(blind.ccdCelsius());
    EXPECT_FALSE(blind.targetCelsius);
    EXPECT_EQ(state->count("getCoolingStatus"), 0);
    EXPECT_EQ(blind.gain, 17);

    const Telemetry known = FakeSession(STANDARD)->readTelemetry();
    EXPECT_EQ(known.ccdCelsius(), -10.0);
    EXPECT_EQ(known.targetCelsius, -12.5);
    EXPECT_FALSE(known.gain);  // success without a value is no value

    const auto frozen = makeState(IIDC);
    frozen->celsius = -273.15F;  // what a register that cannot be read amounts to
    EXPECT_FALSE(FakeSession(frozen)->readTelemetry().ccdCelsius());
}

}  // namespace
