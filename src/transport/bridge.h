// SPDX-License-Identifier: MIT
/// @file bridge.h
/// Request codes, endpoints and addresses of the bridge microcontroller.
#pragma once

#include "camera_impl.h"
#include "transport/layout.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vornccd {

enum BridgeCode : unsigned {
    BRIDGE_SET_PORT_STATE = 1,      // 16: port block and 6 zeros
    BRIDGE_SET_PORT_DIRECTION = 2,  // 10: port block
    BRIDGE_GET_PORT_STATE = 3,      // reply 5, one byte a port
    BRIDGE_I2C = 4,                 // address byte, then data; reply data or acknowledgement
    BRIDGE_I2C_SPEED = 5,           // sub-code: speed
    BRIDGE_SPI = 6,                 // sub-code 1: register write, 2: ADVANCED exchange
    BRIDGE_PAR_INIT = 8,            // waveform table; acknowledged
    BRIDGE_PAR_IN = 9,              // value and index: length; the data come on their own endpoint
    BRIDGE_PAR_OUT = 10,            // the data went to their own endpoint before; acknowledged
    BRIDGE_SET_TIMEOUT = 12,        // sub-code 0: parallel bus, 1: I2C; value: milliseconds
};

enum Endpoint : unsigned {
    EP_PAR_OUT = 0x02,     // raw parallel data
    EP_BRIDGE_OUT = 0x04,  // bridge requests
    EP_IIDC_IN = 0x81,     // frames of IIDC cameras
    EP_BRIDGE_IN = 0x86,   // bridge replies
    EP_PAR_IN = 0x88,      // parallel and image data
};

// Sub-codes
constexpr unsigned TIMEOUT_PARALLEL = 0;  // of BRIDGE_SET_TIMEOUT
constexpr unsigned TIMEOUT_I2C = 1;
constexpr unsigned SPI_REGISTER = 1;  // of BRIDGE_SPI
constexpr unsigned SPI_EXCHANGE = 2;

// What else a request on a serial bus carries
constexpr unsigned I2C_INDEX = 1;
constexpr unsigned SPI_INDEX = 1;
constexpr unsigned SPI_EXCHANGE_VALUE = 3;

// Request header; the payload follows.
constexpr size_t REQUEST_HEADER_LENGTH = 16;
constexpr Field REQUEST_CODE = byteAt(0);
constexpr Field REQUEST_SEQUENCE = byteAt(1);
constexpr Field REQUEST_FLAG = byteAt(2);  // FF: the bridge answers also without data
constexpr Field REQUEST_SUBCODE = byteAt(3);
constexpr Field REQUEST_VALUE = le16At(4);
constexpr Field REQUEST_INDEX = le16At(6);
constexpr Field REQUEST_REPLY_LENGTH = le32At(8);
constexpr Field REQUEST_PAYLOAD_LENGTH = le32At(12);
static_assert(covers({REQUEST_CODE, REQUEST_SEQUENCE, REQUEST_FLAG, REQUEST_SUBCODE, REQUEST_VALUE, REQUEST_INDEX,
                      REQUEST_REPLY_LENGTH, REQUEST_PAYLOAD_LENGTH},
                     REQUEST_HEADER_LENGTH));

/// A request by the names of its parts; what is not named is 0.
struct BridgeRequest {
    BridgeCode code;
    bool flag = false;  ///< the bridge answers also without data
    unsigned subcode = 0;
    unsigned value = 0;
    unsigned index = 0;
    std::span<const uint8_t> payload = {};
    std::span<uint8_t> reply = {};  ///< untouched when the exchange fails
};

/// Sends a request and reads its reply. @return whether both worked.
inline bool exchange(VornCameraImpl& camera, const BridgeRequest& request)
{
    return camera.bulkTransfer(request.code, request.flag, request.subcode, request.value, request.index,
                               request.payload.data(), request.reply.data(),
                               static_cast<unsigned>(request.payload.size()),
                               static_cast<unsigned>(request.reply.size()));
}

constexpr unsigned I2C_CLASSIC = 0x40;  // controller of CLASSIC cameras, 7-bit address
constexpr unsigned I2C_EEPROM = 0x51;   // configuration EEPROM

// Configuration EEPROM, byte addresses
constexpr unsigned EEPROM_PRODUCT_ID = 3;    // an EEPROM_NUMBER
constexpr unsigned EEPROM_SERIAL_LOW = 5;    // an EEPROM_NUMBER
constexpr unsigned EEPROM_SERIAL_HIGH = 8;   // an EEPROM_NUMBER
constexpr unsigned EEPROM_ADC_WORDS = 10;    // 16 bytes: eight words, big-endian
constexpr unsigned EEPROM_DESCRIPTION = 42;  // 64 bytes, QUICKER
constexpr unsigned EEPROM_COLOUR = 1000;     // deliberate: wraps to 232; 5 bytes

constexpr size_t EEPROM_NUMBER_LENGTH = 2;
constexpr Field EEPROM_NUMBER = le16At(0);

constexpr unsigned PORT_COUNT = 5;

/// {mask, value} for ports 0 to 4: each port becomes (old AND mask) OR value.
using PortBlock = std::array<uint8_t, std::size_t{2} * PORT_COUNT>;

/// A block that changes @p port only; a port above 4 changes nothing.
constexpr PortBlock portBlock(unsigned port, uint8_t mask, uint8_t value)
{
    PortBlock block = {0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0};
    if (port < PORT_COUNT) {
        block[std::size_t{2} * port] = mask;
        block[std::size_t{2} * port + 1] = value;
    }
    return block;
}

/// What sets the states of the ports: the block and six zeros.
using PortStatePayload = std::array<uint8_t, 16>;

constexpr PortStatePayload portStatePayload(const PortBlock& block)
{
    PortStatePayload payload = {};
    for (size_t i = 0; i < block.size(); ++i)
        payload[i] = block[i];
    return payload;
}

}  // namespace vornccd
