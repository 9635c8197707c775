// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "usb_device.h"

namespace vornsim {

/// How devices and transports of the simulator put numbers into bytes; offsets must lie within @p bytes.
constexpr uint16_t readLe16(std::span<const uint8_t> bytes, size_t offset)
{
    return static_cast<uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

constexpr uint32_t readLe32(std::span<const uint8_t> bytes, size_t offset)
{
    return readLe16(bytes, offset) | (static_cast<uint32_t>(readLe16(bytes, offset + 2)) << 16);
}

constexpr void writeLe16(std::span<uint8_t> bytes, size_t offset, unsigned value)
{
    bytes[offset] = static_cast<uint8_t>(value & 0xFF);
    bytes[offset + 1] = static_cast<uint8_t>((value >> 8) & 0xFF);
}

constexpr uint16_t readBe16(std::span<const uint8_t> bytes, size_t offset)
{
    return static_cast<uint16_t>((bytes[offset] << 8) | bytes[offset + 1]);
}

constexpr void writeBe16(std::span<uint8_t> bytes, size_t offset, unsigned value)
{
    bytes[offset] = static_cast<uint8_t>((value >> 8) & 0xFF);
    bytes[offset + 1] = static_cast<uint8_t>(value & 0xFF);
}

constexpr uint32_t readBe32(std::span<const uint8_t> bytes, size_t offset)
{
    return (static_cast<uint32_t>(readBe16(bytes, offset)) << 16) | readBe16(bytes, offset + 2);
}

constexpr void writeBe32(std::span<uint8_t> bytes, size_t offset, uint32_t value)
{
    writeBe16(bytes, offset, value >> 16);
    writeBe16(bytes, offset + 2, value & 0xFFFF);
}

inline void appendLe16(std::vector<uint8_t>& bytes, unsigned value)
{
    bytes.push_back(static_cast<uint8_t>(value & 0xFF));
    bytes.push_back(static_cast<uint8_t>((value >> 8) & 0xFF));
}

inline void appendBe16(std::vector<uint8_t>& bytes, unsigned value)
{
    bytes.push_back(static_cast<uint8_t>((value >> 8) & 0xFF));
    bytes.push_back(static_cast<uint8_t>(value & 0xFF));
}

inline void appendBe32(std::vector<uint8_t>& bytes, uint32_t value)
{
    appendBe16(bytes, value >> 16);
    appendBe16(bytes, value & 0xFFFF);
}

/// @return the eight bytes of a setup packet, decoded.
constexpr SetupPacket readSetup(std::span<const uint8_t> bytes)
{
    return {bytes[0], bytes[1], readLe16(bytes, 2), readLe16(bytes, 4), readLe16(bytes, 6)};
}

/// @return the CRC-32 (IEEE 802.3) of @p bytes; how a camera recognises a waveform table its bus was designed for.
constexpr uint32_t crc32(std::span<const uint8_t> bytes)
{
    uint32_t remainder = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        remainder ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xEDB88320 : 0);
    }
    return ~remainder;
}

}  // namespace vornsim
