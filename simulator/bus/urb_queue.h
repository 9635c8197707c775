// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>

#include "device/faults/camera_slot.h"
#include "device/usb/usb_device.h"
#include "device/usb/usb_requests.h"

namespace vornsim {

/// What kind of transfer an URB asks for. Cameras have no isochronous or interrupt endpoints.
enum class UrbKind { CONTROL, BULK };

/// One transfer that a host handed to usbfs and has not got back yet.
struct Urb {
    uint64_t handle = 0;  ///< the host's name for it: the address of its own record
    uint64_t owner = 0;   ///< who collects it when it is done
    UrbKind kind = UrbKind::BULK;
    uint8_t endpoint = 0;       ///< 0 for control, else the address with the direction in bit 7
    bool shortIsError = false;  ///< a short packet ends the transfer with EREMOTEIO
    SetupPacket setup;          ///< control only
    std::unique_ptr<uint8_t[]> data;
    size_t length = 0;             ///< bytes in @ref data, without a setup packet
    std::shared_ptr<void> charge;  ///< what the transport holds for it until it is collected

    bool begun = false;                ///< it was at the head of its endpoint once
    const FaultRule* fault = nullptr;  ///< what goes wrong with it, once it has begun
    int64_t notBeforeUs = 0;           ///< LATE_ANSWER: the answer's clock time

    int status = 0;           ///< 0 or a negative errno, valid once it is done
    size_t actualLength = 0;  ///< bytes moved so far

    /// Whether data goes from the device to the host.
    bool isIn() const { return (kind == UrbKind::CONTROL ? setup.requestType : endpoint) & usb::DIRECTION_IN; }

    /// The endpoint with the direction in bit 7, for control transfers as well.
    uint8_t address() const { return static_cast<uint8_t>(isIn() ? endpoint | usb::DIRECTION_IN : endpoint); }
};

/// The transfers of one camera: a first-in, first-out queue for each endpoint, and the finished ones until the host
/// collects them. Independent of usbfs and threads, and gets the time from a clock, so it can be tested by itself.
///
/// It asks the camera's plan of faults about every transfer that begins, and makes those fail that the plan names.
///
/// A transfer that the device answers with NAK stays at the head of its endpoint. It is tried again when the device
/// said that time would help, and whenever another transfer has moved, because that may have been what the device was
/// waiting for.
class UrbQueue {
public:
    /// @p slot and @p clock must outlive the queue, which ends when its camera is unplugged.
    UrbQueue(CameraSlot& slot, const Clock& clock) : slot_(slot), faults_(slot.faults()), clock_(clock) {}

    /// A program takes the camera's interface. @return false when the plan lets it seem to be taken already.
    bool mayClaim() { return faults_.mayClaim(); }

    /// Queues a transfer and moves what can be moved. @return 0, ENODEV on a device that is gone, or ENOMEM when the
    /// plan lets the host be out of memory.
    int submit(std::unique_ptr<Urb> urb);

    /// Selects an alternate setting, past the transfers under way. @return false when the device refuses or is gone.
    bool setInterface(unsigned interface, unsigned alternate);

    /// A control transfer without data, past the transfers under way.
    TransferStatus control(const SetupPacket& setup);

    /// Takes a transfer back (a host's timeout): it is done with ENOENT and what it moved until now.
    /// @return false when no such transfer is pending.
    bool discard(uint64_t owner, uint64_t handle);

    /// Takes back all pending transfers for which @p chosen holds; they are done with @p status.
    void cancel(const std::function<bool(const Urb&)>& chosen, int status);

    /// Drops all transfers of an owner, done or not.
    void forget(uint64_t owner);

    /// Moves what can be moved at this time. Call when nextRetryUs() has come and after anything else that may have
    /// changed what the device answers.
    void advance();

    /// @return the clock time at which advance() is worth calling again, or NEVER.
    int64_t nextRetryUs() const { return nextRetryUs_; }

    /// @return the oldest finished transfer of @p owner, or null.
    std::unique_ptr<Urb> reap(uint64_t owner);

    /// @return whether any finished transfer of @p owner waits to be collected.
    bool hasDone(uint64_t owner) const;

    /// @return whether any finished transfer waits to be collected.
    bool hasDone() const { return !done_.empty(); }

    /// The device is unplugged: every pending transfer ends with ESHUTDOWN.
    void unplug();

    /// @return whether the device is unplugged.
    bool gone() const { return gone_; }

private:
    using Pending = std::deque<std::unique_ptr<Urb>>;

    /// Moves the head of one endpoint's queue. @return whether anything changed.
    bool step(Pending& pending);
    void begin(Urb& urb);
    std::optional<BulkResult> failByPlan(const Urb& urb);
    BulkResult stepControl(Urb& urb);
    BulkResult stepBulk(Urb& urb);
    void finishHead(Pending& pending, int status);

    CameraSlot& slot_;
    FaultPlan& faults_;
    const Clock& clock_;
    std::set<uint8_t> halted_;  ///< endpoints that the plan has stalled, with the direction in bit 7
    std::map<uint8_t, Pending> pending_;
    std::deque<std::unique_ptr<Urb>> done_;
    int64_t nextRetryUs_ = NEVER;
    bool gone_ = false;
};

}  // namespace vornsim
