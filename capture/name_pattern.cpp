// SPDX-License-Identifier: MIT
#include "capture/name_pattern.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "capture/fits_writer.h"

namespace vorncapture {
namespace {

constexpr unsigned int MOST_DIGITS = 9;

template <typename... Values>
std::string formatted(const char* format, Values... values)
{
    std::array<char, 64> text = {};
    (void)std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

/// @return "20240229-235959".
std::string dateText(Clock::Utc moment)
{
    std::string text = fitsDate(moment).substr(0, 19);
    std::erase_if(text, [](char letter) { return letter == '-' || letter == ':'; });
    std::replace(text.begin(), text.end(), 'T', '-');
    return text;
}

/// @return a text of the user's or the camera's as it may stand in the name of a file.
std::string forName(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char letter) { return letter == ' ' || letter == '/'; }, '-');
    return text.empty() ? "none" : text;
}

/// @return what stands for one place; nothing for a name that is none.
std::optional<std::string> placeText(const std::string& name, const NameParts& parts)
{
    if (name == "n")
        return std::to_string(parts.number);
    if (name.size() == 3 && name.starts_with("n:") && name[2] >= '1' && name[2] <= '9')
        return formatted("%0*u", name[2] - '0', parts.number);
    if (name == "date")
        return dateText(parts.start);
    if (name == "type")
        return frameKindName(parts.kind);
    if (name == "seconds")
        return formatted("%g", parts.exposureSeconds);
    if (name == "filter")
        return forName(parts.filter);
    if (name == "temp")
        return parts.celsius ? formatted("%.1f", *parts.celsius) : "none";
    if (name == "camera")
        return forName(parts.camera);
    if (name == "object")
        return forName(parts.object);
    return std::nullopt;
}

}  // namespace

const char* frameKindName(FrameKind kind)
{
    switch (kind) {
        case FrameKind::LIGHT:
            return "light";
        case FrameKind::DARK:
            return "dark";
        case FrameKind::BIAS:
            return "bias";
        case FrameKind::FLAT:
            return "flat";
    }
    return "unknown";
}

const char* imageType(FrameKind kind)
{
    switch (kind) {
        case FrameKind::LIGHT:
            return "Light Frame";
        case FrameKind::DARK:
            return "Dark Frame";
        case FrameKind::BIAS:
            return "Bias Frame";
        case FrameKind::FLAT:
            return "Flat Frame";
    }
    return "";
}

Result<std::string> fillPattern(const std::string& pattern, const NameParts& parts)
{
    std::string filled;
    for (size_t at = 0; at < pattern.size(); ++at) {
        if (pattern[at] != '{' && pattern[at] != '}') {
            filled += pattern[at];
            continue;
        }
        const size_t end = pattern[at] == '{' ? pattern.find('}', at) : std::string::npos;
        const std::string name = end == std::string::npos ? "" : pattern.substr(at + 1, end - at - 1);
        const auto text = placeText(name, parts);
        if (!text)
            return Error{ErrorKind::BAD_REQUEST,
                         "\"" + pattern + "\" is no pattern: a name may have {n}, {n:3}, {date}, {type}, {seconds}, " +
                             "{filter}, {temp}, {camera} and {object}",
                         ""};
        filled += *text;
        at = end;
    }
    return filled;
}

std::string patternForSequence(const std::string& pattern, unsigned int count)
{
    if (count < 2 || pattern.empty() || pattern.find("{n") != std::string::npos)
        return pattern;
    const size_t folder = pattern.find_last_of('/');
    const size_t dot = pattern.find_last_of('.');
    const bool ending = dot != std::string::npos && (folder == std::string::npos || dot > folder + 1) && dot > 0;
    const size_t place = ending ? dot : pattern.size();
    const auto digits = static_cast<unsigned int>(std::to_string(count).size());
    const std::string number = "-{n:" + std::to_string(std::clamp(digits, 3U, MOST_DIGITS)) + "}";
    return pattern.substr(0, place) + number + pattern.substr(place);
}

}  // namespace vorncapture
