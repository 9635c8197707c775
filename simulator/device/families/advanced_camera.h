// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "command_camera.h"
#include "device/parts/advanced_converter.h"

namespace vornsim {

/// The controller of an ADVANCED camera. It takes commands over SPI and answers within the same exchange:
///
/// | Offset | Size | Frame                                                             |
/// |--------|------|-------------------------------------------------------------------|
/// | 0      | 4    | 'C', 'M', 'D', command                                            |
/// | 4      | n    | payload, 16-bit values big-endian                                 |
/// | 4 + n  | m    | whatever; meanwhile the answer's bytes travel the other way       |
///
/// Images leave over the parallel bus: two values out of the converter's pipeline, then the binned region row after
/// row, 16-bit samples little-endian or 8-bit samples two a word. A column count that does not divide evenly is
/// rounded up, in 8-bit readout to an even count.
class AdvancedCamera final : public CommandCamera {
public:
    /// @p clock and @p log must outlive the camera.
    AdvancedCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    ParallelBus parallelBus() const override { return {ParallelBus::Kind::STROBED, 1}; }
    SpiMode spiMode() const override { return SpiMode::COMMANDS; }
    void spiSelect() override;
    uint8_t spiOutput() override;
    void spiInput(uint8_t byte) override;
    void spiDeselect() override;
    CameraTruth truth() const override;

    /// Sets what is connected to the general-purpose lines that are inputs (bit n: line n).
    void setGpioInputs(uint16_t levels) { gpioInputs_ = levels; }
    /// @return the levels that the camera drives on the lines that are outputs; others 0.
    uint16_t gpioOutputs() const { return gpioLatch_ & gpioDirection_ & gpioMask(); }

    const AdvancedConverter& converter() const { return converter_; }

private:
    std::span<const Command> commands() const override;
    bool framed() const;
    bool mayServe(const Command& command);
    uint8_t applicationStatus() const;

    void describe(CommandCall& call);
    void ping(CommandCall& call);
    void pingKernel(CommandCall& call);
    void startApplication(CommandCall& call);
    void reportSerialNumber(CommandCall& call);
    void reportClearTime(CommandCall& call);
    void describeOwnCooler(CommandCall& call);
    void reportGpio(CommandCall& call);
    void setGpioDirection(CommandCall& call);
    void setGpioLevels(CommandCall& call);
    void reportGain(CommandCall& call);
    void setGain(CommandCall& call);
    void prepareSensor(CommandCall& call);
    void prepareExposure(CommandCall& call);
    void startExposure(CommandCall& call);
    void readOut(CommandCall& call);
    std::optional<ExposureTimes> endExposure(unsigned duration, bool microseconds);
    ExposureTimes timedExposure(unsigned duration, bool microseconds);
    uint16_t gpioMask() const;
    int64_t clearTimeUs() const;

    // The SPI exchange under way.
    bool inReset_ = false;              // it is ignored
    std::vector<uint8_t> received_;     // up to now
    const Command* command_ = nullptr;  // which it is
    std::vector<uint8_t> reply_;        // once its payload is complete

    AdvancedConverter converter_;
    std::optional<int64_t> readyAtUs_;  // when the application is up; empty before it was started
    int64_t busyUntilUs_ = 0;           // the application prepares the sensor and ignores commands
    bool prepared_ = false;
    bool cleared_ = false;
    std::optional<int64_t> integratingSinceUs_;
    uint16_t gpioDirection_ = 0;  // 1: output
    uint16_t gpioLatch_ = 0;
    uint16_t gpioInputs_ = 0;
};

}  // namespace vornsim
