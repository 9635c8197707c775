// SPDX-License-Identifier: MIT
#include "usb_layout.h"

#include <algorithm>

#include "device/usb/bytes.h"
#include "device/usb/usb_requests.h"

namespace vornsim {

using namespace usb;

const AlternateSetting* UsbLayout::find(unsigned interface, unsigned alternate) const
{
    auto found = std::find_if(settings.begin(), settings.end(), [&](const AlternateSetting& setting) {
        return setting.interface == interface && setting.alternate == alternate;
    });
    return found == settings.end() ? nullptr : &*found;
}

std::optional<uint8_t> UsbLayout::interfaceOf(uint8_t endpoint) const
{
    for (const AlternateSetting& setting : settings)
        if (std::find(setting.endpoints.begin(), setting.endpoints.end(), endpoint) != setting.endpoints.end())
            return setting.interface;
    return std::nullopt;
}

std::optional<UsbLayout> parseDescriptors(std::span<const uint8_t> bytes)
{
    if (bytes.size() < DEVICE_LENGTH + CONFIGURATION_LENGTH || bytes[0] != DEVICE_LENGTH || bytes[1] != DEVICE)
        return std::nullopt;
    std::span<const uint8_t> rest = bytes.subspan(DEVICE_LENGTH);
    if (rest[0] != CONFIGURATION_LENGTH || rest[1] != CONFIGURATION)
        return std::nullopt;

    UsbLayout layout;
    layout.deviceClass = bytes[4];
    layout.subClass = bytes[5];
    layout.protocol = bytes[6];
    layout.vendorId = readLe16(bytes, 8);
    layout.productId = readLe16(bytes, 10);
    layout.release = readLe16(bytes, 12);
    layout.configurationValue = rest[5];

    rest = rest.subspan(CONFIGURATION_LENGTH);
    while (rest.size() >= 2 && rest[0] >= 2 && rest[0] <= rest.size()) {
        const size_t length = rest[0];
        const uint8_t type = rest[1];
        if (type == CONFIGURATION)
            break;
        if (type == INTERFACE && length >= INTERFACE_LENGTH)
            layout.settings.push_back({rest[2], rest[3], rest[5], rest[6], rest[7], {}});
        else if (type == ENDPOINT && length >= ENDPOINT_LENGTH && !layout.settings.empty())
            layout.settings.back().endpoints.push_back(rest[2]);
        rest = rest.subspan(length);
    }
    return layout;
}

}  // namespace vornsim
