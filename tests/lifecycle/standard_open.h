// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "../families/conversation_parts.h"

/// What a STANDARD camera says while it is opened; FF and EE stand for bytes without a meaning.
struct StandardOpen {
    std::string productId = "34 DF";
    std::string colour = "FF FF FF FF FF";
    std::string flags = "40 01";        ///< no shutter, no guide port, no wheel
    std::string pixelCountX = "A0 0F";  ///< 4000
    std::string pixelCountY = "B8 0B";  ///< 3000
    std::string temperatureDetails = "01 EE";
    std::string temperature = "02 EE 00 08 EE EE";
    std::string coolerDetails = "10 EE C8 EE 0A EE";
    std::string serialLow = "34 12";
    std::string serialHigh = "01 00";
    bool hasTemperature = true;  ///< the sensor is read
    int wheelPolls = 0;          ///< polls that find the wheel turning, before one that does not; 0 without a wheel

    /// The whole conversation of a successful open: version 2.5, "Vorn K12" by "Vorn", pixels of 7.70 x 6.75 um,
    /// binning 3 x 4, well capacity 50000.
    Parts parts() const;
};
