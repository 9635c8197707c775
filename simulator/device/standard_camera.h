// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "accessory_models.h"
#include "bus_output.h"
#include "cooler_model.h"
#include "simulated_camera.h"
#include "simulated_sensor.h"

namespace vornsim {

/// The application of a STANDARD camera: takes commands over the parallel bus, one character of "CMD" and the code in
/// the low byte of a word each, payloads two bytes a word, and answers in little-endian words.
class StandardCamera final : public CameraApplication {
public:
    /// All references must outlive the camera.
    StandardCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    void bridgeStarted() override;
    bool understandsWaveform(std::span<const uint8_t> table) const override;
    OfferedWords offeredWords(int64_t nowUs) override;
    void wordsTaken(size_t byteCount) override;
    void wordsReceived(std::span<const uint8_t> bytes) override;
    void portChanged(unsigned port, const PortLines& lines) override;
    CameraTruth truth() const override;

private:
    /// How far an exposure has come; each command takes it one step further.
    enum class Phase { IDLE, CLEARED, READY, INTEGRATING, STOPPED };

    struct Readout {
        uint16_t exposureCode = 0;
        Region region;
        uint16_t flags = 0;
    };

    void execute(uint8_t code, std::span<const uint8_t> payload);
    void startApplication();
    void sendDescription();
    void sendTemperature(unsigned sensor);
    void sendCoolerDetails();
    void sendCoolingStatus();
    void setCooling(uint16_t rawTarget);
    void warmUp();
    void prepareSensor(uint16_t step);
    void prepareExposure();
    void startExposure();
    void readOut(std::span<const uint8_t> payload);
    bool acceptable(const Readout& readout);
    void setShutter(uint16_t open);
    void setRelays(uint8_t code);
    void sendFilterStatus();
    void setFilter(uint16_t position);

    void answer(std::vector<uint8_t> bytes, int64_t afterUs);
    void complain(const std::string& text) { log_.complain("camera: " + text); }
    void note(const std::string& text) { log_.note("camera: " + text); }

    const CameraModel& model_;
    const Clock& clock_;
    DeviceLog& log_;
    SimulatedSensor sensor_;
    CoolerModel cooler_;
    FilterWheel wheel_;
    GuidedMount mount_;
    Shutter shutter_;
    BusOutput output_;
    PortLines portA_;

    bool started_ = false;   // the application has been started since power-up
    bool starting_ = false;  // the host is polling for the end of the start
    int64_t startedAtUs_ = 0;
    std::array<uint8_t, 2> startStatus_{};
    uint8_t answeredCode_ = 0;  // the command whose answer is on the bus

    Phase phase_ = Phase::IDLE;
    int64_t integrationStartUs_ = 0;
};

}  // namespace vornsim
