// SPDX-License-Identifier: MIT
/// @file gain_record.h
/// The gain record of ADVANCED cameras: two halves of equal shape, for normal and for preview readout.
#pragma once

#include "transport/layout.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace vornccd {

constexpr size_t GAIN_RECORD_LENGTH = 16;
using GainRecord = std::span<uint8_t, GAIN_RECORD_LENGTH>;

/// One half of the record.
struct GainHalf {
    Field marker;          ///< GAIN_MARKER when the half is valid
    Field notInterpreted;  ///< goes back as it came
    Field gain;
    Field offsetCode;
};
inline constexpr GainHalf GAIN_NORMAL = {be16At(0), be16At(2), be16At(4), be16At(6)};
inline constexpr GainHalf GAIN_PREVIEW = {be16At(8), be16At(10), be16At(12), be16At(14)};
static_assert(covers({GAIN_NORMAL.marker, GAIN_NORMAL.notInterpreted, GAIN_NORMAL.gain, GAIN_NORMAL.offsetCode,
                      GAIN_PREVIEW.marker, GAIN_PREVIEW.notInterpreted, GAIN_PREVIEW.gain, GAIN_PREVIEW.offsetCode},
                     GAIN_RECORD_LENGTH));

constexpr int GAIN_MARKER = 88;
constexpr Field GAIN_PENDING = byteAt(0);  // 1 while the camera has no record
constexpr uint32_t GAIN_IS_PENDING = 1;

// The payload that sets the record
constexpr Field GAIN_PAYLOAD_LEAD = be16At(0);
constexpr int GAIN_PAYLOAD_LEAD_VALUE = 25;
constexpr size_t GAIN_PAYLOAD_RECORD = 2;

constexpr int GAIN_MAX = 63;
constexpr int OFFSET_MAX = 512;

/// Big-endian 16-bit number of the record.
constexpr int getInt16(std::span<const uint8_t> bytes, const Field& field)
{
    return static_cast<int>(unpack(bytes, field));
}
/// Stores the low 16 bits of @p value.
constexpr void setInt16(std::span<uint8_t> bytes, const Field& field, int value)
{
    pack(bytes, field, static_cast<uint32_t>(value));
}

/// The half that belongs to the readout mode.
constexpr const GainHalf& gainHalf(bool preview)
{
    return preview ? GAIN_PREVIEW : GAIN_NORMAL;
}

/// Offset 0 ... 256 travels as 512 ... 256, offset 257 ... 512 as 0 ... 255.
constexpr int offsetToCode(int offset)
{
    return offset <= 256 ? 512 - offset : offset - 257;
}

/// The way back.
constexpr int codeToOffset(int code)
{
    return code > 255 ? 512 - code : code + 257;
}

/// Makes the record look as before the camera had one.
constexpr void markPending(GainRecord record)
{
    pack(record, GAIN_PENDING, GAIN_IS_PENDING);
}

/// True while the camera has no record yet.
constexpr bool gainRecordPending(std::span<const uint8_t> record)
{
    return unpack(record, GAIN_PENDING) == GAIN_IS_PENDING;
}

/// True when both halves are marked valid and both gains are in range.
constexpr bool gainRecordValid(std::span<const uint8_t> record)
{
    for (const GainHalf& half : {GAIN_NORMAL, GAIN_PREVIEW}) {
        if (getInt16(record, half.marker) != GAIN_MARKER || getInt16(record, half.gain) > GAIN_MAX)
            return false;
    }
    return !gainRecordPending(record);
}

}  // namespace vornccd
