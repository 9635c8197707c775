// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "camera_access.h"
#include "capture/camera_list.h"
#include "commands.h"
#include "console.h"
#include "reports.h"

namespace vornctl {
using nlohmann::ordered_json;

namespace {

/// @return "1-1 or 1-2"; cameras of one model cannot be told apart before they are opened.
std::string portsOf(const vorncapture::ListedCamera& camera)
{
    std::string ports;
    for (const vorncapture::UsbNode& node : camera.nodes)
        ports += (ports.empty() ? "" : " or ") + node.port;
    return ports;
}

/// @return whether two cameras are of one model.
bool anyAlike(const std::vector<vorncapture::ListedCamera>& cameras)
{
    const auto alike = [](const auto& first, const auto& second) { return first.name == second.name; };
    return std::adjacent_find(cameras.begin(), cameras.end(), alike) != cameras.end();
}

}  // namespace

int listCommand(const Options& options)
{
    const auto cameras = vorncapture::describeCameras();
    if (options.json) {
        ordered_json json;
        json["cameras"] = ordered_json::array();
        for (size_t index = 0; index < cameras.size(); ++index) {
            const auto& camera = cameras[index];
            ordered_json ports = ordered_json::array();
            for (const vorncapture::UsbNode& node : camera.nodes)
                ports.push_back(node.port);
            json["cameras"].push_back({{"index", index},
                                       {"name", camera.name},
                                       {"family", vorncapture::familyName(camera.family)},
                                       {"ports", ports}});
        }
        (void)std::printf("%s\n", json.dump().c_str());
        return EXIT_OK;
    }
    for (size_t index = 0; index < cameras.size(); ++index) {
        const std::string ports = portsOf(cameras[index]);
        (void)std::printf("%zu  %s  %s%s\n", index, cameras[index].name.c_str(),
                          vorncapture::familyName(cameras[index].family),
                          ports.empty() ? "" : ("  port " + ports).c_str());
    }
    if (cameras.empty() && !options.quiet)
        note("no camera found; is it switched on and its USB cable plugged in?");
    if (anyAlike(cameras) && !options.quiet)
        note(
            "cameras of one model are told apart by port or by the serial number that vornctl info shows: "
            "-d 1-2, -d serial:7");
    return EXIT_OK;
}

int infoCommand(const Options& options)
{
    return withCamera(options, [&options](Opened& camera) -> vorncapture::Status {
        const vorncapture::Telemetry telemetry = camera.session().readTelemetry();
        camera.progress.clear();
        if (options.json)
            (void)std::printf("%s\n", describeCamera(camera.session().info(), telemetry).dump().c_str());
        else
            printCamera(camera.session().info(), telemetry);
        return vorncapture::Done{};
    });
}

}  // namespace vornctl
