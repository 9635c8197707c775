// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace vornccd {

// Waveform tables of the bridge's parallel interface, sent byte for byte. Bit 7 of the first byte gives the length.
// ParInitQFastData, the fifth, is exported.
constexpr size_t WAVEFORM_LENGTH = 152;
constexpr size_t WAVEFORM_LONG_LENGTH = 172;

// Modes of parInit()
constexpr unsigned WAVEFORM_MODE_1 = 1;
constexpr unsigned WAVEFORM_MODE_9 = 9;

extern const uint8_t GpifMode1[WAVEFORM_LONG_LENGTH];
extern const uint8_t GpifMode9[WAVEFORM_LENGTH];         // STANDARD
extern const uint8_t ParInitData[WAVEFORM_LENGTH];       // CLASSIC, after mode 1
extern const uint8_t ParInitQSlowData[WAVEFORM_LENGTH];  // QUICKER and ADVANCED, after mode 1

/// @return bytes in a table, by bit 7 of its first byte.
constexpr size_t waveformLength(uint8_t firstByte)
{
    return (firstByte & 0x80) != 0 ? WAVEFORM_LONG_LENGTH : WAVEFORM_LENGTH;
}

}  // namespace vornccd
