// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace vornsim {

/// How cameras that send 8-bit samples show the ramp pattern, so that neither row nor column is lost.
/// @return both bytes of @p value folded over each other: high byte XOR low byte, 0 to 255.
constexpr uint16_t foldedRamp(uint16_t value)
{
    return static_cast<uint16_t>((value >> 8) ^ (value & 0xFF));
}

}  // namespace vornsim
