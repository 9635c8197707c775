// SPDX-License-Identifier: MIT
#include "fake_camera.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace capturetest {
namespace {

constexpr uint16_t JUNK = 0xDEAD;

class FakeCamera : public VornCamera {
public:
    explicit FakeCamera(std::shared_ptr<FakeState> state) : state_(std::move(state)) {}
    ~FakeCamera() override { state_->gone = true; }

    const char* getName() override { return state_->family == STANDARD ? "Vorn K12" : "Vorn K99"; }

    bool open() override
    {
        state_->open = enter("open");
        if (!state_->open)
            error_ = state_->openError.c_str();
        return state_->open;
    }

    void close() override
    {
        (void)enter("close");
        state_->open = false;
    }

    bool setParam(PARAM_TYPE param, long value) override
    {
        return enter("setParam " + std::to_string(param) + " " + std::to_string(value));
    }

    long getParam(PARAM_TYPE) override { return 0; }

    bool getCapabilities(const char**, CAMERA_TYPE*, bool*, bool*, bool*, bool*, unsigned int*, unsigned int*,
                         unsigned int*, double*, double*, unsigned int*, unsigned int*, unsigned int*, COOLER_TYPE*,
                         COLOUR_TYPE*, int*, int*, bool*, double*, double*) override
    {
        return false;
    }

    bool getCapabilities(const char** name, CAMERA_TYPE* type, VornCapabilities* caps) override
    {
        *name = getName();
        *type = state_->family;
        *caps = state_->caps;
        return true;
    }

    bool getTemperatureSensorStatus(unsigned int, float* temperature) override
    {
        *temperature = state_->celsius;
        return enter("getTemperatureSensorStatus");
    }

    bool getCoolingStatus(COOLING_STATE* state, float* target, float* power) override
    {
        *state = COOLING_SETPOINT;
        if (target != nullptr)
            *target = -12.5F;
        *power = 40.0F;
        return enter(target != nullptr ? "getCoolingStatus" : "getCoolingStatus without target");
    }

    bool setCooling(float) override { return enter("setCooling"); }
    bool initiateWarmUp() override { return enter("initiateWarmUp"); }
    bool getFilterWheelStatus(unsigned int*, bool*, unsigned int*, unsigned int*) override { return false; }
    bool setFilter(unsigned int) override { return false; }
    bool setPreviewMode(bool on) override { return !on || enter("setPreviewMode"); }

    bool set8BitMode(bool on) override
    {
        eightBit_ = on;
        return !on || enter("set8BitMode");
    }

    bool setDarkFrameMode(bool on) override { return enter(on ? "setDarkFrameMode 1" : "setDarkFrameMode 0"); }

    bool startExposure(bool) override
    {
        state_->clock->sleep(0.5);
        state_->integratedFrom = state_->clock->steadySeconds();
        state_->integratedFromUtc = state_->clock->utc();
        started_ = enter("startExposure");
        return started_;
    }

    bool abortExposure() override
    {
        started_ = false;
        return enter("abortExposure");
    }

    bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                 unsigned int binY) override
    {
        if (!std::exchange(started_, false))
            return false;
        state_->clock->sleep(state_->leadSeconds);
        state_->integrated = state_->clock->steadySeconds() - state_->integratedFrom;
        return command(x, y, width, height, binX, binY);
    }

    bool readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                 unsigned int binY, double seconds) override
    {
        if (state_->family == IIDC && binX != binY)
            return false;
        state_->clock->sleep(seconds);
        return command(x, y, width, height, binX, binY);
    }

    bool getImage(unsigned short* buffer, unsigned int pixels) override
    {
        state_->clock->sleep(1.0);
        if (!enter("getImage"))
            return false;
        const CAMERA_TYPE family = state_->family;
        if (family == QUICKER || family == IIDC) {
            cropWholeFrame(buffer, family == IIDC || state_->precharge ? area_.width / binX_ : area_.height / binY_);
            return true;
        }
        if (family != ADVANCED)
            return send(region({}), buffer, pixels);
        const bool sent = send(region({JUNK, JUNK}), buffer, pixels);
        std::memmove(buffer, buffer + 2, (pixels - 1) * sizeof *buffer);
        return sent;
    }

    bool setShutter(bool) override { return enter("setShutter"); }
    bool setGuideRelays(unsigned short) override { return false; }
    bool setGPIODirection(unsigned short) override { return false; }
    bool getGPIO(unsigned short*) override { return false; }
    bool setGPIO(unsigned short) override { return false; }

    bool getGain(int* gain, int* offset) override
    {
        if (state_->family != ADVANCED)
            return true;  // as the library has it: success, and nothing touched
        *gain = 17;
        *offset = 230;
        return enter("getGain");
    }

    bool setGain(int, int) override { return false; }

    unsigned int delay(double seconds) override
    {
        const double left = std::max(seconds - state_->leadSeconds, 0.0) * 1e6;
        return static_cast<unsigned int>(std::min(left, 4294967295.0));
    }

    unsigned int imageWidth(unsigned int width, unsigned int binX) override { return width / binX; }
    unsigned int imageHeight(unsigned int height, unsigned int binY) override { return height / binY; }
    unsigned int getSerialNumber() override { return state_->serialNumber; }
    unsigned int getVersionMajor() override { return 1; }
    unsigned int getVersionMinor() override { return 23; }
    const char* getLastError() override { return error_; }

