// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "bus_output.h"
#include "cooler_model.h"
#include "simulated_camera.h"
#include "simulated_sensor.h"

namespace vornsim {

/// The controller of a CLASSIC camera. Commands arrive over I2C at address 0x40: 'H', 'S', 'C', code, payload with
/// 16-bit values little-endian. Everything it says leaves over the parallel bus, one byte in the low half of each word,
/// images alone with whole 16-bit samples. It has no accessories but a cooler.
class ClassicCamera final : public CameraApplication {
public:
    static constexpr uint8_t I2C_ADDRESS = 0x40;

    /// @p clock and @p log must outlive the camera.
    ClassicCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    void bridgeStarted() override;
    bool understandsWaveform(std::span<const uint8_t> table) const override;
    OfferedWords offeredWords(int64_t nowUs) override;
    void wordsTaken(size_t byteCount) override;
    void wordsReceived(std::span<const uint8_t> bytes) override;
    bool i2cWrite(uint8_t address, std::span<const uint8_t> data) override;
    void portChanged(unsigned port, const PortLines& lines) override;
    CameraTruth truth() const override;

private:
    /// How far a long exposure has come; each command takes it one step further.
    enum class Phase { IDLE, CLEARED, READY, INTEGRATING, SETTLING, STOPPED };

    void execute(uint8_t code, std::span<const uint8_t> payload);
    void startApplication();
    void sendDescription();
    void sendTemperature(unsigned sensor);
    void sendCoolingStatus();
    void setCooling(uint16_t rawTarget);
    void advance(Phase from, Phase to, const char* fault);
    void prepareSensor(uint16_t step);
    void readOut(std::span<const uint8_t> payload);
    void answer(std::span<const uint8_t> bytes, int64_t afterUs);
    void answer(std::initializer_list<uint8_t> bytes) { answer({bytes.begin(), bytes.size()}, ANSWER_US); }
    void complain(const std::string& text) { log_.complain("camera: " + text); }
    void note(const std::string& text) { log_.note("camera: " + text); }

    static constexpr int64_t ANSWER_US = 2000;

    CameraModel model_;
    const Clock& clock_;
    DeviceLog& log_;
    SimulatedSensor sensor_;
    CoolerModel cooler_;
    BusOutput output_;
    PortLines port_;  // lines 0 to 7

    bool started_ = false;   // the application has been started since power-up
    bool starting_ = false;  // the host is polling for the end of the start
    int64_t startedAtUs_ = 0;
    std::array<uint8_t, 2> startStatus_{};
    uint8_t answeredCode_ = 0;  // the command whose answer is on the bus

    Phase phase_ = Phase::IDLE;
    int64_t integratingSinceUs_ = 0;
    int64_t settlingSinceUs_ = 0;
    int64_t stoppedAtUs_ = 0;
};

}  // namespace vornsim
