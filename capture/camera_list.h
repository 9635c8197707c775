// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <vornccd.h>

#include "capture/camera_handle.h"
#include "capture/usb_nodes.h"

namespace vorncapture {

/// Lists the attached cameras, closed, in the order of their models' names, and those of one model in the system's
/// order. Each call leaves a little memory behind in the library, so call it seldom.
std::vector<CameraHandle> listCameras();

/// What is known of a camera that is not opened.
struct ListedCamera {
    std::string name = {};  ///< "Vorn K12"
    CAMERA_TYPE family = STANDARD;
    std::vector<UsbNode> nodes = {};  ///< USB devices that may be it, by port: several where there are several alike
};

/// Describes the attached cameras, in the order of listCameras(). The library reports names and ids only in its trace.
std::vector<ListedCamera> describeCameras();

/// Finds the USB devices that may be the camera at @p listIndex of listCameras(). Cameras of one model have one id, so
/// there may be several.
std::vector<UsbNode> nodesOfCamera(int listIndex);

}  // namespace vorncapture
