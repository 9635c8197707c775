// SPDX-License-Identifier: MIT
/// @file text.h
/// Reading what people write. Header only, so that programs without the capture library may use it too.
#pragma once

#include <cctype>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace vorncapture {

/// @return the number that the whole of @p text is, or nothing: also for a text with blanks, and for a number beyond
/// the range of the type.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text)
{
    Number number = {};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// @return a name without what people write differently: in small letters, without blanks.
inline std::string foldedName(std::string_view name)
{
    std::string folded;
    for (const char letter : name) {
        if (std::isspace(static_cast<unsigned char>(letter)) == 0)
            folded += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    return folded;
}

/// @return the folded name of a camera model without the maker's: "k12" of "Vorn K12".
inline std::string foldedModel(std::string_view name)
{
    constexpr std::string_view MAKER = "vorn";
    const std::string folded = foldedName(name);
    return folded.starts_with(MAKER) ? folded.substr(MAKER.size()) : folded;
}

}  // namespace vorncapture
