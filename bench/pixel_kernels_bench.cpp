// SPDX-License-Identifier: MIT
// Bytes per second of each pixel kernel beside memcpy. A kernel is charged with what it must touch: the bytes it reads
// and the bytes it writes; memcpy of n bytes reads n and writes n.
#include "exposure/pixel_kernels.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

using namespace vornccd;

namespace {

constexpr uint64_t WIDTH = 1392;
constexpr uint64_t HEIGHT = 1040;
constexpr uint64_t PIXELS = WIDTH * HEIGHT;
constexpr FrameWindow WHOLE = {WIDTH, HEIGHT, 0, 0, WIDTH, HEIGHT};

/// Values that a compiler cannot foresee.
template <typename T>
std::vector<T> samples(uint64_t count)
{
    std::vector<T> values(count);
    uint32_t state = 1;
    for (T& value : values)
        value = static_cast<T>((state = state * 1664525U + 1013904223U) >> 16);
    return values;
}

void touched(benchmark::State& state, uint64_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

/// Copies as many bytes as the kernel beside it touches, read and written.
void copyBytes(benchmark::State& state, uint64_t bytes)
{
    const auto from = samples<uint8_t>(bytes / 2);
    std::vector<uint8_t> to(bytes / 2);
    for ([[maybe_unused]] auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    touched(state, bytes);
}

constexpr uint64_t CROP_BYTES = PIXELS * 4;       // a value in, a value out
constexpr uint64_t PRECHARGE_BYTES = PIXELS * 6;  // a pair in, a value out
constexpr uint64_t HIGH_BYTE_BYTES = PIXELS * 3;  // a byte in, a value out
constexpr uint64_t WIDEN_BYTES = PIXELS * 3;      // a byte in, a value out
constexpr uint64_t DROP_BYTES = PIXELS * 4;       // a value in, a value out

void CropRows(benchmark::State& state)
{
    const auto frame = samples<uint16_t>(PIXELS);
    std::vector<uint16_t> image(PIXELS);
    for ([[maybe_unused]] auto _ : state) {
        cropRows(frame, WHOLE, image.data(), WIDTH);
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
    touched(state, CROP_BYTES);
}

void SubtractPrecharge(benchmark::State& state)
{
    const auto frame = samples<uint16_t>(2 * PIXELS);
    std::vector<uint16_t> image(PIXELS);
    for ([[maybe_unused]] auto _ : state) {
        subtractPrecharge(frame, WHOLE, 256, image.data());
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
    touched(state, PRECHARGE_BYTES);
}

void CropToHighBytes(benchmark::State& state)
{
    const auto frame = samples<uint8_t>(PIXELS);
    std::vector<uint16_t> image(PIXELS);
    for ([[maybe_unused]] auto _ : state) {
        cropToHighBytes(frame, WHOLE, image.data());
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
    touched(state, HIGH_BYTE_BYTES);
}

void WidenInPlace(benchmark::State& state)
{
    auto image = samples<uint16_t>(PIXELS);
    for ([[maybe_unused]] auto _ : state) {
        widenInPlace(image.data(), PIXELS);
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
    touched(state, WIDEN_BYTES);
}

void DropLeadingValues(benchmark::State& state)
{
    auto image = samples<uint16_t>(PIXELS + 1);
    for ([[maybe_unused]] auto _ : state) {
        dropLeadingValues(image.data(), PIXELS);
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
    touched(state, DROP_BYTES);
}

BENCHMARK(CropRows);
BENCHMARK_CAPTURE(copyBytes, memcpyBesideCropRows, CROP_BYTES);
BENCHMARK(SubtractPrecharge);
BENCHMARK_CAPTURE(copyBytes, memcpyBesideSubtractPrecharge, PRECHARGE_BYTES);
BENCHMARK(CropToHighBytes);
BENCHMARK_CAPTURE(copyBytes, memcpyBesideCropToHighBytes, HIGH_BYTE_BYTES);
BENCHMARK(WidenInPlace);
BENCHMARK_CAPTURE(copyBytes, memcpyBesideWidenInPlace, WIDEN_BYTES);
BENCHMARK(DropLeadingValues);
BENCHMARK_CAPTURE(copyBytes, memcpyBesideDropLeadingValues, DROP_BYTES);

}  // namespace
