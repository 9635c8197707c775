// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace vorncapture {

/// One USB device as the system shows it in its files.
struct UsbNode {
    std::string vendorId;   ///< "1234", as in sysfs
    std::string productId;  ///< "df2c"
    std::string path;       ///< "/dev/bus/usb/001/002"

    /// @return whether this process may read and write the node.
    bool usable() const;

    /// @return owner, group and mode for people, "root:root, mode 0600"; empty when the node is not there.
    std::string access() const;

    /// @return other processes that have the node open, "1234 (phd2)"; only what this user may see.
    std::vector<std::string> holders() const;
};

/// @return the attached USB devices with these ids, in no particular order.
std::vector<UsbNode> findUsbNodes(const std::string& vendorId, const std::string& productId);

/// @return mebibytes that all USB programs together may have in buffers; 0 without limit, -1 unknown.
long usbMemoryMebibytes();

}  // namespace vorncapture
