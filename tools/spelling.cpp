// SPDX-License-Identifier: MIT
#include "spelling.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace spelling {
namespace {

constexpr size_t LARGEST_TYPING_ERROR = 2;  // letters wrong, missing or too many

/// How many letters have to be changed, added or left out to make one word of the other.
size_t editDistance(const std::string& first, const std::string& second)
{
    std::vector<size_t> row(second.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 1; i <= first.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= second.size(); ++j) {
            const size_t changed = diagonal + (first[i - 1] == second[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string nearest(const std::string& word, const std::vector<std::string>& known)
{
    std::string found;
    size_t least = std::min(LARGEST_TYPING_ERROR + 1, word.size());
    for (const std::string& candidate : known) {
        const size_t distance = editDistance(word, candidate);
        if (distance < least) {
            found = candidate;
            least = distance;
        }
    }
    return found;
}

}  // namespace spelling
