// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "simulated_session.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

double secondsBetween(Clock::Utc from, Clock::Utc to)
{
    return std::chrono::duration<double>(to - from).count();
}

TEST(OpenSession, LimitsTheReadsBeforeOpeningAndClosesAtTheEnd)
{
    const auto camera = std::make_shared<Camera>("K12");
    EXPECT_EQ(CameraSession(camera)->info().serialNumber, 4711U);
    EXPECT_EQ(camera->log, (std::vector<std::string>{"setParam 3 1048576", "open", "close"}));
}

TEST(OpenSession, TriesASecondTimeAndThenExplains)
{
    const auto recovers = std::make_shared<Camera>("K12");
    recovers->failAt["open"] = 1;
    EXPECT_TRUE(CameraSession(recovers).session.ok());

    const auto fails = std::make_shared<Camera>("K12");
    fails->failAt["open"] = 0;
    const auto mute = std::make_shared<Camera>("K30");
    mute->hangIn = "open";
    const auto taken = std::make_shared<Camera>("K30");
    taken->hangIn = "open";
    taken->openTrace = "    libusb_claim_interface() -> LIBUSB_ERROR_BUSY\n";
    for (const auto& camera : {fails, mute, taken}) {
        const CameraSession session(camera, {.open = camera == fails ? 60s : 30ms});
        ASSERT_FALSE(session.session.ok());
        EXPECT_EQ(session.session.error().kind, camera == taken ? ErrorKind::BUSY : ErrorKind::TIMEOUT);
        EXPECT_EQ(camera->count("open"), camera == fails ? 2 : 1);
    }
}

TEST(Opening, KeepsToTheLimitWithAllItsTries)
{
    const auto camera = std::make_shared<Camera>("K12");
    camera->failAt["open"] = 0;
    camera->failsAfter = 500ms;
    const auto start = std::chrono::steady_clock::now();
    const CameraSession session(camera, {.open = 600ms});
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms) << "which two tries would take";
    EXPECT_EQ(session.session.error().kind, ErrorKind::TIMEOUT);
    EXPECT_EQ(camera->count("open"), 2);
    while (!camera->gone)
        std::this_thread::yield();
}

TEST(LongExposure, IsTimedByTheSensorsIntegration)
{
    // CLASSIC cameras go on integrating for two seconds inside the readout; the longest lie beyond what delay() can
    // say.
    const std::pair<const char*, double> rows[] = {{"K12", 10.0},  {"K30", 2.5},    {"K01", 1.5},
                                                   {"K16", 600.0}, {"K12", 5000.0}, {"K30", 2200.0}};
    for (const auto& [model, seconds] : rows) {
        SCOPED_TRACE(std::string(model) + " " + std::to_string(seconds));
        const CameraSession session(model);
        double lastElapsed = 0.0;
        const auto frame = session->expose({.seconds = seconds}, nullptr, [&](Phase, double elapsed, double) {
            EXPECT_GE(elapsed, lastElapsed);
            lastElapsed = elapsed;
        });
        ASSERT_TRUE(frame.ok());
        EXPECT_NEAR(session.truth().lightSeconds, seconds, 0.02);
        EXPECT_NEAR(frame.value().exposureSeconds, session.truth().lightSeconds, 0.01);
        EXPECT_EQ(frame.value().telemetry.ccdCelsius().has_value(), session->info().family != QUICKER);
        EXPECT_NEAR(secondsBetween(session.camera->startedAt, frame.value().start), 0.0, 1e-6);
        EXPECT_EQ(session.camera->count("startExposure"), 1);
    }
}

TEST(ShortExposure, BeginsItsTimeBeforeTheCommandReturns)
{
    // A register camera's command returns when the exposure begins, that of the others when it ends.
    for (const char* model : {"K12", "XRM"}) {
        const CameraSession session(model);
        const auto before = VirtualClock().utc();
        const auto frame = session->expose({.seconds = 0.5});
        ASSERT_TRUE(frame.ok());
        EXPECT_EQ(session.camera->count("startExposure"), 0);
        EXPECT_NEAR(secondsBetween(before, frame.value().start), 0.1, 0.15) << model;
        EXPECT_NEAR(frame.value().exposureSeconds, 0.5, 1e-9);
        EXPECT_NEAR(session.truth().lightSeconds, 0.5, 1e-6);
    }
}

TEST(Exposure, KeepsTheShutterShutForDarks)
{
    const CameraSession session("K12");
    for (const bool dark : {true, false}) {
        ASSERT_TRUE(session->expose({.seconds = 10.0, .dark = dark}).ok());
        EXPECT_NEAR(session.truth().lightSeconds, dark ? 0.0 : 10.0, 0.1);
    }
    const auto shutterless = CameraSession("K16")->expose({.seconds = 1.0, .dark = true});
    ASSERT_TRUE(shutterless.ok());
    EXPECT_EQ(shutterless.value().notes.size(), 1U);
}

