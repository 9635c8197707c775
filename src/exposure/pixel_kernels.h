// SPDX-License-Identifier: MIT
/// @file pixel_kernels.h
/// What happens to pixels between the wire and the caller's buffer: pure functions on values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vornccd {

/// A region of a binned frame, in binned pixels. The region may lie partly outside the frame: such pixels are 0.
struct FrameWindow {
    uint64_t frameWidth = 0;
    uint64_t frameHeight = 0;
    uint64_t x = 0;
    uint64_t y = 0;
    uint64_t width = 0;
    uint64_t height = 0;
};

/// Copies the window's rows; row r goes to @p destination + r * @p stride.
/// @param frame frameWidth * frameHeight samples
/// @param destination (height - 1) * stride + width values
void cropRows(std::span<const uint16_t> frame, const FrameWindow& window, uint16_t* destination, uint64_t stride);

/// Each pixel is a pair {precharge, signal}: stores offset + 2 * (signal - precharge), clamped to 0 ... 65535, row
/// after row without gaps.
/// @param frame 2 * frameWidth * frameHeight samples
void subtractPrecharge(std::span<const uint16_t> frame, const FrameWindow& window, uint32_t offset,
                       uint16_t* destination);

/// Moves each byte of the window to the high byte of a value, row after row without gaps.
/// @param frame frameWidth * frameHeight bytes
void cropToHighBytes(std::span<const uint8_t> frame, const FrameWindow& window, uint16_t* destination);

/// Widens @p count bytes at the start of @p buffer to @p count values, in place; the byte stays the low byte.
void widenInPlace(uint16_t* buffer, size_t count);

/// Drops the first two values: moves @p count - 1 values from index 2 to index 0, the last of them from index
/// @p count, one beyond the requested count. Nothing for a count of 0.
void dropLeadingValues(uint16_t* buffer, size_t count);

}  // namespace vornccd
