// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <string_view>

#include "bus.h"
#include "input.h"
#include "vornccd.h"

namespace vornfuzz {

/// One way into the code. Returns normally for every input; a finding ends the process.
struct Target {
    const char* name;
    void (*run)(Input& input);
};

/// @return all targets, one line each in targets.cpp.
std::span<const Target> targets();

/// @return the target of this name, or null.
const Target* findTarget(std::string_view name);

/// What a night begins with.
enum class Start {
    OPEN,    ///< open() with answers from the input
    OPENED,  ///< an open camera whose description comes from the input
};

/// Which operations the host calls, one after the other, until the input is used up.
enum class Operations { NONE, ACCESSORIES, IMAGES, ALL };

/// A host at work on one camera.
void runHost(CAMERA_TYPE family, Start start, Operations operations, Input& input);

// parser_targets.cpp
void packFirmware(Input& input);
void parseOptions(Input& input);
void planExposure(Input& input);
void parseFaultRule(Input& input);
// device_target.cpp
void driveSimulatedCamera(Input& input);
// usbip_target.cpp
void serveUsbIp(Input& input);

}  // namespace vornfuzz
