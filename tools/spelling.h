// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// Guesses what was meant by a misspelt word, for messages.
namespace spelling {

/// @return the nearest of @p known to @p word, at most two letters wrong, missing or too many and fewer than it has in
/// all; empty where none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& known);

}  // namespace spelling
