// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "bus/usb_layout.h"

namespace vornsim {

/// Where a simulated device sits on its simulated bus.
struct UsbAddress {
    unsigned bus = 1;
    unsigned port = 1;    ///< port of the root hub; the device is called "<bus>-<port>" in sysfs
    unsigned device = 2;  ///< address on the bus; 1 is the root hub
};

/// @return the path of the device node, "/dev/bus/usb/001/002".
std::string deviceNode(const UsbAddress& address);

/// @return the path of the device in sysfs, "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-1".
std::string sysfsPath(const UsbAddress& address);

/// @return the path of one of its interfaces in sysfs, "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0".
std::string interfacePath(const UsbAddress& address, const UsbLayout& layout, const AlternateSetting& setting);

/// Describes a high-speed device and its interfaces the way Linux shows them in sysfs and udev, in umockdev's text
/// format: one paragraph for the device, one for each interface. @p descriptors is what sysfs shows in the file of the
/// same name, and what @p layout was read from.
std::string describeDevice(const UsbAddress& address, const UsbLayout& layout, std::span<const uint8_t> descriptors);

/// Describes the root hub that the devices of @p bus hang on. It has no node, so nobody can open it.
std::string describeRootHub(unsigned bus);

}  // namespace vornsim
