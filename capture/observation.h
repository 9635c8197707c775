// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "capture/result.h"

namespace vorncapture {

/// What the observer knows and the camera does not. What is empty or 0 stays out of headers.
struct Observation {
    std::string object = {};                                    ///< what is looked at, "M 31"
    std::string observer = {};                                  ///< who looks
    std::string telescope = {};                                 ///< through what
    double focalLengthMm = 0.0;                                 ///< of the telescope
    double apertureMm = 0.0;                                    ///< diameter of its opening
    std::optional<double> rightAscensionHours = std::nullopt;   ///< of the object, 0 to 24
    std::optional<double> declinationDegrees = std::nullopt;    ///< of the object, -90 to 90
    std::optional<double> siteLatitudeDegrees = std::nullopt;   ///< of the telescope, -90 to 90, north positive
    std::optional<double> siteLongitudeDegrees = std::nullopt;  ///< of the telescope, -180 to 180, east positive
    std::vector<std::pair<std::string, std::string>> keywords =
        {};  ///< more for the header, as parseKeyword() has them
};

/// Reads "NAME=VALUE", a keyword of a FITS header and what it shall say. Error: BAD_REQUEST, for a name that FITS does
/// not allow (up to eight of A to Z, 0 to 9, - and _; small letters are taken for capitals) or that says how the file
/// is laid out.
Result<std::pair<std::string, std::string>> parseKeyword(const std::string& text);

}  // namespace vorncapture
