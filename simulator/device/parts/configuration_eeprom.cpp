// SPDX-License-Identifier: MIT
#include "configuration_eeprom.h"

#include <algorithm>

#include "device/usb/bytes.h"

namespace vornsim {

ConfigurationEeprom::ConfigurationEeprom(uint16_t vendorId, uint16_t productId, uint32_t serialNumber)
{
    cells_.fill(0xFF);
    cells_[0] = 0xC0;
    writeLe16(cells_, 1, vendorId);
    writeLe16(cells_, 3, productId);
    writeLe16(cells_, 5, serialNumber & 0xFFFF);
    cells_[7] = 0x01;
    writeLe16(cells_, 8, serialNumber >> 16);
}

void ConfigurationEeprom::setColourPattern(uint8_t code)
{
    const uint8_t record[] = {0x84, 0xD9, 0x01, code, 0x00};
    program(COLOUR_RECORD_OFFSET, record);
}

void ConfigurationEeprom::program(size_t offset, std::span<const uint8_t> bytes)
{
    if (offset >= cells_.size())
        return;
    const size_t length = std::min(bytes.size(), cells_.size() - offset);
    std::copy_n(bytes.begin(), length, cells_.begin() + static_cast<std::ptrdiff_t>(offset));
}

bool ConfigurationEeprom::write(uint8_t byte)
{
    if (++written_ > ADDRESS_LENGTH)
        return false;
    position_ = byte;  // the second byte counts
    return true;
}

}  // namespace vornsim
