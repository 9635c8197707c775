// SPDX-License-Identifier: MIT
#pragma once

#include "transport/layout.h"

#include <cstdint>
#include <span>

namespace vornccd {

/// What the camera reports about its cooler, in raw values.
struct CoolingReply {
    unsigned power = 0;
    unsigned flags = 0;
    int target = 0;
};

/// Where a family's reply has them.
struct CoolingLayout {
    Field power;
    Field flags;
    Field target;
};

constexpr CoolingReply decodeCooling(std::span<const uint8_t> reply, const CoolingLayout& layout)
{
    return {unpack(reply, layout.power), unpack(reply, layout.flags), static_cast<int>(unpack(reply, layout.target))};
}

}  // namespace vornccd
