// SPDX-License-Identifier: MIT
#include "options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <vector>

#include "capture/exposure_plan.h"
#include "capture/text.h"

namespace vornctl {
namespace {

using vorncapture::Done;
using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::ExposureRequest;
using vorncapture::parseNumber;
using vorncapture::Status;

/// @return the whole numbers between separators; empty when anything else is there.
std::vector<unsigned int> parseNumbers(std::string_view text, char separator)
{
    std::vector<unsigned int> numbers;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(separator, begin), text.size());
        const auto number = parseNumber<unsigned int>(text.substr(begin, end - begin));
        if (!number)
            return {};
        numbers.push_back(*number);
        begin = end + 1;
    }
    return numbers;
}

Error refuse(const std::string& text)
{
    return {ErrorKind::BAD_REQUEST, text, ""};
}

}  // namespace

Status parseSeconds(const std::string& text, ExposureRequest& request)
{
    const auto seconds = parseNumber<double>(text);
    if (!seconds || !(*seconds >= 0.0) || *seconds > vorncapture::LONGEST_EXPOSURE_SECONDS)
        return refuse("\"" + text + "\" is no exposure time: give seconds, from 0 to 86400 (a day)");
    request.seconds = *seconds;
    return Done{};
}

Status parseBinning(const std::string& text, ExposureRequest& request)
{
    const std::vector<unsigned int> numbers = parseNumbers(text, 'x');
    if (numbers.empty() || numbers.size() > 2)
        return refuse("\"" + text + "\" is no binning: give two whole numbers like 2x2");
    request.binX = numbers.front();
    request.binY = numbers.back();
    if (request.binX == 0 || request.binY == 0)
        return refuse("binning 0 is not possible; 1x1 means unbinned");
    return Done{};
}

Status parseRegion(const std::string& text, ExposureRequest& request)
{
    const std::vector<unsigned int> numbers = parseNumbers(text, ',');
    if (numbers.size() != 4)
        return refuse("\"" + text + "\" is no region: give X,Y,WIDTH,HEIGHT in sensor pixels, like 100,50,640,480");
    if (numbers[2] == 0 || numbers[3] == 0)
        return refuse("the region " + text + " is empty");
    request.region = {numbers[0], numbers[1], numbers[2], numbers[3]};
    return Done{};
}

Status parseBayer(const std::string& text, ExposureRequest& request)
{
    constexpr struct {
        std::string_view name;  // folded
        vorncapture::BayerPhase phase;
    } PATTERNS[] = {{"rggb", {0, 0}}, {"grbg", {1, 0}}, {"gbrg", {0, 1}}, {"bggr", {1, 1}}};
    for (const auto& pattern : PATTERNS) {
        if (vorncapture::foldedName(text) == pattern.name) {
            request.bayer = pattern.phase;
            return Done{};
        }
    }
    return refuse("\"" + text + "\" is no colour filter pattern: give RGGB, GRBG, GBRG or BGGR");
}

Status parseAngle(const std::string& text, double low, double high, const std::string& what,
                  std::optional<double>& angle)
{
    const bool negative = text.starts_with('-');
    const std::string digits = negative || text.starts_with('+') ? text.substr(1) : text;
    const size_t first = std::min(digits.find_first_of(": "), digits.size());
    const size_t second = std::min(digits.find_first_of(": ", std::min(first + 1, digits.size())), digits.size());
    std::optional<double> value;
    if (first == digits.size()) {
        value = parseNumber<double>(digits);
    } else {
        const auto whole = parseNumber<unsigned int>(digits.substr(0, first));
        const auto minutes = parseNumber<unsigned int>(digits.substr(first + 1, second - first - 1));
        const auto seconds =
            second == digits.size() ? std::optional<double>(0.0) : parseNumber<double>(digits.substr(second + 1));
        if (whole && minutes && seconds && *minutes < 60 && *seconds >= 0.0 && *seconds < 60.0)
            value = *whole + *minutes / 60.0 + *seconds / 3600.0;
    }
    if (value && negative)
        value = -*value;
    if (!value || !(*value >= low && *value <= high))
        return refuse("\"" + text + "\" is no " + what + ": give a number from " + std::to_string(std::lround(low)) +
                      " to " + std::to_string(std::lround(high)) + ", like 12.5 or 12:30:00");
    angle = value;
    return Done{};
}

Status parseKind(const std::string& text, vorncapture::FrameKind& kind)
{
    using vorncapture::FrameKind;
    for (const FrameKind known : {FrameKind::LIGHT, FrameKind::DARK, FrameKind::BIAS, FrameKind::FLAT}) {
        if (text == vorncapture::frameKindName(known)) {
            kind = known;
            return Done{};
        }
    }
    return refuse("\"" + text + "\" is no type of picture: give light, dark, bias or flat");
}

Status parseDirection(const std::string& text, vorncapture::GuideRelay& relay)
{
    using vorncapture::GuideRelay;
    constexpr struct {
        std::string_view name;
        std::string_view number;
        GuideRelay relay;
    } DIRECTIONS[] = {{"x+", "1", GuideRelay::X_PLUS},
                      {"x-", "2", GuideRelay::X_MINUS},
                      {"y+", "3", GuideRelay::Y_PLUS},
                      {"y-", "4", GuideRelay::Y_MINUS}};
    for (const auto& direction : DIRECTIONS) {
        if (text == direction.name || text == direction.number) {
            relay = direction.relay;
            return Done{};
        }
    }
    return refuse("\"" + text + "\" is no direction: give x+, x-, y+ or y-, or the relay's number 1 to 4");
}

vorncapture::Result<WantedFilter> wantedFilter(const Options& options)
{
    const auto names = vorncapture::FilterNames::parse(options.filterNames);
    if (!names.ok())
        return names.error();
    if (options.filter.empty())
        return WantedFilter{std::nullopt, names.value()};
    const auto position = names.value().positionOf(options.filter);
    if (!position.ok()) {
        vorncapture::Error error = position.error();
        if (options.filterNames.empty())
            error.text += " (--filter-names or VORNCTL_FILTERS gives names)";
        return error;
    }
    return WantedFilter{position.value(), names.value()};
}

Status parseMask(const std::string& text, std::optional<uint16_t>& mask)
{
    std::string_view digits = text;
    int base = 10;
    if (digits.starts_with("0x"))
        base = 16;
    else if (digits.starts_with("0b"))
        base = 2;
    if (base != 10)
        digits.remove_prefix(2);
    uint16_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (error != std::errc() || end != digits.data() + digits.size())
        return refuse("\"" + text + "\" is no mask of lines: give a number from 0 to 65535, like 5, 0x5 or 0b101");
    mask = value;
    return Done{};
}

}  // namespace vornctl
