// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <vornccd.h>

#include "capture/camera_worker.h"
#include "capture/clock.h"
#include "capture/exposure_request.h"
#include "capture/session.h"

namespace capturetest {

using namespace std::chrono_literals;

/// Time that passes only when somebody waits.
class VirtualClock : public vorncapture::Clock {
public:
    double steadySeconds() override { return now_; }
    Utc utc() override;
    void sleep(double seconds) override { now_ = now_ + seconds; }

private:
    std::atomic<double> now_{100.0};
};

/// What a test tells a fake camera to be and learns of what happened to it; outlives the camera.
struct FakeState {
    CAMERA_TYPE family = STANDARD;
    VornCapabilities caps = {};
    unsigned int serialNumber = 4711;
    bool precharge = false;    ///< QUICKER: rows follow each other by the region's width
    double leadSeconds = 0.0;  ///< readCCD() goes on integrating for this long
    float celsius = -10.0F;
    std::map<std::string, int> failAt;  ///< operation: which of its calls fails, from 1; 0 all of them
    std::string openError = "Failed to initialize device";
    std::string hangIn;  ///< operation that does not return until `release`
    std::atomic<bool> release{false};
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();

    std::vector<std::string> log;  ///< operations in order, "startExposure"
    std::map<std::string, int> calls;
    double integratedFrom = 0.0;  ///< steady time
    double integrated = 0.0;      ///< seconds of the last long exposure
    vorncapture::Clock::Utc integratedFromUtc;
    std::atomic<bool> gone{false};  ///< the object was destroyed
    bool open = false;

    int count(const std::string& operation) const;
};

/// Makes the state of a camera with a small sensor of 40 x 30 pixels that bins up to 4 x 4.
std::shared_ptr<FakeState> makeState(CAMERA_TYPE family);

/// Makes a camera that behaves as its family's contract says, oddities included, on the state's virtual time.
vorncapture::CameraHandle makeFake(std::shared_ptr<FakeState> state);

/// A fake camera and an open session with it. A camera that hangs is let go when this goes.
struct FakeSession {
    explicit FakeSession(CAMERA_TYPE family) : FakeSession(makeState(family)) {}
    explicit FakeSession(std::shared_ptr<FakeState> camera, std::chrono::milliseconds patience = 5s);
    ~FakeSession();
    FakeSession(const FakeSession&) = delete;
    FakeSession& operator=(const FakeSession&) = delete;

    vorncapture::Session* operator->() const { return session.value().get(); }

    std::shared_ptr<FakeState> state;
    vorncapture::Result<std::unique_ptr<vorncapture::Session>> session;
};

/// What the fake sensor shows: a value for each of its pixels; a binned pixel shows that of its first one.
constexpr uint16_t sensorValue(unsigned int x, unsigned int y)
{
    return static_cast<uint16_t>(1000 + y * 100 + x);
}

}  // namespace capturetest
