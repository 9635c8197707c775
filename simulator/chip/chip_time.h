// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>

namespace vornsim {

/// The emulated chip counts time in clocks of its 48 MHz oscillator, from its power-up.
using Ticks = int64_t;
inline constexpr Ticks TICKS_PER_US = 48;
inline constexpr Ticks NO_TICK = std::numeric_limits<Ticks>::max();

/// Receives what an emulated part has seen the program do that real hardware would not forgive.
class FaultSink {
public:
    virtual ~FaultSink() = default;
    virtual void fault(const char* text) = 0;
};

}  // namespace vornsim
