// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include "capture/clock.h"
#include "capture/result.h"

namespace vorncapture {

/// What a picture is for.
enum class FrameKind { LIGHT, DARK, BIAS, FLAT };

/// @return "light" and so on, as people and file names have it.
const char* frameKindName(FrameKind kind);

/// @return "Light Frame" and so on, as FITS headers have it.
const char* imageType(FrameKind kind);

/// What the places of a file name pattern stand for.
struct NameParts {
    unsigned int number = 1;  ///< of the picture in its sequence
    Clock::Utc start;
    FrameKind kind = FrameKind::LIGHT;
    double exposureSeconds = 0.0;
    std::string filter = {};  ///< name or position
    std::optional<double> celsius = std::nullopt;
    std::string camera = {};
    std::string object = {};
};

/// Fills a pattern: `{n}` the number in the sequence, `{n:4}` the same with at least so many digits, `{date}`
/// 20240229-235959 (UTC), `{type}` light, `{seconds}` 2.5, `{filter}` 3, `{temp}` -10.2, `{camera}` Vorn-K12,
/// `{object}` M-31. What is not known becomes "none". Error: BAD_REQUEST for a brace that does not belong to one of
/// these.
Result<std::string> fillPattern(const std::string& pattern, const NameParts& parts);

/// @return the pattern with a number before the name's ending, `a-{n:3}.fits`, when it has no place that differs from
/// picture to picture and there are several.
std::string patternForSequence(const std::string& pattern, unsigned int count);

}  // namespace vorncapture
