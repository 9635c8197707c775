// SPDX-License-Identifier: MIT
#include "console.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "capture/output_file.h"

namespace vornctl {
namespace {

using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::Phase;

constexpr int BAR_WIDTH = 30;
constexpr int SIGNALLED = 128;  // what shells add to a signal's number

vorncapture::CancelToken cancelToken;
volatile sig_atomic_t lastSignal = 0;

extern "C" void onSignal(int number)
{
    lastSignal = number;
    cancelToken.request();
}

}  // namespace

int exitStatusOf(ErrorKind kind)
{
    switch (kind) {
        case ErrorKind::FAILED:
        case ErrorKind::BUSY:
        case ErrorKind::FILE_ERROR:
            return EXIT_FAILED;
        case ErrorKind::BAD_REQUEST:
        case ErrorKind::UNSUPPORTED:
            return EXIT_USAGE;
        case ErrorKind::NO_SUCH_CAMERA:
            return EXIT_NO_CAMERA;
        case ErrorKind::PERMISSION:
            return EXIT_PERMISSION;
        case ErrorKind::TIMEOUT:
        case ErrorKind::DEVICE_LOST:
            return EXIT_LOST;
        case ErrorKind::NOT_REACHED:
            return EXIT_NOT_REACHED;
        case ErrorKind::CANCELLED:
            return SIGNALLED + lastSignal;
    }
    return EXIT_FAILED;
}

int report(const Error& error)
{
    (void)std::fprintf(stderr, "vornctl: %s\n", error.text.c_str());
    if (!error.advice.empty())
        (void)std::fprintf(stderr, "%s\n", error.advice.c_str());
    return exitStatusOf(error.kind);
}

int leave(const Error& error)
{
    const int status = report(error);
    if (error.kind == ErrorKind::TIMEOUT || error.kind == ErrorKind::CANCELLED) {
        (void)std::fflush(nullptr);
        std::_Exit(status);
    }
    return status;
}

Error withForce(Error error)
{
    if (error.text.ends_with(" exists already"))
        error.advice = "Choose another name, or replace it with --force.";
    return error;
}

vorncapture::Status flushOutput()
{
    static int failure = 0;
    errno = 0;
    if (failure == 0 && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0))
        failure = errno != 0 ? errno : EIO;
    if (failure != 0)
        return vorncapture::standardOutputError(failure);
    return vorncapture::Done{};
}

void note(const std::string& text)
{
    (void)std::fprintf(stderr, "vornctl: note: %s\n", text.c_str());
}

vorncapture::CancelToken& cancelOnSignals()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        (void)sigaction(number, &action, nullptr);
    return cancelToken;
}

ProgressLine::ProgressLine(bool wanted) : active_(wanted && isatty(STDERR_FILENO) != 0) {}

void ProgressLine::say(const std::string& text)
{
    if (!active_ || text == shown_)
        return;
    shown_ = text;
    (void)std::fprintf(stderr, "\r\033[K%s", text.c_str());
    (void)std::fflush(stderr);
}

void ProgressLine::show(Phase phase, double elapsed, double total)
{
    if (!active_)
        return;
    std::string line;
    if (cancelToken.requested()) {
        line = "stopping; once more to stop at once";
    } else if (phase == Phase::STARTING) {
        line = "preparing the camera";
    } else if (phase == Phase::READING) {
        line = "reading out";
    } else {
        const double part = total > 0.0 ? std::clamp(elapsed / total, 0.0, 1.0) : 1.0;
        const auto filled = static_cast<size_t>(std::lround(part * BAR_WIDTH));
        std::array<char, 64> numbers = {};
        (void)std::snprintf(numbers.data(), numbers.size(), "] %.1f of %.1f s, %.0f s left", elapsed, total,
                            std::ceil(std::max(total - elapsed, 0.0)));
        line = "exposing [" + std::string(filled, '#') + std::string(BAR_WIDTH - filled, ' ') + numbers.data();
    }
    say(prefix_ + line);
}

void ProgressLine::clear()
{
    if (active_ && !shown_.empty())
        (void)std::fputs("\r\033[K", stderr);
    shown_.clear();
}

}  // namespace vornctl