TEST(Exposure, CancelledInAnyPhaseClosesTheShutterAndKeepsTheCameraUsable)
{
    for (const Phase when : {Phase::STARTING, Phase::EXPOSING, Phase::READING}) {
        for (const double seconds : {1.0, 10.0}) {
            SCOPED_TRACE(static_cast<int>(when));
            const auto camera = std::make_shared<Camera>("K12");
            const CameraSession session(camera);
            CancelToken cancel;
            if (when == Phase::READING)  // asked for while the camera is busy transferring
                camera->hangIn = "getImage";
            const auto stopAt = [&](Phase phase, double elapsed, double) {
                if (phase != when || (when == Phase::EXPOSING && seconds > 5.0 && elapsed < 5.0))
                    return;
                if (!cancel.requested())
                    cancel.request();
                camera->release = true;
            };
            const auto frame = session->expose({.seconds = seconds}, &cancel, stopAt);
            ASSERT_FALSE(frame.ok());
            EXPECT_EQ(frame.error().kind, ErrorKind::CANCELLED);
            EXPECT_EQ(camera->log.back(), "abortExposure");
            EXPECT_EQ(camera->count("readCCD"), camera->count("getImage"));  // a lock is never left behind
            EXPECT_EQ(camera->count("getImage"), when == Phase::READING ? 1 : 0);
            EXPECT_TRUE(session->expose({.seconds = seconds}).ok());
        }
    }
}

TEST(Exposure, CancelledTwiceOrTimedOutLeavesAHangingReadout)
{
    const std::pair<const char*, bool> rows[] = {{"K01", true}, {"K01", false}, {"XRM", true}};
    for (const auto& [model, cancels] : rows) {
        const auto camera = std::make_shared<Camera>(model);
        camera->hangIn = "getImage";
        const CameraSession session(camera, {.command = cancels ? 60s : 50ms});
        CancelToken cancel;
        const auto stop = [&cancel, cancels = cancels](Phase phase, double, double) {
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
        const auto camera = std::make_shared<Camera>("K12");
        const CameraSession session(camera);
        camera->failAt[row.operation] = 1;
        if (row.openError != nullptr) {
            camera->openError = row.openError;
            camera->failAt["open"] = 2;
        }
        const auto frame = session->expose({.seconds = row.seconds});
        ASSERT_FALSE(frame.ok());
        EXPECT_EQ(frame.error().kind, row.kind) << frame.error().text;
        EXPECT_NE(frame.error().text.find("says the test"), std::string::npos);
        const std::vector<std::string> tail(camera->log.end() - 3, camera->log.end());
        EXPECT_EQ(tail, (std::vector<std::string>{"abortExposure", "close", "open"}));
        if (row.openError == nullptr) {
            EXPECT_TRUE(session->expose({.seconds = row.seconds}).ok());
        }
    }
    const CameraSession modeless("K12");
    modeless.camera->failAt["setDarkFrameMode"] = 1;
    EXPECT_EQ(modeless->expose({.seconds = 1.0}).error().text, "the camera refused the readout mode");
}

TEST(Telemetry, AsksOnlyWhatCannotEndTheProcess)
{
    const CameraSession session("K16");
    EXPECT_TRUE(session->call([](VornCamera& camera) { return camera.setGain(17, 230) && camera.setCooling(-12.5F); }));
    vorntest::bus().advanceUs(3'600'000'000);
    const Telemetry known = session->readTelemetry();
    EXPECT_NEAR(known.ccdCelsius().value_or(0.0), -12.5, 0.1);
    EXPECT_NEAR(known.targetCelsius.value_or(0.0), -12.5, 0.1);
    EXPECT_EQ(known.gain, 17);
    EXPECT_EQ(known.offset, 230);

    session.camera->calls.clear();
    session.camera->celsius = std::nanf("");  // the camera names no encoding of its temperatures
    const Telemetry blind = session->readTelemetry();
    EXPECT_FALSE(blind.ccdCelsius());
    EXPECT_FALSE(blind.targetCelsius);
    EXPECT_EQ(session.camera->count("getCoolingStatus"), 0);

    EXPECT_EQ(CameraSession("XRM")->info().temperatureEncoding, 0U);
    const CameraSession other("K12");
    EXPECT_FALSE(other->readTelemetry().gain);  // success without a value is no value
    other.camera->celsius = -273.15F;           // what a register that cannot be read amounts to
    EXPECT_FALSE(other->readTelemetry().ccdCelsius());
}

}  // namespace
