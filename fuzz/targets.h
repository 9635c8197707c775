// SPDX-License-Identifier: MIT
#pragma once

#include "input.h"
#include "vornccd.h"

namespace vornfuzz {

/// What a host does with a camera.
enum class Host {
    OPENS,             ///< open() with answers from the input, and nothing else
    USES_ACCESSORIES,  ///< of an open camera whose description comes from the input
    TAKES_IMAGES,      ///< with such a camera
    DOES_ALL,          ///< from open() on
};
void runHost(CAMERA_TYPE family, Host host, Input& input);

// parser_targets.cpp
void packFirmware(Input& input);
void parseOptions(Input& input);
void planExposure(Input& input);
void parseFaultRule(Input& input);
// simulator_targets.cpp
void driveSimulatedCamera(Input& input);
void serveUsbIp(Input& input);

}  // namespace vornfuzz
