// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "capture/cancel_token.h"
#include "capture/session.h"
#include "console.h"
#include "options.h"

namespace vornctl {

/// A camera that was opened for a command, and what the command needs besides.
struct Opened {
    vorncapture::Session& session;
    const vorncapture::CancelToken& cancel;
    ProgressLine& progress;
};

/// Opens the camera that @p options mean, lets @p work use it, closes it and tells what went wrong.
/// @return the exit status of the process
int withCamera(const Options& options, const std::function<vorncapture::Status(Opened&)>& work);

}  // namespace vornctl
