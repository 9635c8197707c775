// SPDX-License-Identifier: MIT
#include "options.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <vector>

namespace vornctl {
namespace {

using vorncapture::Done;
using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::ExposureRequest;
using vorncapture::Status;

template <typename Number>
std::optional<Number> parseNumber(std::string_view text)
{
    Number number = {};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

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
    if (!seconds || !std::isfinite(*seconds) || *seconds < 0.0)
        return refuse("\"" + text + "\" is no exposure time: give seconds, 0 or more");
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

}  // namespace vornctl
