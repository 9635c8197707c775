// SPDX-License-Identifier: MIT
#pragma once

#include "camera_impl.h"

namespace vornccd {

/// A ping whose answer is the number sent, or the one after it.
struct CountingPing {
    unsigned code;
    unsigned tries;
    long pauseUs;
    unsigned increment;  ///< of the answer
};

/// Sends 100, 101, ... until the camera answers with the right number. @return whether it did.
bool pingCounting(VornCameraImpl& camera, const CountingPing& ping);

}  // namespace vornccd
