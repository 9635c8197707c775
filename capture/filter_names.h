// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "capture/result.h"

namespace vorncapture {

/// What the filters in a wheel are called. The camera knows positions only.
class FilterNames {
public:
    /// Reads "L,R,G,B,Ha": the name of the filter at position 1, 2 and so on; blanks around names do not count, and a
    /// place may be left empty. An empty text names none. Error: BAD_REQUEST when two positions have one name, or a
    /// name is a number, which stands for a position.
    static Result<FilterNames> parse(const std::string& text);

    /// @return the position, from 1, that @p text means: a number, or a name; neither capitals nor blanks matter.
    /// Error: BAD_REQUEST with the names that there are.
    Result<unsigned int> positionOf(const std::string& text) const;

    /// @return the name of the filter at @p position, or the number where it has none.
    std::string nameOf(unsigned int position) const;

private:
    std::vector<std::string> names_;
};

}  // namespace vorncapture
