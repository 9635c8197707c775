// SPDX-License-Identifier: MIT
#include <cstdio>
#include <nlohmann/json.hpp>

#include "device/families/camera_catalogue.h"
#include "subcommand.h"

namespace vornsim {
namespace {

void printJson()
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const ModelInfo& model : models())
        list.push_back({{"name", model.name},
                        {"family", familyName(model.family)},
                        {"width", model.pixelCountX},
                        {"height", model.pixelCountY},
                        {"colour", model.colour},
                        {"productId", model.productId}});
    std::printf("%s\n", list.dump(2).c_str());
}

void printTable()
{
    std::printf("%-24s %-9s %-12s %-7s %s\n", "MODEL", "FAMILY", "PIXELS", "COLOUR", "PRODUCT ID");
    for (const ModelInfo& model : models()) {
        const std::string size = std::to_string(model.pixelCountX) + " x " + std::to_string(model.pixelCountY);
        std::printf("%-24s %-9s %-12s %-7s 0x%04x\n", model.name, familyName(model.family), size.c_str(),
                    model.colour ? "yes" : "no", model.productId);
    }
}

}  // namespace

int listCommand(const Options& options)
{
    options.json ? printJson() : printTable();
    return 0;
}

}  // namespace vornsim
