// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "bus_camera.h"
#include "device/usb/bytes.h"

namespace vornsim {

/// The parallel bus of CLASSIC, QUICKER and ADVANCED cameras: the bridge waits for the camera's ready line, pulls the
/// strobe low for a clock and takes the word afterwards. Cameras differ in how long a word needs to settle.
///
/// @param table the 152 bytes that the host loaded into the bridge's waveform generator
/// @return clocks from the strobe until the word is taken (0: while the strobe is low), or -1 when the table does not
/// speak this bus at all.
constexpr int strobeSettlingClocks(std::span<const uint8_t> table)
{
    constexpr size_t TABLE_LENGTH = 152;
    constexpr size_t CLOCKING = 1;      // 0xE2: the generator's own 48 MHz clock, synchronous
    constexpr size_t READY_INPUTS = 3;  // 0x20: ready inputs synchronised, end of count on input 5
    constexpr size_t SELECTION = 7;     // bits 1:0: which of the four waves reads words
    constexpr size_t WAVES = 16;        // 32 bytes each: lengths, opcodes, outputs, logic of eight states
    constexpr size_t WAVE_LENGTH = 32;
    constexpr size_t OPCODES = 8;
    constexpr size_t OUTPUTS = 16;
    constexpr size_t IDLE_STATE = 7;
    constexpr uint8_t TAKE_WORD = 0x02;   // opcode bit
    constexpr uint8_t STROBE = 0x02;      // output bit, low when active
    constexpr uint8_t NOT_STROBE = 0x01;  // output bit that stays high while words are read

    if (table.size() != TABLE_LENGTH || table[CLOCKING] != 0xE2 || table[READY_INPUTS] != 0x20)
        return -1;
    const auto wave = table.subspan(WAVES + WAVE_LENGTH * (table[SELECTION] & 3U), WAVE_LENGTH);
    int strobe = -1;
    for (size_t state = 0; state < IDLE_STATE; ++state) {
        if (strobe < 0 && (wave[OUTPUTS + state] & STROBE) == 0 && (wave[OUTPUTS + state] & NOT_STROBE) != 0)
            strobe = static_cast<int>(state);
        if ((wave[OPCODES + state] & TAKE_WORD) != 0)
            return strobe < 0 ? -1 : static_cast<int>(state) - strobe;
    }
    return -1;
}

/// @return whether words pass when the bridge's waveform generator is loaded with @p table.
constexpr bool understands(const ParallelBus& bus, std::span<const uint8_t> table)
{
    constexpr uint32_t HANDSHAKE_TABLE_CRC = 0x7E78C69A;  // of the one table that is known to make this handshake
    switch (bus.kind) {
        case ParallelBus::Kind::NONE:
            return false;
        case ParallelBus::Kind::HANDSHAKE:
            return crc32(table) == HANDSHAKE_TABLE_CRC;
        case ParallelBus::Kind::STROBED:
            return strobeSettlingClocks(table) >= bus.settlingClocks;
    }
    return false;
}

}  // namespace vornsim
