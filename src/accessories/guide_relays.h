// SPDX-License-Identifier: MIT
#pragma once

#include "camera_impl.h"

namespace vornccd {

/// Opens all relays, then closes at most one of each pair, by commands. A failure leaves the relays as they are then.
bool switchGuideRelays(VornCameraImpl& camera, unsigned relayMask);

}  // namespace vornccd
