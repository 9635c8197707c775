// SPDX-License-Identifier: MIT
/// @file wire.h
/// Streams of numbers: samples as they come over USB, and replies whose layout depends on their content. Fixed layouts
/// are tables, see layout.h.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vornccd {

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
    constexpr uint16_t be16()
    {
        const uint8_t high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }

    /// What has not been read.
    constexpr std::span<const uint8_t> rest() const { return bytes_.subspan(position_); }

private:
    std::span<const uint8_t> bytes_;
    size_t position_ = 0;
};

}  // namespace vornccd
