// SPDX-License-Identifier: MIT
/// @file wire.h
/// The only place that knows how bytes make numbers.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vornccd {

/// Little-endian 16-bit value at @p offset.
constexpr uint16_t getLe16(const uint8_t* bytes, size_t offset)
{
    return static_cast<uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

/// Big-endian 16-bit value at @p offset.
constexpr uint16_t getBe16(const uint8_t* bytes, size_t offset)
{
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

/// Little-endian 32-bit value at @p offset.
constexpr uint32_t getLe32(const uint8_t* bytes, size_t offset)
{
    return static_cast<uint32_t>(getLe16(bytes, offset)) | static_cast<uint32_t>(getLe16(bytes, offset + 2)) << 16;
}

/// Stores the low 16 bits of @p value little-endian at @p offset.
constexpr void putLe16(uint8_t* bytes, size_t offset, uint32_t value)
{
    bytes[offset] = static_cast<uint8_t>(value);
    bytes[offset + 1] = static_cast<uint8_t>(value >> 8);
}

/// Stores the low 16 bits of @p value big-endian at @p offset.
constexpr void putBe16(uint8_t* bytes, size_t offset, uint32_t value)
{
    bytes[offset] = static_cast<uint8_t>(value >> 8);
    bytes[offset + 1] = static_cast<uint8_t>(value);
}

/// Stores @p value little-endian at @p offset.
constexpr void putLe32(uint8_t* bytes, size_t offset, uint32_t value)
{
    putLe16(bytes, offset, value);
    putLe16(bytes, offset + 2, value >> 16);
}

/// Big-endian read by the name the gain record uses.
constexpr int getInt16(const uint8_t* buffer, int offset)
{
    return getBe16(buffer, static_cast<size_t>(offset));
}

/// Big-endian write by the name the gain record uses; the low 16 bits of @p value.
constexpr void setInt16(uint8_t* buffer, int offset, unsigned value)
{
    putBe16(buffer, static_cast<size_t>(offset), value);
}

/// Turns samples as they came over USB (little-endian) into host order, in place.
inline void littleEndianToHost(std::span<uint16_t> samples)
{
    if constexpr (std::endian::native == std::endian::big) {
        for (uint16_t& sample : samples)
            sample = static_cast<uint16_t>(sample << 8 | sample >> 8);
    }
}

/// Walks a reply whose layout depends on its content. Reads past the end give 0.
class ByteReader {
public:
    explicit constexpr ByteReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    constexpr uint8_t u8() { return position_ < bytes_.size() ? bytes_[position_++] : uint8_t{0}; }
    constexpr uint16_t le16()
    {
        const uint8_t low = u8();
        return static_cast<uint16_t>(low | u8() << 8);
    }
    constexpr uint16_t be16()
    {
        const uint8_t high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }

private:
    std::span<const uint8_t> bytes_;
    size_t position_ = 0;
};

}  // namespace vornccd
