// SPDX-License-Identifier: MIT
#include "model_choice.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "capture/text.h"
#include "device/families/camera_catalogue.h"

namespace vornsim {
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

std::string unknownModelMessage(std::string_view name)
{
    const std::string wanted = vorncapture::foldedModel(name);
    const char* nearest = nullptr;
    size_t nearestDistance = LARGEST_TYPING_ERROR + 1;
    std::string all;
    for (const ModelInfo& model : models()) {
        const size_t distance = editDistance(wanted, vorncapture::foldedModel(model.name));
        if (distance < std::min(nearestDistance, wanted.size())) {
            nearest = model.name;
            nearestDistance = distance;
        }
        all += (all.empty() ? "" : ", ") + std::string(model.name);
    }
    std::string message = "there is no camera \"" + std::string(name) + "\". ";
    if (nearest)
        message += "Did you mean \"" + std::string(nearest) + "\"? ";
    return message + "Known cameras: " + all;
}

}  // namespace vornsim
