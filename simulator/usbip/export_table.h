// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "device/usb_device.h"
#include "usbip_messages.h"

namespace vornsim::usbip {

/// A device that clients may import.
struct Export {
    DeviceRecord record;
    UsbDevice* device = nullptr;
    DeviceLog* log = nullptr;
    bool imported = false;
};

/// The devices of a server. Only the connection that has claimed a device touches it. Thread-safe.
class ExportTable {
public:
    /// Adds a device; the first one gets the bus id "1-1", the next one "1-2". @p device and @p log must outlive the
    /// table. @return false for a device without valid descriptors.
    bool add(UsbDevice& device, DeviceLog& log);

    /// @return the devices that nobody has imported.
    std::vector<DeviceRecord> available() const;

    /// Takes a device for one connection. @param taken receives it with the status OK
    ImportStatus claim(const std::string& busId, Export*& taken);

    /// Gives a device back.
    void release(Export& taken);

private:
    mutable std::mutex mutex_;    ///< guards the marks
    std::deque<Export> exports_;  ///< whose addresses stay
};

}  // namespace vornsim::usbip
