// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include "bridge_chip.h"
#include "device/families/camera_catalogue.h"
#include "device/usb/usb_function.h"

namespace vornsim {

/// A camera behind an emulated bridge chip: it answers what the program makes it answer that a host has loaded into
/// it, and is silent without one.
///
/// The chip follows the host's clock: whenever the host does something, the program is executed up to that moment. The
/// camera behind it has the chip's time.
class ChipCamera final : public UsbFunction {
public:
    using MakeCamera = std::function<std::unique_ptr<BusCamera>(const Clock&)>;

    /// @p clock and @p log must outlive the camera. @param make makes what is behind the chip, on the chip's clock
    /// @param highSpeed bulk packets of 512 bytes, else of 64
    ChipCamera(uint16_t productId, const MakeCamera& make, const Clock& clock, DeviceLog& log, bool highSpeed = true);

    CameraTruth truth() const override;

    BusCamera& camera() { return *camera_; }
    BridgeChip& chip() { return chip_; }

protected:
    ControlResult vendorRequest(const SetupPacket& setup, std::span<uint8_t> data) override;
    BulkResult sendToEndpoint(uint8_t endpoint, std::span<const uint8_t> data) override;
    BulkResult readFromEndpoint(uint8_t endpoint, std::span<uint8_t> buffer) override;

private:
    /// The time up to which the chip has executed its program.
    struct ChipClock final : Clock {
        explicit ChipClock(int64_t start) : startUs(start) {}
        int64_t nowUs() const override { return chip != nullptr ? chip->now() / TICKS_PER_US : startUs; }
        const BridgeChip* chip = nullptr;
        int64_t startUs;
    };

    Ticks hostTime() const { return clock_.nowUs() * TICKS_PER_US; }
    BulkResult waiting(size_t moved) const;

    const Clock& clock_;
    DeviceLog& log_;
    ChipClock chipClock_;
    std::unique_ptr<BusCamera> camera_;
    mutable BridgeChip chip_;         // asking for the truth lets it catch up
    int64_t lastSentUs_ = 0;          // when the host sent its last packet
    std::array<bool, 16> pending_{};  // by endpoint: a transfer of the host waits
};

/// Makes a camera with an emulated chip, powered but without a program; one without a bridge is as makeCamera() makes
/// it. @p clock and @p log must outlive it.
std::unique_ptr<SimulatedCamera> makeChipCamera(const ModelInfo& model, const CameraOptions& options,
                                                const Clock& clock, DeviceLog& log);

}  // namespace vornsim
