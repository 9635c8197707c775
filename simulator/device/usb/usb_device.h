// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace vornsim {

/// Where a simulated device gets the time from: real, sped up or virtual. The device never sleeps.
class Clock {
public:
    virtual ~Clock() = default;
    /// @return microseconds since an arbitrary start; never goes back.
    virtual int64_t nowUs() const = 0;
};

/// Receives what a camera reports: state changes, and requests that real firmware could not understand.
class DeviceLog {
public:
    virtual ~DeviceLog() = default;
    /// An ordinary event ("exposure started").
    virtual void note(const std::string& text) = 0;
    /// A request that real firmware could not serve ("readout without exposure"). Tests fail on these.
    virtual void complain(const std::string& text) = 0;
};

/// The eight bytes of a USB setup packet, decoded.
struct SetupPacket {
    uint8_t requestType = 0;
    uint8_t request = 0;
    uint16_t value = 0;
    uint16_t index = 0;
    uint16_t length = 0;
};

/// How one step of a transfer ended.
enum class TransferStatus {
    OK,        ///< `length` bytes moved
    STALL,     ///< endpoint halted or request refused
    BABBLE,    ///< the device sent a packet larger than the space left
    IO_ERROR,  ///< no handshake: endpoint absent, bus error
    GONE,      ///< unplugged
};

/// `retryAtUs` of a device that waits for the host rather than for time to pass.
inline constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();

/// Result of a control transfer. Devices answer at once.
struct ControlResult {
    TransferStatus status = TransferStatus::OK;
    size_t length = 0;  ///< bytes moved in the data stage
};

/// Result of one step of a bulk transfer. A transfer may take several steps: while `complete` is false the endpoint
/// answers NAK from here on, and the host keeps the transfer pending with `length` bytes moved so far.
struct BulkResult {
    TransferStatus status = TransferStatus::OK;
    size_t length = 0;          ///< bytes moved in this step
    bool complete = false;      ///< the transfer is over: buffer full, short packet, or an error
    int64_t retryAtUs = NEVER;  ///< when not complete: clock time at which trying again may move more
};

/// A USB device seen from the bus: every way to reach a simulated camera (in process, usbfs, USB/IP) ends here.
/// Not thread-safe; the transport that owns it serialises calls.
class UsbDevice {
public:
    virtual ~UsbDevice() = default;

    /// Device descriptor followed by the complete configuration descriptor, as usbfs shows them.
    virtual std::vector<uint8_t> descriptors() const = 0;

    /// One control transfer on endpoint 0, vendor and class requests included. Standard requests that a host
    /// controller or kernel normally serves (SET_ADDRESS) never arrive. @p data is the data stage, in or out by bit 7
    /// of requestType, `setup.length` bytes.
    virtual ControlResult control(const SetupPacket& setup, std::span<uint8_t> data) = 0;

    /// The host selected an alternate setting (SET_INTERFACE). @return false when there is no such setting.
    virtual bool setInterface(unsigned interface, unsigned alternate) = 0;

    /// One step of a bulk OUT transfer.
    virtual BulkResult bulkOut(uint8_t endpoint, std::span<const uint8_t> data) = 0;

    /// One step of a bulk IN transfer into the space left of the host's buffer.
    virtual BulkResult bulkIn(uint8_t endpoint, std::span<uint8_t> buffer) = 0;
};

}  // namespace vornsim
