// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "bridged_camera.h"

namespace vornsim {

/// The application of a STANDARD camera: takes commands over the parallel bus, one character of "CMD" and the code in
/// the low byte of a word each, payloads two bytes a word, and answers in little-endian words.
class StandardCamera final : public AnsweringCamera {
public:
    /// All references must outlive the camera.
    StandardCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    ParallelBus parallelBus() const override { return {ParallelBus::Kind::HANDSHAKE}; }
    void wordsReceived(std::span<const uint8_t> bytes) override;
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
    void prepareSensor(uint16_t step);
    void prepareExposure();
    void startExposure();
    void readOut(std::span<const uint8_t> payload);
    bool acceptable(const Readout& readout);
    void setShutter(uint16_t open);
    void sendFilterStatus();
    void setFilter(uint16_t position);

    void answer(std::vector<uint8_t> bytes, int64_t afterUs);

    Shutter shutter_;

    Phase phase_ = Phase::IDLE;
    int64_t integrationStartUs_ = 0;
};

}  // namespace vornsim
