// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "bus/usb_layout.h"
#include "device/usb/usb_device.h"

/// The bytes of the USB/IP protocol, version 1.1.1. Nothing in this file touches a socket or a device. All numbers on
/// the wire are big-endian, except within the eight setup bytes.
namespace vornsim::usbip {

/// The longest transfer that is accepted. More than a stock kernel requests in one piece.
inline constexpr size_t LONGEST_TRANSFER = size_t{32} * 1024 * 1024;

/// The message is not complete; so far it is fine. Read at least until there are @ref needed bytes in all.
struct Incomplete {
    size_t needed = 0;
};

/// No message can begin like this; the connection is of no use any more.
struct Malformed {
    const char* reason = "";
};

/// Which devices are there? The answer ends the connection.
struct ListRequest {};

/// The client wants to have a device. When it gets it, only commands follow on this connection.
struct ImportRequest {
    std::string busId;  ///< 31 bytes at the most
};

/// One transfer for the device.
struct SubmitCommand {
    uint32_t sequence = 0;
    uint8_t endpoint = 0;           ///< 0, or the address with the direction in bit 7
    bool shortIsError = false;      ///< a short packet ends the transfer with EREMOTEIO
    SetupPacket setup;              ///< endpoint 0 only; its length is that of the data stage
    size_t length = 0;              ///< bytes to move, LONGEST_TRANSFER at the most
    std::span<const uint8_t> data;  ///< OUT: @ref length bytes within the parsed ones; IN: empty
};

/// Takes a transfer back.
struct UnlinkCommand {
    uint32_t sequence = 0;
    uint32_t victim = 0;  ///< sequence number of the transfer
};

/// What stood at the beginning of some bytes.
template <typename... Kinds>
struct Parsed {
    std::variant<Incomplete, Malformed, Kinds...> message;
    size_t length = 0;  ///< bytes that the message took; 0 when there is none
};

/// Reads the first message of a connection from the beginning of @p bytes.
Parsed<ListRequest, ImportRequest> parseRequest(std::span<const uint8_t> bytes);

/// Reads the next message of a connection that has a device.
Parsed<SubmitCommand, UnlinkCommand> parseCommand(std::span<const uint8_t> bytes);

/// What the server reports of a device that it has.
struct DeviceRecord {
    std::string path;   ///< where it is on the server; people read it
    std::string busId;  ///< "1-1"
    uint32_t busNumber = 1;
    uint32_t deviceNumber = 1;
    UsbLayout layout;
};

/// How an import ends.
enum class ImportStatus : uint32_t { OK = 0, BUSY = 2, NO_DEVICE = 4 };

/// The answer to a ListRequest.
std::vector<uint8_t> packList(std::span<const DeviceRecord> devices);

/// The answer to an ImportRequest. @p device is left out unless the status is OK, and may be null then.
std::vector<uint8_t> packImport(ImportStatus status, const DeviceRecord* device);

constexpr size_t COMMAND_LENGTH = 48;
using AnswerHeader = std::array<uint8_t, COMMAND_LENGTH>;

/// The answer to a SubmitCommand; for IN transfers @p actualLength bytes have to follow. @p status is 0 or a negative
/// errno.
AnswerHeader packSubmitAnswer(uint32_t sequence, int status, size_t actualLength);

/// The answer to an UnlinkCommand: @p status is -ECONNRESET for a transfer taken back, 0 for one already answered.
AnswerHeader packUnlinkAnswer(uint32_t sequence, int status);

}  // namespace vornsim::usbip
