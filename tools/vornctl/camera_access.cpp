// SPDX-License-Identifier: MIT
#include "camera_access.h"

#include <chrono>

#include "capture/camera_selection.h"

namespace vornctl {

namespace {

constexpr double RECONNECT_SECONDS = 120.0;
constexpr double RECONNECT_STEP_SECONDS = 1.0;

vorncapture::SessionOptions sessionOptions(const Options& options, const vorncapture::CancelToken& cancel)
{
    vorncapture::SessionOptions wanted;
    wanted.cancel = &cancel;
    if (options.timeoutSeconds) {
        const auto limit = std::chrono::milliseconds(static_cast<long long>(*options.timeoutSeconds * 1000.0));
        wanted.watchdog.open = limit;
        wanted.watchdog.command = limit;
    }
    return wanted;
}

}  // namespace

vorncapture::Status Opened::reconnect()
{
    using namespace vorncapture;
    if (session_->stuck())
        return session_->mute();
    const CameraSelector selector{CameraSelector::By::SERIAL, session_->info().serialNumber, ""};
    session_.reset();
    const auto clock = Clock::system();
    const double deadline = clock->steadySeconds() + RECONNECT_SECONDS;
    while (true) {
        progress.say("waiting for the camera");
        if (!sleepUntil(*clock, clock->steadySeconds() + RECONNECT_STEP_SECONDS, &cancel))
            return Error{ErrorKind::CANCELLED, "stopped while waiting for the camera", ""};
        auto opened = openSelected(listCameras(), selector, sessionOptions(options_, cancel));
        if (opened.ok()) {
            session_ = std::move(opened.value());
            return Done{};
        }
        if (opened.error().kind == ErrorKind::CANCELLED || clock->steadySeconds() > deadline)
            return opened.error();
    }
}

int withCamera(const Options& options, const std::function<vorncapture::Status(Opened&)>& work)
{
    const auto selector = vorncapture::CameraSelector::parse(options.device);
    if (!selector.ok())
        return report(selector.error());
    const vorncapture::CancelToken& cancel = cancelOnSignals();
    ProgressLine progress(!options.quiet && !options.json);
    progress.say("opening the camera");
    auto opened =
        vorncapture::openSelected(vorncapture::listCameras(), selector.value(), sessionOptions(options, cancel));
    progress.clear();
    if (!opened.ok())
        return leave(opened.error());
    Opened camera(std::move(opened.value()), options, cancel, progress);
    const vorncapture::Status done = work(camera);
    progress.clear();
    if (done.ok())
        return EXIT_OK;
    if (!camera.stuck())
        camera.close();
    return leave(done.error());
}

}  // namespace vornctl
