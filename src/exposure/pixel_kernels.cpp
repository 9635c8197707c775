// SPDX-License-Identifier: MIT
#include "exposure/pixel_kernels.h"

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace vornccd {

namespace {

/// Part of a window's row that lies inside the frame; the rest is 0.
struct RowPart {
    size_t source;  ///< pixel index in the frame
    size_t length;  ///< pixels
};

// The frame is one run of samples to the rows of a window: a row that starts beyond the frame's right edge goes on in
// the next row, and only what lies after the last sample is cut.
RowPart rowPart(const FrameWindow& window, uint64_t row)
{
    const uint64_t total = window.frameWidth * window.frameHeight;
    const uint64_t start = window.x + window.frameWidth * (window.y + row);
    if (start >= total)
        return {0, 0};
    // The frame is in memory, so an index into it fits its type.
    return {static_cast<size_t>(start), static_cast<size_t>(std::min(window.width, total - start))};
}

/// subtractPrecharge() of as many of @p count pairs as fill whole registers. @return how many these are.
uint64_t subtractInRegisters([[maybe_unused]] const uint16_t* pairs, [[maybe_unused]] uint64_t count,
                             [[maybe_unused]] int32_t base, [[maybe_unused]] uint16_t* destination)
{
    uint64_t done = 0;
#ifdef __SSE2__
    // Compilers find neither instruction that this loop is about: pmaddwd makes -2 * precharge + 2 * signal of a pair,
    // packssdw clamps. Both work on signed numbers, so that samples go in and come out 32768 lower.
    constexpr uint64_t LANES = 8;
    const __m128i half = _mm_set1_epi16(-32768);
    const __m128i weights = _mm_set1_epi32(0x0002'FFFE);
    const __m128i lowered = _mm_set1_epi32(base - 32768);
    const auto four = [=](const uint16_t* from) {
        const __m128i samples = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        return _mm_add_epi32(_mm_madd_epi16(_mm_xor_si128(samples, half), weights), lowered);
    };
    for (; done + LANES <= count; done += LANES) {
        const __m128i values = _mm_packs_epi32(four(pairs + 2 * done), four(pairs + 2 * done + LANES));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + done), _mm_xor_si128(values, half));
    }
#endif
    return done;
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
    // Beyond these bounds every pixel is 0 or 65535; within them no sum overflows.
    constexpr int32_t LARGEST_DIFFERENCE = 2 * 65535;
    const int32_t base = std::clamp(static_cast<int32_t>(offset), -LARGEST_DIFFERENCE, LARGEST_DIFFERENCE + 65535);
    for (uint64_t row = 0; row < window.height; ++row) {
        const RowPart part = rowPart(window, row);
        const uint16_t* pairs = frame.data() + 2 * part.source;
        for (uint64_t i = subtractInRegisters(pairs, part.length, base, destination); i < part.length; ++i) {
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
