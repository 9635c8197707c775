// SPDX-License-Identifier: MIT
#include "console.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "capture/output_file.h"

namespace vornctl {
namespace {

using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::Phase;

constexpr size_t LONGEST_BAR = 32;
constexpr size_t SHORTEST_BAR = 6;
constexpr size_t USUAL_WIDTH = 80;  // where the terminal does not say
constexpr int SIGNALLED = 128;      // what shells add to a signal's number

vorncapture::CancelToken cancelToken;
volatile sig_atomic_t lastSignal = 0;
bool asJson = false;

/// Asked for each line, since windows change their size.
size_t terminalWidth()
{
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : USUAL_WIDTH;
}

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

void reportAsJson(bool wanted)
{
    asJson = wanted;
}

int report(const Error& error)
{
    if (asJson && std::ferror(stdout) == 0) {  // else it is reported where it can be
        nlohmann::ordered_json advice;
        if (!error.advice.empty())
            advice = error.advice;
        const nlohmann::ordered_json json = {
            {"error", {{"text", error.text}, {"advice", advice}, {"status", exitStatusOf(error.kind)}}}};
        constexpr auto REPLACE = nlohmann::ordered_json::error_handler_t::replace;  // a text from outside
        (void)std::printf("%s\n", json.dump(-1, ' ', false, REPLACE).c_str());
    }
    (void)std::fprintf(stderr, "vornctl: %s\n", error.text.c_str());
    if (!error.advice.empty())
        (void)std::fprintf(stderr, "%s\n", error.advice.c_str());
    return exitStatusOf(error.kind);
}

int leave(const Error& error)
{
    const int status = report(error);
    const auto unopened = error.kind == ErrorKind::BUSY || error.kind == ErrorKind::PERMISSION;  // or still opening
    if (unopened || error.kind == ErrorKind::TIMEOUT || error.kind == ErrorKind::CANCELLED) {
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
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction inherited = {};
        if (sigaction(number, nullptr, &inherited) != 0 || inherited.sa_handler != SIG_IGN)
            (void)sigaction(number, &action, nullptr);
    }
    return cancelToken;
}

ProgressLine::ProgressLine(bool wanted) : active_(wanted && isatty(STDERR_FILENO) != 0) {}

void ProgressLine::say(const std::string& text)
{
    if (!active_)
        return;
    const std::string fitting = text.substr(0, terminalWidth() - 1);
    if (fitting == shown_)
        return;
    shown_ = fitting;
    (void)std::fprintf(stderr, "\r\033[K%s", shown_.c_str());
    (void)std::fflush(stderr);
}

void ProgressLine::show(Phase phase, double elapsed, double total)
{
    if (!active_)
        return;
    if (cancelToken.requested()) {
        say("stopping; once more to stop at once");
        return;
    }
    if (phase == Phase::STARTING) {
        say(before_ + "preparing the camera");
        return;
    }
    const std::string doing = before_ + (phase == Phase::READING ? "reading out " : "exposing ");
    std::string numbers = duration(elapsed);
    if (total > 0.0)
        numbers += " of " + duration(total);
    numbers += after_;
    const size_t used = doing.size() + numbers.size() + 1;
    const size_t width = terminalWidth();
    const size_t bar = total > 0.0 && width > used ? std::min(width - used, LONGEST_BAR) : 0;
    const std::string drawn = progressBar(total > 0.0 ? elapsed / total : 0.0, bar);
    say(doing + (drawn.empty() ? "" : drawn + " ") + numbers);
}

std::string progressBar(double part, size_t width)
{
    if (width < SHORTEST_BAR)
        return "";
    const size_t inside = width - 2;
    const auto filled = static_cast<size_t>(std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(inside)));
    return "[" + std::string(filled, '#') + std::string(inside - filled, ' ') + "]";
}

std::string duration(double seconds)
{
    std::array<char, 48> text = {};
    const auto whole = static_cast<long long>(std::clamp(seconds, 0.0, 1e9) + 0.5);
    if (seconds < 59.95)
        (void)std::snprintf(text.data(), text.size(), "%.1f s", std::max(seconds, 0.0));
    else if (whole < 3600)
        (void)std::snprintf(text.data(), text.size(), "%lld:%02lld min", whole / 60, whole % 60);
    else
        (void)std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld h", whole / 3600, whole / 60 % 60,
                            whole % 60);
    return text.data();
}

void ProgressLine::clear()
{
    if (active_ && !shown_.empty())
        (void)std::fputs("\r\033[K", stderr);
    shown_.clear();
}

}  // namespace vornctl
