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

/// What a host does with a camera. @return its images.
std::vector<Image> work(SimulatedCamera& simulated)
{
    VornCameraImpl& camera = simulated.camera;
    std::vector<Image> images;
    EXPECT_TRUE(camera.open()) << camera.getLastError();
    for (const bool longExposure : {false, true, false}) {
        float celsius = 0;
        COOLING_STATE state = COOLING_INACTIVE;
        if (camera.tempSensorCount > 0) {
            EXPECT_TRUE(camera.getTemperatureSensorStatus(1, &celsius));
        }
        if (camera.cooler > COOLER_ALWAYSON) {
            EXPECT_TRUE(camera.setCooling(-10.0F));
            EXPECT_TRUE(camera.getCoolingStatus(&state, &celsius, &celsius));
        }
        images.push_back(expose(camera, longExposure));
        EXPECT_FALSE(images.back().empty()) << camera.getLastError();
        if (camera.hasGuidePort) {
            EXPECT_TRUE(camera.setGuideRelays(0));
        }
    }
    camera.close();
    simulated.expectNoComplaints();
    return images;
}

std::vector<Image> workAlone(const char* name)
{
    SimulatedCamera simulated(name);
    return work(simulated);
}

class ThreadedCameras : public testing::Test {
protected:
    ThreadedCameras() { bus().reset(); }
    ~ThreadedCameras() override { bus().reset(); }
};

TEST_F(ThreadedCameras, OfTwoFamiliesWorkSideBySide)
{
    const char* const PAIRS[][2] = {{"Vorn K12", "Vorn K16"}, {"Vorn K01", "Vorn K30"}, {"Vorn XRC", "Vorn K12"}};
    for (const auto& [first, second] : PAIRS) {
        SCOPED_TRACE(std::string(first) + " and " + second);
        const std::vector<Image> alone[] = {workAlone(first), workAlone(second)};
        for (const bool traced : {false, true}) {
            SimulatedCamera one(first);
            SimulatedCamera other(second);
            std::unique_ptr<TraceCapture> trace = traced ? std::make_unique<TraceCapture>() : nullptr;
            std::vector<Image> together[2];
            std::thread thread([&] { together[1] = work(other); });
            together[0] = work(one);
            thread.join();
            EXPECT_EQ(together[0], alone[0]);
            EXPECT_EQ(together[1], alone[1]);
        }
    }
}

TEST_F(ThreadedCameras, AreTracedWhileTheSwitchesChange)
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
    // each opening silences the trace of both for a while
    std::thread thread([&] { (void)work(quicker); });
    (void)work(standard);
    thread.join();
    finished = true;
    switching.join();
    EXPECT_TRUE(VornDebugOn);
}

TEST_F(ThreadedCameras, PollTemperatureBesideExposures)
{
    for (const char* name : {"Vorn K12", "Vorn K16", "Vorn K30"}) {
        SCOPED_TRACE(name);
        SimulatedCamera simulated(name);
        ASSERT_TRUE(simulated.camera.open());
        ASSERT_GT(simulated.camera.tempSensorCount, 0U);
        const Image alone = expose(simulated.camera, false);
        std::atomic<bool> finished = false;
        std::atomic<int> polls = 0;
        std::thread polling([&] {
            while (!finished) {
                float celsius = -300.0F;
                EXPECT_TRUE(simulated.camera.getTemperatureSensorStatus(1, &celsius));
                EXPECT_GT(celsius, -60.0F);
                EXPECT_LT(celsius, 60.0F);
                polls++;
            }
        });
        for (int i = 0; i < 10 || polls < 10; i++)  // both get their turn
            EXPECT_EQ(expose(simulated.camera, i % 2 == 1), alone) << simulated.camera.getLastError();
        finished = true;
        polling.join();
        simulated.camera.close();
        simulated.expectNoComplaints();
    }
}

TEST_F(ThreadedCameras, KeepTheLockFromReadoutToImage)
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

/// Does @p count operations in turn, each with an answer to check. Only one thread may expose with a camera.
void operate(VornCameraImpl& camera, int count, bool exposes)
{
    for (int i = 0; i < count; i++) {
        float celsius = -300.0F;
        COOLING_STATE state = COOLING_INACTIVE;
        bool ok = false;
        switch (i % 4) {
            case 0:
                ok = camera.getTemperatureSensorStatus(1, &celsius) && celsius > -60.0F;
                break;
            case 1:
                ok = camera.setCooling(-10.0F);
                break;
            case 2:
                ok = camera.getCoolingStatus(&state, &celsius, nullptr) && state == COOLING_SETPOINT;
                break;
            default:
                ok = exposes ? expose(camera, false).size() > PIXELS : camera.setGuideRelays(0);
                break;
        }
        ASSERT_TRUE(ok) << "operation " << i << ": " << camera.getLastError();
    }
}

TEST_F(ThreadedCameras, DoAHundredThousandOperations)
{
    constexpr int OPERATIONS = 12'500;  // of each of two threads, four times
    for (const bool traced : {false, true}) {
        for (const bool shared : {false, true}) {
            SCOPED_TRACE(std::string(traced ? "traced, " : "") + (shared ? "one camera" : "two cameras"));
            SimulatedCamera one("Vorn K12");
            SimulatedCamera two("Vorn K16");
            ASSERT_TRUE(one.camera.open() && two.camera.open());
            const std::unique_ptr<TraceCapture> trace = traced ? std::make_unique<TraceCapture>() : nullptr;
            std::thread thread([&] { operate(shared ? one.camera : two.camera, OPERATIONS, !shared); });
            operate(one.camera, OPERATIONS, true);
            thread.join();
            for (SimulatedCamera* simulated : {&one, &two}) {
                EXPECT_TRUE(simulated->lockFree());
                simulated->camera.close();
                simulated->expectNoComplaints();
            }
        }
    }
}

TEST_F(ThreadedCameras, AbortAnExposureFromElsewhere)
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
