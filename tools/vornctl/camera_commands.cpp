// SPDX-License-Identifier: MIT
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "camera_access.h"
#include "capture/camera_list.h"
#include "commands.h"
#include "console.h"
#include "reports.h"

namespace vornctl {
using nlohmann::ordered_json;

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
    return withCamera(options, [&options](Opened& camera) -> vorncapture::Status {
        const ordered_json json = describeCamera(camera.session().info(), camera.session().readTelemetry());
        camera.progress.clear();
        if (options.json)
            (void)std::printf("%s\n", json.dump().c_str());
        else
            printPlain(json, "");
        return vorncapture::Done{};
    });
}

}  // namespace vornctl
