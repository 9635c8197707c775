// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "device/faults/camera_slot.h"
#include "usbip_messages.h"

namespace vornsim::usbip {

/// A device that clients may import.
struct Export {
    DeviceRecord record;
    CameraSlot* slot = nullptr;
    DeviceLog* log = nullptr;
    bool imported = false;
    bool gone = false;  ///< unplugged by itself, and not plugged in again yet
};

/// The devices of a server. Only the connection that has claimed a device touches it. Thread-safe.
class ExportTable {
public:
    /// @p clock must outlive the table.
    explicit ExportTable(const Clock& clock) : clock_(clock) {}

    /// Adds a device; the first one gets the bus id "1-1", the next one "1-2". @p slot and @p log must outlive the
    /// table. @return false for a device without valid descriptors.
    bool add(CameraSlot& slot, DeviceLog& log);

    /// @return the devices that are there and that nobody has imported.
    std::vector<DeviceRecord> available() const;

    /// Takes a device for one connection. @param taken receives it with the status OK
    ImportStatus claim(const std::string& busId, Export*& taken);

    /// Gives a device back. @p gone: it has left the bus; it is there again at the time in its plan.
    void release(Export& taken, bool gone);

private:
    /// Whether a device is plugged in at this time.
    bool isThere(const Export& entry) const;

    const Clock& clock_;
    mutable std::mutex mutex_;    ///< guards the marks
    std::deque<Export> exports_;  ///< whose addresses stay
};

}  // namespace vornsim::usbip
