// SPDX-License-Identifier: MIT
#pragma once

#include "transport/layout.h"

#include <cstdint>
#include <span>

namespace vornccd {

/// Filter wheel as the camera reports it, positions in its own numbering.
struct FilterStatus {
    unsigned count = 0;
    bool moving = false;
    unsigned current = 0;
    unsigned target = 0;
};

/// Where a family's reply has them.
struct FilterStatusLayout {
    Field count;
    Field moving;
    Field current;
    Field target;
};

constexpr FilterStatus decodeFilterStatus(std::span<const uint8_t> reply, const FilterStatusLayout& layout)
{
    return {unpack(reply, layout.count), unpack(reply, layout.moving) != 0, unpack(reply, layout.current),
            unpack(reply, layout.target)};
}

}  // namespace vornccd
