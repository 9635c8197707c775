// SPDX-License-Identifier: MIT
/// @file layout.h
/// Fixed layouts as tables: a named field a number, with its place, width and byte order. Packers and decoders use the
/// fields, and a reader of a conversation finds each byte there.
#pragma once

#include "family_facts.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace vornccd {

/// One unsigned number of a layout.
struct Field {
    size_t offset = 0;
    size_t width = 1;  ///< bytes: 1, 2 or 4
    ByteOrder order = ByteOrder::LITTLE;
};

constexpr Field byteAt(size_t offset)
{
    return {offset, 1, ByteOrder::LITTLE};
}
constexpr Field le16At(size_t offset)
{
    return {offset, 2, ByteOrder::LITTLE};
}
constexpr Field be16At(size_t offset)
{
    return {offset, 2, ByteOrder::BIG};
}
constexpr Field le32At(size_t offset)
{
    return {offset, 4, ByteOrder::LITTLE};
}

/// The number in @p field of @p bytes. Bytes past the end read as 0, so that a truncated reply can do no harm.
constexpr uint32_t unpack(std::span<const uint8_t> bytes, const Field& field)
{
    uint32_t value = 0;
    for (size_t i = 0; i < field.width; ++i) {
        const size_t position = field.offset + (field.order == ByteOrder::BIG ? i : field.width - 1 - i);
        value = value << 8 | (position < bytes.size() ? bytes[position] : 0U);
    }
    return value;
}

/// Stores the low bits of @p value in @p field of @p bytes; nothing when the field does not fit.
constexpr void pack(std::span<uint8_t> bytes, const Field& field, uint32_t value)
{
    if (field.offset + field.width > bytes.size())
        return;
    for (size_t i = 0; i < field.width; ++i) {
        const size_t fromLow = field.order == ByteOrder::BIG ? field.width - 1 - i : i;
        bytes[field.offset + fromLow] = static_cast<uint8_t>(value >> 8 * i);
    }
}

/// @return whether the fields, in this order, cover @p length bytes without a gap or an overlap.
constexpr bool covers(std::initializer_list<Field> fields, size_t length)
{
    size_t end = 0;
    for (const Field& field : fields) {
        if (field.offset != end)
            return false;
        end += field.width;
    }
    return end == length;
}

}  // namespace vornccd
