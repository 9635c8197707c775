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

/// Makes report() print each error as a JSON object on standard output, too: {"error": {"text", "advice", "status"}}.
void reportAsJson(bool wanted);

/// Reports an error on standard error. @return the exit status it stands for.
int report(const vorncapture::Error& error);

/// Reports an error that came from a camera. Where the camera may still keep a thread waiting, the process ends here
/// instead of waiting with it. @return the exit status the error stands for
int leave(const vorncapture::Error& error);

/// @return the error of a file that is in the way, with the option that helps.
vorncapture::Error withForce(vorncapture::Error error);

/// Hands on what was printed to standard output. Error: FILE_ERROR, also when an earlier attempt failed.
vorncapture::Status flushOutput();

/// Reports something worth knowing on standard error.
void note(const std::string& text);

/// Makes Ctrl-C, a request to terminate and the end of the terminal cancel what is going on instead of ending the
/// process at once. A signal that the process was started to ignore (nohup) stays ignored.
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

    /// Words put before the line of an exposure, "picture 2 of 10, ", and after it, ", 12:30 in all".
    void setContext(const std::string& before, const std::string& after) { before_ = before, after_ = after; }

    /// Shows a text, as much of it as fits into the terminal's width: a longer line would go on in the next one and
    /// could not be overwritten.
    void say(const std::string& text);
    /// Shows how an exposure goes on. While a picture is read out @p elapsed is the time since that began, and
    /// @p total what it is expected to take, 0 where that is not known.
    void show(vorncapture::Phase phase, double elapsed, double total);
    void clear();

private:
    bool active_;
    std::string before_;
    std::string after_;
    std::string shown_;
};

/// @return a bar for a terminal, "[#####     ]", @p width characters in all.
std::string progressBar(double part, size_t width);

/// @return a time for people: "59.8 s", "1:01:39 h", "4:05 min"; whole seconds from a minute on.
std::string duration(double seconds);

}  // namespace vornctl
