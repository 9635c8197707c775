// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "device/usb/simulated_camera.h"
#include "device/usb/usb_device.h"
#include "fault_rule.h"

namespace vornsim {

/// A device with which things go wrong according to plan. Everything else goes through to the device it is made of.
class FaultyDevice final : public UsbDevice {
public:
    using Maker = std::function<std::unique_ptr<UsbDevice>()>;

    /// @p make gives the device as it is after power-up, and does so again whenever it is plugged in again; exposures
    /// are noticed when it is a SimulatedCamera. The rules are asked in their order. @p clock and @p log must outlive
    /// the device.
    FaultyDevice(Maker make, const std::vector<FaultRule>& rules, const Clock& clock, DeviceLog& log);

    std::vector<uint8_t> descriptors() const override { return device_->descriptors(); }
    ControlResult control(const SetupPacket& setup, std::span<uint8_t> data) override;
    bool setInterface(unsigned interface, unsigned alternate) override;
    BulkResult bulkOut(uint8_t endpoint, std::span<const uint8_t> data) override;
    BulkResult bulkIn(uint8_t endpoint, std::span<uint8_t> buffer) override;
    bool hostMay(HostAction action, uint8_t address) override;
    void takenBack(uint8_t address) override { transfers_.erase(address); }
    Replug replug() const override { return replug_; }
    void plugIn() override;

private:
    /// A rule with what it has seen.
    struct Counter {
        FaultRule rule;
        bool counting = false;
        uint64_t seen = 0;

        /// A new opening or exposure has begun.
        void restart(FaultRule::Since since, uint64_t occasion);
        /// Counts a transfer. @return whether it is to be hurt.
        bool hits(uint8_t address);
    };

    /// A transfer from its first step on.
    struct Transfer {
        const FaultRule* fault = nullptr;  ///< null: it goes through
        int64_t notBeforeUs = 0;
        size_t held = 0;  ///< bytes that the host shall not see before the last one
    };

    /// @return the transfer under way on @p address, which begins with this call when there is none.
    Transfer& current(uint8_t address);

    /// What a transfer comes to without asking the device; null when the device is to be asked.
    std::optional<BulkResult> answerItself(uint8_t address, const Transfer& transfer);
    BulkResult finish(uint8_t address, BulkResult result);
    void unplug(const FaultRule& rule);
    void noticeExposure();
    void restartCounters(FaultRule::Since since, uint64_t occasion);
    void garble(std::span<uint8_t> bytes);

    Maker make_;
    const Clock& clock_;
    DeviceLog& log_;
    std::unique_ptr<UsbDevice> device_;
    const SimulatedCamera* camera_ = nullptr;  ///< the same, when it is one
    std::vector<Counter> counters_;
    std::map<uint8_t, Transfer> transfers_;  ///< those under way
    std::set<uint8_t> halted_;
    bool gone_ = false;
    Replug replug_;
    bool claimed_ = false;
    uint64_t openingCount_ = 0;
    uint64_t exposureCount_ = 0;
    bool integrating_ = false;
    uint64_t frameCount_ = 0;
    uint32_t random_ = 1;
};

}  // namespace vornsim
