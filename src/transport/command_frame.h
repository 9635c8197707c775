// SPDX-License-Identifier: MIT
#pragma once

#include "family.h"
#include "transport/heap_bytes.h"

#include <cstdint>
#include <span>

namespace vornccd {

/// A command as it travels.
struct CommandFrame {
    HeapBytes bytes;  ///< null when there is no memory
    unsigned length = 0;
};

/// @p header, the payload or zeros in its place, and @p padding zeros.
CommandFrame commandFrame(std::span<const uint8_t> header, const CommandExchange& exchange, unsigned padding);

/// Pauses after the commands that the camera needs time to answer: it measures after it was asked.
void awaitMeasurement(unsigned code);

}  // namespace vornccd
