// SPDX-License-Identifier: MIT
#include "camera_access.h"

#include <chrono>

#include "capture/camera_selection.h"

namespace vornctl {

int withCamera(const Options& options, const std::function<vorncapture::Status(Opened&)>& work)
{
    const auto selector = vorncapture::CameraSelector::parse(options.device);
    if (!selector.ok())
        return report(selector.error());
    const vorncapture::CancelToken& cancel = cancelOnSignals();
    vorncapture::SessionOptions sessionOptions;
    sessionOptions.cancel = &cancel;
    if (options.timeoutSeconds) {
        const auto limit = std::chrono::milliseconds(static_cast<long long>(*options.timeoutSeconds * 1000.0));
        sessionOptions.watchdog.open = limit;
        sessionOptions.watchdog.command = limit;
    }
    ProgressLine progress(!options.quiet && !options.json);
    progress.say("opening the camera");
    auto opened = vorncapture::openSelected(vorncapture::listCameras(), selector.value(), sessionOptions);
    progress.clear();
    if (!opened.ok())
        return leave(opened.error());
    Opened camera{*opened.value(), cancel, progress};
    const vorncapture::Status done = work(camera);
    progress.clear();
    if (done.ok())
        return EXIT_OK;
    if (!opened.value()->stuck())
        opened.value().reset();
    return leave(done.error());
}

}  // namespace vornctl
