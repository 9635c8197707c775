// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

#include "device/usb/usb_device.h"

namespace vornsim {

/// The time on the wall, as far as a camera is concerned.
class RealClock : public Clock {
public:
    int64_t nowUs() const override
    {
        const auto since = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::microseconds>(since).count();
    }
};

}  // namespace vornsim
