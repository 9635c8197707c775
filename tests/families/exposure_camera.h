// SPDX-License-Identifier: MIT
#pragma once

#include "conversation_parts.h"

/// Gives @p camera a sensor of @p width x @p height pixels that bins 4 x 4.
inline void setSensor(VornCameraImpl& camera, unsigned width, unsigned height)
{
    camera.pixelCountX = width;
    camera.pixelCountY = height;
    camera.maxBinX = camera.maxBinY = 4;
}

/// An open camera with a sensor of 100 x 60 pixels.
struct ExposureCamera : vorntest::OpenedCamera {
    explicit ExposureCamera(CAMERA_TYPE type) : OpenedCamera(type) { setSensor(camera, 100, 60); }
};

/// forEachFailure() for one step of an exposure on such a camera, which @p prepare may change: result, text, the two
/// flags, and who holds the lock. @p step is START, READ or IMAGE.
enum ExposureStep { START, READ, IMAGE };
void expectEachFailureOfStep(ExposureStep step, CAMERA_TYPE type, const Parts& parts,
                             const std::function<bool(VornCameraImpl&)>& act);