private:
    /// Notes the call. @return whether it is to succeed.
    bool enter(const std::string& operation)
    {
        state_->log.push_back(operation);
        const int call = ++state_->calls[operation];
        while (state_->hangIn == operation && !state_->release)
            std::this_thread::sleep_for(1ms);
        const auto failure = state_->failAt.find(operation);
        if (failure == state_->failAt.end() || (failure->second != 0 && failure->second != call))
            return true;
        error_ = "Failed, says the fake";
        return false;
    }

    bool command(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                 unsigned int binY)
    {
        // The rows, too, are compared with the sensor's width.
        if (binX == 0 || binX > state_->caps.maxBinX || binY == 0 || binY > state_->caps.maxBinY ||
            x + width > state_->caps.pixelCountX || y + height > state_->caps.pixelCountX)
            return false;
        area_ = {x, y, width, height};
        binX_ = binX;
        binY_ = binY;
        return enter("readCCD");
    }

    /// The region's values behind @p stream, row after row; 8-bit rows are padded to an even count.
    std::vector<uint16_t> region(std::vector<uint16_t> stream) const
    {
        for (unsigned int row = 0; row < area_.height / binY_; ++row) {
            for (unsigned int column = 0; column < area_.width / binX_; ++column) {
                const uint16_t value = sensorValue(area_.x + column * binX_, area_.y + row * binY_);
                stream.push_back(eightBit_ ? value % 256 : value);
            }
            if (eightBit_ && area_.width / binX_ % 2 != 0)
                stream.push_back(JUNK);
        }
        return stream;
    }

    static bool send(const std::vector<uint16_t>& stream, unsigned short* buffer, unsigned int pixels)
    {
        std::copy_n(stream.begin(), std::min<size_t>(pixels, stream.size()), buffer);
        return pixels <= stream.size();  // a camera asked for more than it has keeps its host waiting
    }

    void cropWholeFrame(unsigned short* buffer, size_t rowDistance) const
    {
        const unsigned int columns = state_->caps.pixelCountX / binX_;
        const unsigned int rows = state_->caps.pixelCountY / binY_;
        for (unsigned int row = 0; row < area_.height / binY_; ++row) {
            for (unsigned int column = 0; column < area_.width / binX_; ++column) {
                const unsigned int sourceX = area_.x / binX_ + column;
                const unsigned int sourceY = area_.y / binY_ + row;
                const bool inside = sourceX < columns && sourceY < rows;
                buffer[row * rowDistance + column] = inside ? sensorValue(sourceX * binX_, sourceY * binY_) : JUNK;
            }
        }
    }

    std::shared_ptr<FakeState> state_;
    const char* error_ = "No error";
    bool started_ = false;
    bool eightBit_ = false;
    vorncapture::Region area_;
    unsigned int binX_ = 1;
    unsigned int binY_ = 1;
};

}  // namespace

vorncapture::Clock::Utc VirtualClock::utc()
{
    using namespace std::chrono;
    return sys_days{2024y / February / 29} + duration_cast<Utc::duration>(duration<double>(steadySeconds()));
}

int FakeState::count(const std::string& operation) const
{
    return static_cast<int>(std::count(log.begin(), log.end(), operation));
}

std::shared_ptr<FakeState> makeState(CAMERA_TYPE family)
{
    auto state = std::make_shared<FakeState>();
    state->family = family;
    VornCapabilities& caps = state->caps;
    caps.hasShutter = family == STANDARD;
    caps.pixelCountX = 40;
    caps.pixelCountY = 30;
    caps.pixelSizeX = 6.45;
    caps.pixelSizeY = 5.5;
    caps.maxBinX = family == IIDC ? 2 : 4;
    caps.maxBinY = caps.maxBinX;
    caps.tempSensorCount = family == QUICKER || family == IIDC ? 0 : 1;
    caps.cooler = family == STANDARD || family == ADVANCED ? COOLER_SETPOINT : COOLER_NONE;
    caps.colour = COLOUR_NONE;
    caps.supportsLongExposure = family != IIDC;
    caps.minShortExposure = 0.001;
    caps.maxShortExposure = family == CLASSIC ? 2.46 : family == QUICKER ? 1.398 : family == IIDC ? 0.5 : 3.0;
    return state;
}

FakeSession::FakeSession(std::shared_ptr<FakeState> camera, std::chrono::milliseconds patience)
    : state(std::move(camera)),
      session(vorncapture::Session::open(makeFake(state),
                                         {.clock = state->clock, .watchdog = {.open = patience, .command = patience}}))
{
}

FakeSession::~FakeSession()
{
    state->release = true;
    session = vorncapture::Error{};
    while (!state->gone)  // a thread that was left alone still has it
        std::this_thread::sleep_for(1ms);
}

vorncapture::CameraHandle makeFake(std::shared_ptr<FakeState> state)
{
    return vorncapture::CameraHandle(new FakeCamera(std::move(state)));
}

}  // namespace capturetest
