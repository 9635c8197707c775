// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "simulated_camera.h"
#include "usb_device.h"

namespace vornsim {

/// The vendor id of all simulated cameras; no host may depend on it.
inline constexpr uint16_t SIMULATED_VENDOR_ID = 0x1234;

/// One endpoint as its descriptor shows it.
struct EndpointInfo {
    uint8_t address = 0;  ///< bit 7 set: IN
    uint8_t type = 2;     ///< 1 isochronous, 2 bulk, 3 interrupt
    uint16_t packetSize = 512;
    uint8_t interval = 0;
};

/// What a device with one configuration and one vendor-specific interface says about itself.
struct UsbIdentity {
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint16_t release = 0;                               ///< bcdDevice
    uint8_t maxPowerHalfUnits = 50;                     ///< units of 2 mA
    std::vector<std::vector<EndpointInfo>> alternates;  ///< endpoints of alternate setting 0, 1, ...
};

/// The part of a device that every USB function has: descriptors, standard requests, the selected alternate setting
/// and halted endpoints. A device model derives from it and serves vendor requests and moves bulk data.
class UsbFunction : public SimulatedCamera {
public:
    explicit UsbFunction(UsbIdentity identity);

    std::vector<uint8_t> descriptors() const override;
    ControlResult control(const SetupPacket& setup, std::span<uint8_t> data) final;
    bool setInterface(unsigned interface, unsigned alternate) override;
    BulkResult bulkOut(uint8_t endpoint, std::span<const uint8_t> data) final;
    BulkResult bulkIn(uint8_t endpoint, std::span<uint8_t> buffer) final;

    /// A function that is no camera has nothing to report.
    CameraTruth truth() const override { return {}; }

    /// @return the alternate setting in force; 0 after power-up.
    unsigned alternate() const { return alternate_; }

protected:
    /// A vendor (or class) request. The default refuses everything. @p data has setup.length bytes.
    virtual ControlResult vendorRequest(const SetupPacket& setup, std::span<uint8_t> data);
    /// Bulk steps on an endpoint that exists in the alternate setting in force and is not halted.
    virtual BulkResult sendToEndpoint(uint8_t endpoint, std::span<const uint8_t> data) = 0;
    virtual BulkResult readFromEndpoint(uint8_t endpoint, std::span<uint8_t> buffer) = 0;

private:
    std::vector<uint8_t> deviceDescriptor() const;
    std::vector<uint8_t> configurationDescriptor() const;
    ControlResult standardRequest(const SetupPacket& setup, std::span<uint8_t> data);
    ControlResult endpointRequest(const SetupPacket& setup, std::span<uint8_t> data);
    const EndpointInfo* findEndpoint(uint8_t address) const;
    std::optional<BulkResult> refusal(uint8_t endpoint, uint8_t direction) const;

    UsbIdentity identity_;
    uint8_t configuration_ = 1;  // attached devices come configured: the kernel does it before any host program runs
    unsigned alternate_ = 0;
    std::set<uint8_t> halted_;
};

}  // namespace vornsim
