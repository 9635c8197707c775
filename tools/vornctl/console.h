// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "capture/cancel_token.h"
#include "capture/result.h"
#include "capture/session.h"

namespace vornctl {

/// Exit statuses, for scripts.
enum ExitStatus : int {
    EXIT_OK = 0,
    EXIT_FAILED = 1,       ///< the operation failed
    EXIT_USAGE = 2,        ///< the command line makes no sense, or not for this camera
    EXIT_NO_CAMERA = 3,    ///< no such camera
    EXIT_PERMISSION = 4,   ///< the system does not let this user use the camera
    EXIT_LOST = 5,         ///< the camera does not answer, or is gone
    EXIT_NOT_REACHED = 6,  ///< the sensor's temperature was not reached
};

/// @return the exit status that errors of this kind end with.
int exitStatusOf(vorncapture::ErrorKind kind);

/// Tells an error on standard error. @return the exit status it stands for.
int report(const vorncapture::Error& error);

/// Tells an error that came from a camera. Where the camera may still keep a thread waiting, the process ends here
/// instead of waiting with it. @return the exit status the error stands for
int leave(const vorncapture::Error& error);

/// @return the error of a file that is in the way, with the option that helps.
vorncapture::Error withForce(vorncapture::Error error);

/// Hands on what was printed to standard output. Error: FILE_ERROR, also when an earlier attempt failed.
vorncapture::Status flushOutput();

/// Tells something worth knowing on standard error.
void note(const std::string& text);

/// Makes Ctrl-C and a request to terminate cancel what is going on instead of ending the process at once.
/// @return the token that they set, valid to the end of the process
vorncapture::CancelToken& cancelOnSignals();

/// A line on a terminal's standard error that shows how an exposure goes on; nothing elsewhere.
class ProgressLine {
public:
    /// @param wanted false keeps it silent on a terminal as well
    explicit ProgressLine(bool wanted);
    ~ProgressLine() { clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Words put before the line of an exposure, "picture 2 of 10, ".
    void setPrefix(const std::string& text) { prefix_ = text; }

    void say(const std::string& text);
    void show(vorncapture::Phase phase, double elapsed, double total);
    void clear();

private:
    bool active_;
    std::string prefix_;
    std::string shown_;
};

}  // namespace vornctl
