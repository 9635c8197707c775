// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "capture/camera_list.h"
#include "commands.h"
#include "console.h"
#include "reports.h"

namespace vornctl {
namespace {

using nlohmann::ordered_json;

/// Prints nested values one a line, "sensor width: 1392", with units spelt as in the keys.
void printPlain(const ordered_json& json, const std::string& prefix)
{
    for (const auto& [key, value] : json.items()) {
        std::string label = prefix + key;
        std::replace(label.begin(), label.end(), '_', ' ');
        if (value.is_object())
            printPlain(value, label + " ");
        else if (value.is_string())
            (void)std::printf("%s: %s\n", label.c_str(), value.get<std::string>().c_str());
        else if (value.is_boolean())
            (void)std::printf("%s: %s\n", label.c_str(), value.get<bool>() ? "yes" : "no");
        else if (!value.is_null())
            (void)std::printf("%s: %s\n", label.c_str(), value.dump().c_str());
    }
}

}  // namespace

int listCommand(const Options& options)
{
    const auto cameras = vorncapture::listCameras();
    if (options.json) {
        ordered_json json;
        json["cameras"] = ordered_json::array();
        for (size_t index = 0; index < cameras.size(); ++index)
            json["cameras"].push_back({{"index", index}, {"name", cameras[index]->getName()}});
        (void)std::printf("%s\n", json.dump().c_str());
        return EXIT_OK;
    }
    for (size_t index = 0; index < cameras.size(); ++index)
        (void)std::printf("%zu  %s\n", index, cameras[index]->getName());
    if (cameras.empty() && !options.quiet)
        note("no camera found; is it switched on and its USB cable plugged in?");
    return EXIT_OK;
}

int infoCommand(const Options& options)
{
    const auto selector = vorncapture::CameraSelector::parse(options.device);
    if (!selector.ok())
        return report(selector.error());
    vorncapture::CancelToken& cancel = cancelOnSignals();
    auto opened = vorncapture::openSelected(vorncapture::listCameras(), selector.value(), {.cancel = &cancel});
    if (!opened.ok())
        return leave(opened.error());
    vorncapture::Session& session = *opened.value();
    const ordered_json json = describeCamera(session.info(), session.readTelemetry());
    if (options.json)
        (void)std::printf("%s\n", json.dump().c_str());
    else
        printPlain(json, "");
    return EXIT_OK;
}

}  // namespace vornctl
