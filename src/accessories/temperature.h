// SPDX-License-Identifier: MIT
#pragma once

#include "camera_impl.h"

namespace vornccd {

/// Converts and traces a sensor's raw value, unless @p celsius is null.
/// deliberate: without a sensor type this ends the process, whatever made the camera report none.
void storeTemperature(VornCameraImpl& camera, uint32_t raw, float* celsius);

}  // namespace vornccd
