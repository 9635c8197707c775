// SPDX-License-Identifier: MIT
// Cameras in several threads: run under the thread sanitizer, which sees what these expectations cannot.
#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "simulated_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::bus;
using vorntest::SimulatedCamera;
using vorntest::TraceCapture;
using Image = std::vector<uint16_t>;

constexpr unsigned SIDE = 8;  // of the square region that is read
constexpr unsigned PIXELS = SIDE * SIDE;

/// One exposure, long where the family has them. @return the image, empty after a failure.
Image expose(VornCameraImpl& camera, bool longExposure)
{
    Image image(PIXELS + 1);
    bool ok = true;
    if (longExposure && camera.type != IIDC) {
        ok = camera.startExposure(false);
        bus().advanceUs(camera.delay(0.5));
        ok = ok && camera.readCCD(16, 8, SIDE, SIDE, 1, 1);
    } else {
        ok = camera.readCCD(16, 8, SIDE, SIDE, 1, 1, 0.1);
    }
    ok = ok && camera.getImage(image.data(), PIXELS);
    return ok ? image : Image();
}

/// What a host does with an open camera, @p rounds times; only one thread may expose with it, as @p expected says.
void work(VornCameraImpl& camera, int rounds, const Image* expected = nullptr)
{
    for (int i = 0; i < rounds; i++) {
        float celsius = -300.0F;
        COOLING_STATE state = COOLING_INACTIVE;
        bool ok = true;
        if (camera.tempSensorCount > 0)
            ok = camera.getTemperatureSensorStatus(1, &celsius) && celsius > -60.0F && celsius < 60.0F;
        if (camera.cooler > COOLER_ALWAYSON)
            ok = ok && camera.setCooling(-10.0F) && camera.getCoolingStatus(&state, &celsius, nullptr);
        if (camera.hasGuidePort)
            ok = ok && camera.setGuideRelays(0);
        ASSERT_TRUE(ok) << camera.getName() << ", round " << i << ": " << camera.getLastError();
        ASSERT_EQ(state == COOLING_SETPOINT, camera.cooler == COOLER_SETPOINT) << camera.getName();
        if (expected != nullptr && i % 8 == 0) {
            ASSERT_EQ(expose(camera, i % 16 == 8), *expected) << camera.getName() << ": " << camera.getLastError();
        }
    }
}

/// @return what an exposure gives when nobody else is at work.
Image imageAlone(const char* name)
{
    SimulatedCamera simulated(name);
    EXPECT_TRUE(simulated.camera.open());
    return expose(simulated.camera, false);
}

TEST(ThreadedCameras, DoAHundredThousandOperations)
{
    const struct {
        const char* one;
        const char* other;  ///< of the same name: the same camera
        int rounds;
    } CASES[] = {{"Vorn K12", "Vorn K12", 3200}, {"Vorn K16", "Vorn K16", 200}, {"Vorn K30", "Vorn K30", 200},
                 {"Vorn K12", "Vorn K16", 3200}, {"Vorn K01", "Vorn K30", 100}, {"Vorn XRC", "Vorn K12", 100}};
    for (const auto& row : CASES) {
        const bool shared = row.one == std::string(row.other);
        const Image expected[] = {imageAlone(row.one), imageAlone(row.other)};
        ASSERT_FALSE(expected[0].empty() || expected[1].empty());
        for (const bool traced : {false, true}) {
            SCOPED_TRACE(std::string(row.one) + " and " + row.other + (traced ? ", traced" : ""));
            SimulatedCamera one(row.one);
            SimulatedCamera other(row.other);
            const std::unique_ptr<TraceCapture> trace = traced ? std::make_unique<TraceCapture>() : nullptr;
            VornCameraImpl& second = shared ? one.camera : other.camera;
            ASSERT_TRUE(one.camera.open());
            std::thread thread([&] {
                EXPECT_TRUE(shared || second.open());
                work(second, row.rounds, shared ? nullptr : &expected[1]);
            });
            work(one.camera, row.rounds, &expected[0]);
            thread.join();
            for (SimulatedCamera* simulated : {&one, &other}) {
                EXPECT_TRUE(simulated->lockFree());
                simulated->camera.close();
                simulated->expectNoComplaints();
            }
        }
    }
}

TEST(ThreadedCameras, AreTracedWhileTheSwitchesChange)
{
    SimulatedCamera quicker("Vorn K01");
    SimulatedCamera standard("Vorn K12");
    TraceCapture trace;
    std::atomic<bool> finished = false;
    std::thread switching([&] {
        for (bool on = false; !finished; on = !on) {
            std::atomic_ref<bool>(VornDebug).store(on, std::memory_order_relaxed);
            std::this_thread::yield();
        }
    });
    const auto reopen = [](VornCameraImpl& camera) {
        for (int i = 0; i < 20; i++) {
            EXPECT_TRUE(camera.open());  // each opening silences the trace of both for a while
            work(camera, 3);
            camera.close();
        }
    };
    std::thread thread([&] { reopen(quicker.camera); });
    reopen(standard.camera);
    thread.join();
    finished = true;
    switching.join();
    EXPECT_TRUE(VornDebugOn);
}

TEST(ThreadedCameras, KeepTheLockFromReadoutToImage)
{
    for (const char* name : {"Vorn K12", "Vorn K16", "Vorn K30", "Vorn K01", "Vorn XRC"}) {
        SCOPED_TRACE(name);
        SimulatedCamera simulated(name);
        VornCameraImpl& camera = simulated.camera;
        ASSERT_TRUE(camera.open());
        TraceCapture trace;
        std::atomic<bool> aborted = false;
        Image image(PIXELS + 1);
        ASSERT_TRUE(camera.readCCD(16, 8, SIDE, SIDE, 1, 1, 0.1));
        std::thread other([&] {
            EXPECT_TRUE(camera.abortExposure());
            aborted = true;
        });
        while (trace.textSoFar().find("    lock busy\n") == std::string::npos)
            std::this_thread::yield();
        EXPECT_FALSE(aborted);
        EXPECT_TRUE(camera.getImage(image.data(), PIXELS));
        other.join();
        EXPECT_TRUE(aborted);
        EXPECT_FALSE(camera.getImage(image.data(), PIXELS));
        EXPECT_STREQ(camera.getLastError(), "Operation out of sequence");
        camera.close();
        simulated.expectNoComplaints();
    }
}

TEST(ThreadedCameras, AbortAnExposureFromElsewhere)
{
    SimulatedCamera simulated("Vorn K12");
    VornCameraImpl& camera = simulated.camera;
    ASSERT_TRUE(camera.open());
    std::atomic<bool> finished = false;
    std::thread aborting([&] {
        while (!finished) {
            EXPECT_TRUE(camera.abortExposure());
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 50; i++) {
        EXPECT_TRUE(camera.startExposure(false));
        Image image(PIXELS);
        // whether an abortion came in between decides; it never hurts
        if (camera.readCCD(16, 8, SIDE, SIDE, 1, 1))
            (void)camera.getImage(image.data(), PIXELS);
        else
            EXPECT_STREQ(camera.getLastError(), "Operation out of sequence");
    }
    finished = true;
    aborting.join();
    EXPECT_FALSE(expose(camera, true).empty());
    camera.close();
    simulated.expectNoComplaints();
}

}  // namespace
