// SPDX-License-Identifier: MIT
#pragma once

#include "transport/layout.h"

namespace vornccd {

// The reply to CMD_GET_GPIO, in the family's byte order
constexpr Field gpioLineCount(ByteOrder order)
{
    return {0, 2, order};
}
constexpr Field gpioLevels(ByteOrder order)
{
    return {2, 2, order};
}

}  // namespace vornccd
