// SPDX-License-Identifier: MIT
#pragma once

namespace vornccd {

/// Filter wheel as the camera reports it, positions in its own numbering.
struct FilterStatus {
    unsigned count = 0;
    bool moving = false;
    unsigned current = 0;
    unsigned target = 0;
};

}  // namespace vornccd
