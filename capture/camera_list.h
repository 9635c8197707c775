// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "capture/camera_handle.h"
#include "capture/usb_nodes.h"

namespace vorncapture {

/// Lists the attached cameras, closed. Each call leaves a little memory behind in the library, so call it seldom.
std::vector<CameraHandle> listCameras();

/// Finds the USB devices that may be the camera at @p listIndex of VornCamera::list(). Cameras of one model have one
/// id, so there may be several.
std::vector<UsbNode> nodesOfCamera(int listIndex);

}  // namespace vorncapture
