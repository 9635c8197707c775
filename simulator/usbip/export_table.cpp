// SPDX-License-Identifier: MIT
#include "export_table.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace vornsim::usbip {

bool ExportTable::add(CameraSlot& slot, DeviceLog& log)
{
    std::optional<UsbLayout> layout = parseDescriptors(slot.camera().descriptors());
    if (!layout)
        return false;
    const auto number = static_cast<uint32_t>(exports_.size()) + 1;
    DeviceRecord record;
    record.busId = "1-" + std::to_string(number);
    record.path = "/sys/devices/vornsim/usb1/" + record.busId;
    record.deviceNumber = number + 1;  // the root hub comes first
    record.layout = std::move(*layout);
    std::lock_guard held(mutex_);
    exports_.push_back({std::move(record), &slot, &log, false, false});
    return true;
}

std::vector<DeviceRecord> ExportTable::available() const
{
    std::lock_guard held(mutex_);
    std::vector<DeviceRecord> records;
    for (const Export& entry : exports_)
        if (!entry.imported && isThere(entry))
            records.push_back(entry.record);
    return records;
}

ImportStatus ExportTable::claim(const std::string& busId, Export*& taken)
{
    std::lock_guard held(mutex_);
    const auto found = std::find_if(exports_.begin(), exports_.end(),
                                    [&](const Export& entry) { return entry.record.busId == busId; });
    if (found == exports_.end() || (!found->imported && !isThere(*found)))
        return ImportStatus::NO_DEVICE;
    if (found->imported)
        return ImportStatus::BUSY;
    if (std::exchange(found->gone, false))
        found->slot->plugIn();
    found->imported = true;
    taken = &*found;
    return ImportStatus::OK;
}

bool ExportTable::isThere(const Export& entry) const
{
    return !entry.gone || clock_.nowUs() >= entry.slot->faults().replug().atUs;
}

void ExportTable::release(Export& taken, bool gone)
{
    std::lock_guard held(mutex_);
    taken.imported = false;
    taken.gone = gone;
}

}  // namespace vornsim::usbip
