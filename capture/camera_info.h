// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include <vornccd.h>

namespace vorncapture {

/// What an opened camera says about itself.
struct CameraInfo {
    std::string name = {};  ///< "Vorn K12"
    CAMERA_TYPE family = STANDARD;
    VornCapabilities caps = {};
    unsigned int serialNumber = 0;
    unsigned int versionMajor = 0;  ///< of the camera's firmware
    unsigned int versionMinor = 0;

    /// How the camera encodes temperatures, as it said when it was opened; 0 when it did not. The library ends the
    /// process when it is to convert a temperature without knowing that, so it is never asked to.
    unsigned int temperatureEncoding = 0;
};

/// @return "STANDARD" and so on.
const char* familyName(CAMERA_TYPE family);

}  // namespace vorncapture
