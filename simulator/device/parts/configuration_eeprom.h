// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace vornsim {

/// The bridge's configuration EEPROM, I2C address 0x51. 256 bytes, seen through a two-byte word address of which only
/// the low byte is decoded; sequential reads wrap at the end.
///
/// | Offset | Size | Content                                                            |
/// |--------|------|--------------------------------------------------------------------|
/// | 0      | 1    | 0xC0: the chip takes only its USB ids from here                    |
/// | 1      | 2    | USB vendor id, little-endian                                       |
/// | 3      | 2    | USB product id, little-endian                                      |
/// | 5      | 2    | device id: low half of the serial number, little-endian            |
/// | 7      | 1    | 0x01: 400 kHz boot                                                 |
/// | 8      | 2    | high half of the serial number, little-endian                      |
/// | 10     | 16   | QUICKER: eight converter set-up words, big-endian                  |
/// | 42     | 64   | QUICKER: description of the camera                                 |
/// | 232    | 5    | colour record: 84 D9 01, pattern code, 0 (monochrome: left blank)  |
///
/// What is not written reads as 0xFF.
class ConfigurationEeprom {
public:
    static constexpr uint8_t I2C_ADDRESS = 0x51;
    static constexpr size_t ADDRESS_LENGTH = 2;
    static constexpr size_t CONVERTER_WORDS_OFFSET = 10;
    static constexpr size_t DESCRIPTION_OFFSET = 42;
    static constexpr size_t COLOUR_RECORD_OFFSET = 232;

    /// A monochrome camera's EEPROM with its boot header and serial number.
    ConfigurationEeprom(uint16_t vendorId, uint16_t productId, uint32_t serialNumber);

    /// Marks the sensor as colour; pattern code 0 to 3 = column phase * 2 + row phase of RGGB.
    void setColourPattern(uint8_t code);

    /// Puts bytes at an offset, as the factory does; bytes beyond the end are dropped.
    void program(size_t offset, std::span<const uint8_t> bytes);

    /// I2C: a transfer begins. A write sets the word address anew; a read goes on where the last access ended.
    void start() { written_ = 0; }

    /// I2C: the next byte of a write. @return whether it was taken: the two bytes of the word address are, data are
    /// not, so that no host can damage the boot header.
    bool write(uint8_t byte);

    /// I2C: the next byte of a read.
    uint8_t read() { return cells_[position_++]; }

private:
    std::array<uint8_t, 256> cells_;
    uint8_t position_ = 0;  // word address
    size_t written_ = 0;    // bytes of the write under way
};

}  // namespace vornsim
