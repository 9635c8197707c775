// SPDX-License-Identifier: MIT
#pragma once

#include <vornccd.h>

namespace vorncapture {

/// Cameras time short exposures in steps of their own, so the exposure made differs a little from the one asked for.
/// @param seconds the request, within the camera's short exposures
/// @return seconds that a camera of @p family integrates
double shortExposureMade(CAMERA_TYPE family, double seconds);

/// Seconds that pass between the call of the long-exposure readCCD() and the true end of the exposure; delay()
/// subtracts them from the host's wait. Asked at an exposure short enough for delay() to be exact, so that the caller
/// can time exposures of any length with its own clock.
double readoutLeadSeconds(VornCamera& camera);

}  // namespace vorncapture
