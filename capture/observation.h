// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace vorncapture {

/// What the observer knows and the camera does not. What is empty or 0 stays out of headers.
struct Observation {
    std::string object = {};     ///< what is looked at, "M 31"
    std::string observer = {};   ///< who looks
    std::string telescope = {};  ///< through what
    double focalLengthMm = 0.0;  ///< of the telescope
    double apertureMm = 0.0;     ///< diameter of its opening
};

}  // namespace vorncapture
