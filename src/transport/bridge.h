// SPDX-License-Identifier: MIT
/// @file bridge.h
/// Request codes, endpoints and addresses of the bridge microcontroller.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vornccd {

enum BridgeRequest : unsigned {
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

constexpr unsigned I2C_CLASSIC = 0x40;  // controller of CLASSIC cameras, 7-bit address
constexpr unsigned I2C_EEPROM = 0x51;   // configuration EEPROM

// Configuration EEPROM, byte addresses
constexpr unsigned EEPROM_PRODUCT_ID = 3;    // 2 bytes, little-endian
constexpr unsigned EEPROM_SERIAL_LOW = 5;    // 2 bytes, little-endian
constexpr unsigned EEPROM_SERIAL_HIGH = 8;   // 2 bytes, little-endian
constexpr unsigned EEPROM_ADC_WORDS = 10;    // 16 bytes: eight words, big-endian
constexpr unsigned EEPROM_DESCRIPTION = 42;  // 64 bytes, QUICKER
constexpr unsigned EEPROM_COLOUR = 1000;     // deliberate: wraps to 232; 5 bytes

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

}  // namespace vornccd
