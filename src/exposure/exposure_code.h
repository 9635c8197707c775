// SPDX-License-Identifier: MIT
/// @file exposure_code.h
/// From seconds to the integer that each family is sent, and back to the seconds really made.
#pragma once

#include <cstdint>

namespace vornccd {

/// How a short exposure travels.
struct ExposureCode {
    int32_t code = 0;
    bool microseconds = false;  ///< unit of the code, STANDARD and ADVANCED: microseconds instead of milliseconds
    double seconds = 0.0;       ///< exposure really made
};

/// Units of 1024 / 3e6 s, 1 to 4095.
ExposureCode quickerExposureCode(double seconds);

/// Microseconds below 0.05 s, else milliseconds up to 3000.
ExposureCode standardExposureCode(double seconds);

/// One byte: 1 to 9 are milliseconds, 10 to 255 are steps of 10 ms offset by 9.
ExposureCode classicExposureCode(double seconds);

}  // namespace vornccd
