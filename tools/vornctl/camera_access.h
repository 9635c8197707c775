// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "capture/cancel_token.h"
#include "capture/session.h"
#include "console.h"
#include "options.h"

namespace vornctl {

/// A camera that was opened for a command, and what the command needs besides.
class Opened {
public:
    Opened(std::unique_ptr<vorncapture::Session> session, const Options& options,
           const vorncapture::CancelToken& theCancel, ProgressLine& theProgress)
        : cancel(theCancel), progress(theProgress), session_(std::move(session)), options_(options)
    {
    }

    vorncapture::Session& session() { return *session_; }

    /// Closes the camera and opens the same one, by its serial number, once it is there again: after it was unplugged,
    /// or lost its way. Errors: CANCELLED, and those of the last attempt.
    vorncapture::Status reconnect();

    /// @return whether a call on the camera never came back; false when it is closed.
    bool stuck() const { return session_ && session_->stuck(); }

    /// @return whether there is a session, which a reconnection that failed ends.
    bool isOpen() const { return session_ != nullptr; }

    /// Closes the camera; session() must not be called any more.
    void close() { session_.reset(); }

    const vorncapture::CancelToken& cancel;
    ProgressLine& progress;

private:
    std::unique_ptr<vorncapture::Session> session_;
    const Options& options_;
};

/// Opens the camera that @p options mean, lets @p work use it, closes it and reports what went wrong.
/// @return the exit status of the process
int withCamera(const Options& options, const std::function<vorncapture::Status(Opened&)>& work);

}  // namespace vornctl
