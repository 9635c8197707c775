// SPDX-License-Identifier: MIT
#include "exposure/pixel_kernels.h"

#include <algorithm>
#include <cstring>

namespace vornccd {

namespace {

/// Part of a window's row that lies inside the frame; the rest is 0.
struct RowPart {
    uint64_t source;  ///< pixel index in the frame
    uint64_t length;  ///< pixels
};

// The frame is one run of samples to the rows of a window: a row that starts beyond the frame's right edge goes on in
// the next row, and only what lies behind the last sample is cut.
RowPart rowPart(const FrameWindow& window, uint64_t row)
{
    const uint64_t total = window.frameWidth * window.frameHeight;
    const uint64_t start = window.x + window.frameWidth * (window.y + row);
    if (start >= total)
        return {0, 0};
    return {start, std::min(window.width, total - start)};
}

}  // namespace

void cropRows(std::span<const uint16_t> frame, const FrameWindow& window, uint16_t* destination, uint64_t stride)
{
    for (uint64_t row = 0; row < window.height; ++row) {
        const RowPart part = rowPart(window, row);
        uint16_t* target = destination + row * stride;
        if (part.length != 0)
            std::memcpy(target, &frame[part.source], part.length * sizeof *target);
        std::fill(target + part.length, target + window.width, uint16_t{0});
    }
}

void subtractPrecharge(std::span<const uint16_t> frame, const FrameWindow& window, uint32_t offset,
                       uint16_t* destination)
{
    const auto base = static_cast<int32_t>(offset);
    for (uint64_t row = 0; row < window.height; ++row) {
        const RowPart part = rowPart(window, row);
        const uint16_t* pairs = frame.data() + 2 * part.source;
        for (uint64_t i = 0; i < part.length; ++i) {
            const int32_t value = base + 2 * (pairs[2 * i + 1] - pairs[2 * i]);
            destination[i] = static_cast<uint16_t>(std::clamp(value, 0, 65535));
        }
        std::fill(destination + part.length, destination + window.width, uint16_t{0});
        destination += window.width;
    }
}

void cropToHighBytes(std::span<const uint8_t> frame, const FrameWindow& window, uint16_t* destination)
{
    for (uint64_t row = 0; row < window.height; ++row) {
        const RowPart part = rowPart(window, row);
        const uint8_t* source = frame.data() + part.source;
        for (uint64_t i = 0; i < part.length; ++i)
            destination[i] = static_cast<uint16_t>(source[i] << 8);
        std::fill(destination + part.length, destination + window.width, uint16_t{0});
        destination += window.width;
    }
}

void widenInPlace(uint16_t* buffer, size_t count)
{
    // From the back in blocks, each copied out first, so that the inner loop has no overlap and vectorises.
    constexpr size_t BLOCK = 4096;
    const auto* bytes = reinterpret_cast<const uint8_t*>(buffer);
    uint8_t block[BLOCK];
    size_t end = count;
    while (end > 0) {
        const size_t length = std::min(end, BLOCK);
        const size_t start = end - length;
        std::memcpy(block, bytes + start, length);
        for (size_t i = 0; i < length; ++i)
            buffer[start + i] = block[i];
        end = start;
    }
}

void dropLeadingValues(uint16_t* buffer, size_t count)
{
    if (count != 0)
        std::memmove(buffer, buffer + 2, (count - 1) * sizeof *buffer);
}

}  // namespace vornccd
