// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "bridged_camera.h"
#include "device/parts/quicker_converter.h"

namespace vornsim {

/// The electronics of a QUICKER camera. There is no controller that takes commands: the host writes 12-bit registers
/// over SPI (register number in the top four bits of two bytes) and watches line 4, which is high while a frame is
/// made. Then the frame memory offers one dummy word and the whole binned frame; regions are the host's business. With
/// precharge pairs each pixel is two words, reset level and signal level.
///
/// | Register | Content                                                                               |
/// |----------|---------------------------------------------------------------------------------------|
/// | 2        | bits 3:0 guide relays; bits 11:4 what the next start does                             |
/// | 5        | starts it; the value is a duration in units of 1024 / 3 us where there is one         |
/// | 8        | bits 11:8 vertical, 7:4 horizontal binning less one; in force when written twice      |
class QuickerCamera final : public BridgedCamera {
public:
    /// @p clock and @p log must outlive the camera.
    QuickerCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    void bridgeStarted() override;
    ParallelBus parallelBus() const override { return {ParallelBus::Kind::STROBED}; }
    SpiMode spiMode() const override { return SpiMode::REGISTERS; }
    void spiSelect() override { written_.clear(); }
    void spiInput(uint8_t byte) override { written_.push_back(byte); }
    void spiDeselect() override;
    void portChanged(unsigned port, const PortLines& lines) override;
    uint8_t portInputs(unsigned port) override;
    CameraTruth truth() const override;

private:
    enum class Phase { IDLE, CLEARING, INTEGRATING };

    void writeRegister(unsigned number, unsigned value);
    void setBinning(unsigned value);
    void start(unsigned argument);
    void endExposure(int64_t beginUs, int64_t endUs);

    QuickerConverter converter_;

    std::vector<uint8_t> written_;  // over SPI since it was selected
    bool reset_ = false;            // line 1 was pulsed since the bridge was started
    unsigned control_ = 0;
    unsigned binning_ = 0;        // register 8 as last written
    unsigned binningWrites_ = 0;  // how often in a row
    Phase phase_ = Phase::IDLE;
    int64_t integratingSinceUs_ = 0;
    int64_t busyUntilUs_ = 0;  // line 4 is high
};

}  // namespace vornsim
