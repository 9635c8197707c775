// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "command_camera.h"

namespace vornsim {

/// The controller of a CLASSIC camera. Commands arrive over I2C at address 0x40: 'H', 'S', 'C', code, payload with
/// 16-bit values little-endian. All its answers leave over the parallel bus, one byte in the low half of each word,
/// images alone with whole 16-bit samples. It has no accessories but a cooler.
class ClassicCamera final : public AnsweringCamera {
public:
    static constexpr uint8_t I2C_ADDRESS = 0x40;

    /// @p clock and @p log must outlive the camera.
    ClassicCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    /// Its bus drivers are slow.
    ParallelBus parallelBus() const override { return {ParallelBus::Kind::STROBED, 2}; }
    void wordsReceived(std::span<const uint8_t> bytes) override;
    bool i2cStart(uint8_t address, bool reading) override;
    bool i2cWrite(uint8_t byte) override;
    void i2cStop() override;
    CameraTruth truth() const override;

private:
    /// How far a long exposure has come; each command takes it one step further.
    enum class Phase { IDLE, CLEARED, READY, INTEGRATING, SETTLING, STOPPED };

    std::span<const Command> commands() const override;
    std::vector<uint8_t> words(std::vector<uint8_t> answer) const override;
    void describe(CommandCall& call);
    void ping(CommandCall& call);
    void startApplication(CommandCall& call);
    void prepareSensor(CommandCall& call);
    void prepareExposure(CommandCall& call);
    void startExposure(CommandCall& call);
    void settle(CommandCall& call);
    void readOut(CommandCall& call);
    void advance(Phase from, Phase to, const char* fault);

    bool addressed_ = false;        // an I2C write to the controller is under way
    std::vector<uint8_t> written_;  // its bytes
    Phase phase_ = Phase::IDLE;
    int64_t integratingSinceUs_ = 0;
    int64_t settlingSinceUs_ = 0;
    int64_t stoppedAtUs_ = 0;
};

}  // namespace vornsim
