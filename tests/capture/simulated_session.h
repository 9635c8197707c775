// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <vornccd.h>

#include "capture/session.h"
#include "device/families/family_cameras.h"
#include "simulated.h"

namespace capturetest {

using namespace std::chrono_literals;

/// The virtual time of the bus as capture sees it.
class VirtualClock : public vorncapture::Clock {
public:
    double steadySeconds() override { return static_cast<double>(vorntest::bus().nowUs()) * 1e-6; }
    Utc utc() override;
    void sleep(double seconds) override { vorntest::bus().advanceUs(static_cast<int64_t>(seconds * 1e6) + 1); }
};

/// A simulated camera with a small sensor that shows the ramp pattern, and the library's object for it. Tests tell its
/// operations to fail or hang, and learn which were called.
struct Camera {
    static constexpr unsigned WIDTH = 64;  ///< pixels; IIDC cameras keep the size of their video modes
    static constexpr unsigned HEIGHT = 48;

    explicit Camera(const char* name, uint32_t serialNumber = 4711);

    /// Makes the library's object; the camera must outlive it.
    vorncapture::CameraHandle handle();
    int count(const std::string& operation) const;

    vornsim::CameraModel model;
    vorntest::BusClock time;
    vorntest::CollectedLog simulatorLog;
    std::unique_ptr<vornsim::SimulatedCamera> simulated;
    vorntest::SimulatedUsb usb;
    libusb_device device;

    std::map<std::string, int> failAt;  ///< operation: which of its calls fails, from 1; -2: all from the second on
    std::chrono::milliseconds failsAfter{0};  ///< real time
    const char* openError = "Failed to initialize device";
    const char* openTrace = "";  ///< lines of the trace as it is opened
    std::string hangIn;          ///< operation that does not return until `release`
    std::atomic<bool> release{false};
    std::optional<float> celsius;           ///< instead of what the camera measures
    std::optional<unsigned> wheelStandsAt;  ///< position of a wheel that is blocked

    std::vector<std::string> log;  ///< operations in order, "startExposure"
    std::map<std::string, int> calls;
    VirtualClock::Utc startedAt;    ///< the last long exposure
    std::atomic<bool> gone{false};  ///< the library's object was destroyed
};

/// An open session with a camera. A camera that hangs is let go when this goes.
struct CameraSession {
    explicit CameraSession(const char* model) : CameraSession(std::make_shared<Camera>(model)) {}
    explicit CameraSession(std::shared_ptr<Camera> itsCamera, const vorncapture::Watchdog& watchdog = {});
    ~CameraSession();
    CameraSession(const CameraSession&) = delete;
    CameraSession& operator=(const CameraSession&) = delete;

    vorncapture::Session* operator->() const { return session.value().get(); }
    vornsim::CameraTruth truth() const { return camera->simulated->truth(); }

    std::shared_ptr<Camera> camera;
    vorncapture::Result<std::unique_ptr<vorncapture::Session>> session;
};

}  // namespace capturetest
