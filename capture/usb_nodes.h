// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace vorncapture {

/// One USB device as the system shows it in its files.
struct UsbNode {
    std::string vendorId;            ///< "1234", as in sysfs
    std::string productId;           ///< "df2c"
    std::string path;                ///< "/dev/bus/usb/001/002"
    std::string port;                ///< "1-2.3", bus and ports as in sysfs
    double megabitsPerSecond = 0.0;  ///< 480 for high speed; 0 unknown
    std::string kernelDriver;        ///< of the first interface; empty: none, "usbfs": a program

    /// @return whether @p place means this device: "1-2.3" its port, or "1:2" its bus and number.
    bool isAt(const std::string& place) const;

    /// @return whether this process may read and write the node.
    bool usable() const;

    /// @return owner, group and mode for people, "root:root, mode 0600"; empty when the node is not there.
    std::string access() const;

    /// @return other processes that have the node open, "1234 (phd2)"; only what this user may see.
    std::vector<std::string> holders() const;
};

/// @return the attached USB devices with these ids, in no particular order.
std::vector<UsbNode> findUsbNodes(const std::string& vendorId, const std::string& productId);

/// @return whether this process has the node @p path open.
bool openInThisProcess(const std::string& path);

/// @return whether a udev rule names the product id @p productId, so that ordinary users may have access.
bool udevRuleInstalled(const std::string& productId);

/// What this process may do as a user.
struct UserAccess {
    std::string name;
    bool plugdevExists = false;  ///< the group
    bool inPlugdev = false;      ///< this process; joining shows only after the next login
};
UserAccess userAccess();

/// @return mebibytes that all USB programs together may have in buffers; 0 without limit, -1 unknown.
long usbMemoryMebibytes();

}  // namespace vorncapture
