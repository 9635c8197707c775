// SPDX-License-Identifier: MIT
/// @file gain_record.h
/// The gain record of ADVANCED cameras, 16 bytes, big-endian:
/// 0 marker of the normal half (2), 2 not interpreted (2), 4 gain (2), 6 offset code (2),
/// 8 marker of the preview half (2), 10 not interpreted (2), 12 gain (2), 14 offset code (2).
/// Byte 0 is 1 while the camera is not ready; a marker of 88 says that its half is valid.
#pragma once

#include "transport/wire.h"

#include <cstddef>
#include <cstdint>

namespace vornccd {

constexpr size_t GAIN_RECORD_LENGTH = 16;
constexpr int GAIN_NORMAL = 4;
constexpr int GAIN_PREVIEW = 12;
constexpr int OFFSET_AFTER_GAIN = 2;  // the offset code follows its gain
constexpr int GAIN_MARKER = 88;

constexpr int GAIN_MAX = 63;
constexpr int OFFSET_MAX = 512;

/// Offset of the gain that belongs to the readout mode.
constexpr int gainPosition(bool preview)
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

/// True while the camera has no record yet.
constexpr bool gainRecordPending(const uint8_t* record)
{
    return record[0] == 1;
}

/// True when both halves are marked valid and both gains are in range.
constexpr bool gainRecordValid(const uint8_t* record)
{
    return !gainRecordPending(record) && getInt16(record, 0) == GAIN_MARKER && getInt16(record, 8) == GAIN_MARKER &&
           getInt16(record, GAIN_NORMAL) <= GAIN_MAX && getInt16(record, GAIN_PREVIEW) <= GAIN_MAX;
}

}  // namespace vornccd
