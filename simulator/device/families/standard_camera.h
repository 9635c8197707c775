// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "command_camera.h"

namespace vornsim {

/// The application of a STANDARD camera: takes commands over the parallel bus, one character of "CMD" and the code in
/// the low byte of a word each, payloads two bytes a word, and answers in little-endian words.
class StandardCamera final : public AnsweringCamera {
public:
    /// @p clock and @p log must outlive the camera.
    StandardCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    ParallelBus parallelBus() const override { return {ParallelBus::Kind::HANDSHAKE}; }
    void wordsReceived(std::span<const uint8_t> bytes) override;
    CameraTruth truth() const override;

private:
    /// How far an exposure has come; each command takes it one step further.
    enum class Phase { IDLE, CLEARED, READY, INTEGRATING, STOPPED };

    std::span<const Command> commands() const override;
    void describe(CommandCall& call);
    void startApplication(CommandCall& call);
    void ping(CommandCall& call);
    void refuseGpio(CommandCall& call);
    void setShutter(CommandCall& call);
    void prepareSensor(CommandCall& call);
    void prepareExposure(CommandCall& call);
    void startExposure(CommandCall& call);
    void readOut(CommandCall& call);

    Shutter shutter_;
    Phase phase_ = Phase::IDLE;
    int64_t integratingSinceUs_ = 0;
};

}  // namespace vornsim
