// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "device/camera_catalogue.h"

namespace vornsim {

// Exit statuses of vornsim's own failures, apart from the program's as far as that goes; env(1) and timeout(1) use the
// last three in the same way.
inline constexpr int EXIT_USAGE = 2;
inline constexpr int EXIT_OWN_FAILURE = 125;
inline constexpr int EXIT_NOT_EXECUTABLE = 126;
inline constexpr int EXIT_NOT_FOUND = 127;

/// What was asked for on the command line of `vornsim run`.
struct RunRequest {
    std::vector<std::string> cameras;  ///< names of models, one for each camera to plug in
    CameraOptions options;             ///< of the first camera; the others get the following seeds and serial numbers
    std::string logPath;               ///< empty: no log
    std::vector<std::string> program;  ///< with its arguments
};

/// `vornsim run`: runs a program with simulated cameras in place of the machine's USB devices. @return its exit status,
/// or one of those above after a message on standard error.
int runCommand(const RunRequest& request);

}  // namespace vornsim
