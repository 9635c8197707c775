// SPDX-License-Identifier: MIT
/// @file readout.h
/// Pieces of exposures that several families share. The lock is held.
#pragma once

#include "camera_impl.h"
#include "exposure/exposure_code.h"

namespace vornccd {

/// Clears the sensor and lets it collect light (STANDARD, CLASSIC). @return false at the first command that fails.
bool prepareAndStart(VornCameraImpl& camera);

/// Keeps the host until the exposure is over, whether or not the camera took the command.
void waitForExposure(const ExposureCode& exposure);

}  // namespace vornccd
