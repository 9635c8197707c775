// SPDX-License-Identifier: MIT
#include "capture/filter_names.h"

#include <algorithm>
#include <string_view>

#include "capture/text.h"

namespace vorncapture {
namespace {

constexpr unsigned int LAST_POSITION = 255;

std::string trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(' ');
    const size_t end = text.find_last_not_of(' ');
    return begin == std::string_view::npos ? "" : std::string(text.substr(begin, end - begin + 1));
}

Error refuse(const std::string& text)
{
    return {ErrorKind::BAD_REQUEST, text, ""};
}

}  // namespace

Result<FilterNames> FilterNames::parse(const std::string& text)
{
    FilterNames filters;
    for (size_t begin = 0; !text.empty() && begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        const std::string name = trimmed(std::string_view(text).substr(begin, end - begin));
        if (parseNumber<unsigned int>(name))
            return refuse("a filter cannot be called \"" + name + "\": numbers stand for positions");
        if (!name.empty() && filters.positionOf(name).ok())
            return refuse("two filters are called \"" + name + "\"");
        filters.names_.push_back(name);
        begin = end + 1;
    }
    if (filters.names_.size() > LAST_POSITION)
        return refuse("no wheel has more than 255 filters");
    return filters;
}

Result<unsigned int> FilterNames::positionOf(const std::string& text) const
{
    const auto number = parseNumber<unsigned int>(text);
    if (number && *number >= 1 && *number <= LAST_POSITION)
        return *number;
    std::string known;
    for (size_t i = 0; i < names_.size(); ++i) {
        if (!names_[i].empty() && foldedName(names_[i]) == foldedName(text))
            return static_cast<unsigned int>(i + 1);
        known += names_[i].empty() ? "" : ", " + names_[i];
    }
    return refuse("\"" + text + "\" is no filter: give its position, from 1" +
                  (known.empty() ? "; no filter has a name yet" : known));
}

std::string FilterNames::nameOf(unsigned int position) const
{
    if (position >= 1 && position <= names_.size() && !names_[position - 1].empty())
        return names_[position - 1];
    return std::to_string(position);
}

}  // namespace vorncapture
