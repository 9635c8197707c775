// SPDX-License-Identifier: MIT
#include "simulated_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

#include "camera_impl.h"

namespace vorntest {

void reportMisuse(const std::string& text)
{
    ADD_FAILURE() << text;
}

}  // namespace vorntest

namespace capturetest {
namespace {

const std::map<vornsim::Family, CAMERA_TYPE> FAMILIES = {
    {vornsim::Family::CLASSIC, CLASSIC}, {vornsim::Family::STANDARD, STANDARD}, {vornsim::Family::QUICKER, QUICKER},
    {vornsim::Family::IIDC, IIDC},       {vornsim::Family::ADVANCED, ADVANCED},
};

vornsim::CameraModel smallModel(const char* name)
{
    vornsim::CameraModel model = vornsim::cameraModel(*vornsim::findModel(name));
    if (model.info.family == vornsim::Family::IIDC)
        return model;
    model.info.pixelCountX = model.describedX = Camera::WIDTH;
    model.info.pixelCountY = model.describedY = Camera::HEIGHT;
    return model;
}

/// The library's camera, whose operations fail or hang when a test says so.
class WatchedCamera : public VornCameraImpl {
public:
    explicit WatchedCamera(Camera& camera)
        : VornCameraImpl(&camera.device, camera.model.info.name, FAMILIES.at(camera.model.info.family)), camera_(camera)
    {
    }
    ~WatchedCamera() override { camera_.gone = true; }

    bool open() override
    {
        (void)std::fputs(camera_.openTrace, stderr);
        if (enter("open"))
            return VornCameraImpl::open();
        lastError = camera_.openError;
        return false;
    }
    void close() override
    {
        (void)enter("close");
        VornCameraImpl::close();
    }
    bool setParam(PARAM_TYPE param, long value) override
    {
        return enter("setParam " + std::to_string(param) + " " + std::to_string(value)) &&
               VornCameraImpl::setParam(param, value);
    }
    bool getTemperatureSensorStatus(unsigned int sensor, float* temperature) override
    {
        const bool done = VornCameraImpl::getTemperatureSensorStatus(sensor, temperature);
        if (camera_.celsius)
            *temperature = *camera_.celsius;
        return done;
    }
    bool getCoolingStatus(COOLING_STATE* state, float* target, float* power) override
    {
        return enter(target != nullptr ? "getCoolingStatus" : "getCoolingStatus without target") &&
               VornCameraImpl::getCoolingStatus(state, target, power);
    }
    bool getFilterWheelStatus(unsigned int* count, bool* moving, unsigned int* current, unsigned int* target) override
    {
        const bool done = VornCameraImpl::getFilterWheelStatus(count, moving, current, target);
        if (camera_.wheelStandsAt)
            *current = *camera_.wheelStandsAt;
        return done;
    }
    bool setGuideRelays(unsigned short mask) override
    {
        return enter("setGuideRelays") && VornCameraImpl::setGuideRelays(mask);
    }
    bool getGPIO(unsigned short* levels) override { return enter("getGPIO") && VornCameraImpl::getGPIO(levels); }
    bool getGain(int* gain, int* offset) override { return enter("getGain") && VornCameraImpl::getGain(gain, offset); }
    bool setDarkFrameMode(bool on) override
    {
        return enter("setDarkFrameMode") && VornCameraImpl::setDarkFrameMode(on);
    }
    bool startExposure(bool amp) override
    {
        const bool started = enter("startExposure") && VornCameraImpl::startExposure(amp);
        camera_.startedAt = VirtualClock().utc();
        return started;
    }
    bool abortExposure() override { return enter("abortExposure") && VornCameraImpl::abortExposure(); }
    bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                 unsigned int binY) override
    {
        return enter("readCCD") && VornCameraImpl::readCCD(x, y, width, height, binX, binY);
    }
    bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                 unsigned int binY, double seconds) override
    {
        return enter("readCCD") && VornCameraImpl::readCCD(x, y, width, height, binX, binY, seconds);
    }
    bool getImage(unsigned short* buffer, unsigned int pixels) override
    {
        const bool wanted = enter("getImage");
        return VornCameraImpl::getImage(buffer, pixels) && wanted;  // gives the lock back in any case
    }

private:
    /// Notes the call. @return whether it is to succeed.
    bool enter(const std::string& operation)
    {
        camera_.log.push_back(operation);
        const int call = ++camera_.calls[operation];
        while (camera_.hangIn == operation && !camera_.release)
            std::this_thread::sleep_for(1ms);
        const auto failure = camera_.failAt.find(operation);
        if (failure == camera_.failAt.end() ||
            (failure->second > 0 ? call != failure->second : call < -failure->second))
            return true;
        std::this_thread::sleep_for(camera_.failsAfter);
        lastError = "Failed, says the test";
        return false;
    }

    Camera& camera_;
};

}  // namespace

VirtualClock::Utc VirtualClock::utc()
{
    using namespace std::chrono;
    return sys_days{2024y / February / 29} + microseconds(vorntest::bus().nowUs());
}

Camera::Camera(const char* name, uint32_t serialNumber)
    : model(smallModel(name)),
      simulated(vornsim::makeCamera(model, {.serialNumber = serialNumber, .scene = vornsim::SceneKind::RAMP}, time,
                                    simulatorLog)),
      usb(*simulated),
      device(model.info.productId, usb)
{
}

vorncapture::CameraHandle Camera::handle()
{
    return vorncapture::CameraHandle(new WatchedCamera(*this));
}

int Camera::count(const std::string& operation) const
{
    const auto found = calls.find(operation);
    return found == calls.end() ? 0 : found->second;
}

CameraSession::CameraSession(std::shared_ptr<Camera> itsCamera, const vorncapture::Watchdog& watchdog)
    : camera(std::move(itsCamera)),
      session(vorncapture::Session::open(camera->handle(),
                                         {.clock = std::make_shared<VirtualClock>(), .watchdog = watchdog}))
{
}

CameraSession::~CameraSession()
{
    camera->release = true;
    session = vorncapture::Error{};
    while (!camera->gone)  // a thread that was left alone still has it
        std::this_thread::sleep_for(1ms);
    for (const std::string& complaint : camera->simulatorLog.complaints)
        ADD_FAILURE() << camera->model.info.name << " complains: " << complaint;
}

}  // namespace capturetest
