// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>

#include "bus/urb_queue.h"
#include "bus/usb_layout.h"
#include "device/usb/usb_device.h"

namespace vornsim {

/// What the kernel's usbfs does for one device node: who may use which interface, which transfers are let through,
/// what happens to them when an interface is given back or a file is closed. Files are identified by number.
///
/// Functions that stand for a request give 0 or the positive errno that the request fails with. Not thread-safe.
class UsbfsNode {
public:
    /// @p slot, @p clock and @p log must outlive the node.
    UsbfsNode(CameraSlot& slot, UsbLayout layout, const Clock& clock, DeviceLog& log);

    /// The transfers under way.
    UrbQueue& queue() { return queue_; }

    /// Takes @p interface for @p file. EBUSY when another file has it, EINVAL when there is no such interface.
    int claim(uint64_t file, unsigned interface);

    /// Gives @p interface back, with its transfers and its alternate setting. EINVAL when @p file does not have it.
    int release(uint64_t file, unsigned interface);

    /// Selects an alternate setting; transfers on the interface are taken back.
    int setInterface(uint64_t file, unsigned interface, unsigned alternate);

    /// Selects the one configuration there is again. EBUSY while anybody holds an interface.
    int setConfiguration(int value);

    /// Whether a file holds the interface, which makes "usbfs" its driver: 0, or ENODATA when it has no driver.
    int driverOf(unsigned interface) const;

    /// Ends the halt of an endpoint on both sides.
    int clearHalt(uint64_t file, uint8_t endpoint);

    /// Resets the port: all transfers are taken back, configuration and alternate settings are restored.
    int reset();

    /// Lets a transfer of @p file through to the queue, where it goes by the owner it names. EBUSY, ENODEV, ENOMEM or
    /// ENOENT (no such endpoint in the current alternate setting).
    int submit(uint64_t file, std::unique_ptr<Urb> urb);

    /// The last reference to @p file is gone: its claims and transfers go with it.
    void closeFile(uint64_t file);

private:
    /// usbfs claims an interface by itself for a file that uses it without asking.
    int ensureClaimed(uint64_t file, unsigned interface);
    int checkControl(uint64_t file, const SetupPacket& setup);
    bool endpointIsActive(uint8_t endpoint) const;
    void cancelInterface(unsigned interface);

    const UsbLayout layout_;
    DeviceLog& log_;
    UrbQueue queue_;
    std::map<unsigned, uint64_t> claims_;      ///< interface to file
    std::map<unsigned, unsigned> alternates_;  ///< interface to its current setting, 0 where none is noted
};

}  // namespace vornsim
