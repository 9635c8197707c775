// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "capture/camera_list.h"
#include "capture/fits_writer.h"
#include "capture/output_file.h"
#include "capture/png_writer.h"
#include "commands.h"
#include "console.h"
#include "reports.h"

namespace vornctl {
namespace {

using nlohmann::ordered_json;
using vorncapture::Done;
using vorncapture::Error;
using vorncapture::Frame;
using vorncapture::Status;

const char* const CREATOR = "vornctl " VORNCTL_VERSION;

/// @return a name for a picture without one, from the time of day in UTC: "vorn-20240229-235959.fits", with a number
/// behind when that exists.
std::string defaultPath()
{
    std::string stamp = vorncapture::fitsDate(std::chrono::system_clock::now()).substr(0, 19);
    std::erase_if(stamp, [](char letter) { return letter == '-' || letter == ':'; });
    stamp[stamp.find('T')] = '-';
    const std::string base = "vorn-" + stamp;
    std::string path = base + ".fits";
    struct stat status = {};
    for (int count = 2; stat(path.c_str(), &status) == 0; ++count)
        path = base + "-" + std::to_string(count) + ".fits";
    return path;
}

/// Finds out before the exposure what would spoil it afterwards.
Status checkOutputs(const Options& options)
{
    for (const std::string& path : {options.fitsPath, options.pngPath}) {
        if (path.empty())
            continue;
        const Status status = vorncapture::OutputFile(path, options.force).check();
        if (status.ok())
            continue;
        Error error = status.error();
        if (!error.advice.empty())
            error.advice = "Choose another name, or replace it with --force.";
        return error;
    }
    return Done{};
}

Status writeFiles(const Frame& frame, const Options& options)
{
    if (!options.fitsPath.empty()) {
        Status status = vorncapture::writeFits(frame, options.fitsPath, CREATOR, options.force);
        if (!status.ok())
            return status;
    }
    if (!options.pngPath.empty())
        return vorncapture::writePng(frame, options.pngPath, options.force);
    return Done{};
}

void tellOutcome(const Frame& frame, const Options& options)
{
    ordered_json json = describeFrame(frame);
    if (options.json) {
        json["fits"] = options.fitsPath.empty() ? ordered_json() : ordered_json(options.fitsPath);
        json["png"] = options.pngPath.empty() ? ordered_json() : ordered_json(options.pngPath);
        (void)std::printf("%s\n", json.dump().c_str());
        return;
    }
    for (const std::string& path : {options.fitsPath, options.pngPath}) {
        if (!path.empty())
            (void)std::printf("%s\n", path.c_str());
    }
    if (options.quiet)
        return;
    (void)std::fprintf(stderr, "%s: %u x %u pixels, %.6g s", frame.camera.name.c_str(), frame.width, frame.height,
                       frame.exposureSeconds);
    if (frame.telemetry.ccdCelsius())
        (void)std::fprintf(stderr, ", %.1f degC", *frame.telemetry.ccdCelsius());
    (void)std::fprintf(stderr, ", values %s to %s, mean %.1f\n", json["values"]["min"].dump().c_str(),
                       json["values"]["max"].dump().c_str(), json["values"]["mean"].get<double>());
}

}  // namespace

int exposeCommand(Options options)
{
    const auto selector = vorncapture::CameraSelector::parse(options.device);
    if (!selector.ok())
        return report(selector.error());
    if (options.fitsPath.empty() && options.pngPath.empty())
        options.fitsPath = defaultPath();
    const Status possible = checkOutputs(options);
    if (!possible.ok())
        return report(possible.error());

    vorncapture::CancelToken& cancel = cancelOnSignals();
    ProgressLine progress(!options.quiet && !options.json);
    progress.say("opening the camera");
    auto opened = vorncapture::openSelected(vorncapture::listCameras(), selector.value(), {.cancel = &cancel});
    if (!opened.ok()) {
        progress.clear();
        return leave(opened.error());
    }
    const auto frame = opened.value()->expose(
        options.request, &cancel,
        [&progress](auto phase, double elapsed, double total) { progress.show(phase, elapsed, total); });
    progress.clear();
    if (!frame.ok()) {
        if (!opened.value()->stuck())
            opened.value().reset();
        return leave(frame.error());
    }
    const Status written = writeFiles(frame.value(), options);
    if (!written.ok())
        return report(written.error());
    if (!options.quiet) {
        for (const std::string& text : frame.value().notes)
            note(text);
    }
    tellOutcome(frame.value(), options);
    return EXIT_OK;
}

}  // namespace vornctl
