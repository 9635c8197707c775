// SPDX-License-Identifier: MIT
#include "model_choice.h"

#include <string>
#include <vector>

#include "../spelling.h"
#include "capture/text.h"
#include "device/families/camera_catalogue.h"

namespace vornsim {

std::string unknownModelMessage(std::string_view name)
{
    std::vector<std::string> folded;
    std::string all;
    for (const ModelInfo& model : models()) {
        folded.push_back(vorncapture::foldedModel(model.name));
        all += (all.empty() ? "" : ", ") + std::string(model.name);
    }
    std::string message = "there is no camera \"" + std::string(name) + "\". ";
    const std::string near = spelling::nearest(vorncapture::foldedModel(name), folded);
    for (const ModelInfo& model : models()) {
        if (!near.empty() && vorncapture::foldedModel(model.name) == near)
            message += "Did you mean \"" + std::string(model.name) + "\"? ";
    }
    return message + "Known cameras: " + all;
}

}  // namespace vornsim
