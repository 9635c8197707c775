// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vornsim {

/// One alternate setting of an interface, as its descriptor gives it.
struct AlternateSetting {
    uint8_t interface = 0;
    uint8_t alternate = 0;
    uint8_t deviceClass = 0;
    uint8_t subClass = 0;
    uint8_t protocol = 0;
    std::vector<uint8_t> endpoints;  ///< endpoint addresses, bit 7 set for IN
};

/// What the transports need to know of a device's descriptors.
struct UsbLayout {
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint16_t release = 0;  ///< bcdDevice
    uint8_t deviceClass = 0;
    uint8_t subClass = 0;
    uint8_t protocol = 0;
    uint8_t configurationValue = 0;  ///< bConfigurationValue of the first configuration
    std::vector<AlternateSetting> settings;

    /// @return the setting, or null when the descriptors have none such.
    const AlternateSetting* find(unsigned interface, unsigned alternate) const;

    /// @return the number of the interface that has @p endpoint in any of its alternate settings.
    std::optional<uint8_t> interfaceOf(uint8_t endpoint) const;
};

/// Reads a device descriptor followed by a configuration descriptor. Stops at the first malformed descriptor and
/// returns what came before it; null when there is no complete device and configuration descriptor.
std::optional<UsbLayout> parseDescriptors(std::span<const uint8_t> bytes);

}  // namespace vornsim
