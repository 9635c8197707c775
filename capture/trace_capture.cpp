// SPDX-License-Identifier: MIT
#include "capture/trace_capture.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string_view>

#include <vornccd.h>

namespace vorncapture {
namespace {

/// How many captures there are, and whether the trace was on before the first.
std::mutex switchMutex;
int captureCount = 0;
bool wasTracing = false;

/// Whether trace lines are there only because of captures.
std::atomic<bool> traceForCapturesOnly{false};

/// Where the trace of this thread goes.
thread_local SharedText* caught = nullptr;

void switchTrace(bool on)
{
    std::atomic_ref<bool>(VornDebug).store(on, std::memory_order_relaxed);
}

/// Trace lines are indented or have an arrow; messages of other kinds begin with a word.
bool looksLikeTrace(std::string_view line)
{
    return line.starts_with(" ") || line.starts_with("-> ") || line.starts_with("<- ");
}

/// Takes what any thread writes to `stderr`.
ssize_t takeText(void* /*cookie*/, const char* text, size_t length)
{
    const std::string_view line(text, length);
    if (caught != nullptr)
        caught->append(std::string(line));
    const bool forCaptures = caught != nullptr || looksLikeTrace(line);
    if (forCaptures && traceForCapturesOnly.load(std::memory_order_relaxed))
        return static_cast<ssize_t>(length);
    size_t written = 0;
    while (written < length) {
        const ssize_t now = write(STDERR_FILENO, text + written, length - written);
        if (now <= 0)
            break;  // nobody reads it; the program goes on without
        written += static_cast<size_t>(now);
    }
    return static_cast<ssize_t>(length);
}

/// Puts a stream in the place of `stderr` that knows which thread writes, once and for good: a stream that other
/// threads may be using cannot be taken away again. It writes to the same descriptor.
void replaceStandardError()
{
    static std::once_flag once;
    std::call_once(once, [] {
        cookie_io_functions_t functions = {};
        functions.write = takeText;
        std::FILE* stream = fopencookie(nullptr, "w", functions);
        if (stream == nullptr)
            return;
        (void)std::setvbuf(stream, nullptr, _IONBF, 0);
        (void)std::fflush(stderr);
        stderr = stream;
    });
}

}  // namespace

void SharedText::append(const std::string& more)
{
    const std::lock_guard guard(mutex_);
    text_ += more;
}

std::string SharedText::read() const
{
    const std::lock_guard guard(mutex_);
    return text_;
}

TraceCapture::TraceCapture(std::shared_ptr<SharedText> text)
    : text_(text ? std::move(text) : std::make_shared<SharedText>()), before_(caught)
{
    replaceStandardError();
    caught = text_.get();
    const std::lock_guard guard(switchMutex);
    if (captureCount++ > 0)
        return;
    wasTracing = std::atomic_ref<bool>(VornDebug).load(std::memory_order_relaxed);
    traceForCapturesOnly = !wasTracing;
    switchTrace(true);
}

void setTrace(bool on)
{
    const std::lock_guard guard(switchMutex);
    if (captureCount == 0) {
        switchTrace(on);
        return;
    }
    wasTracing = on;
    traceForCapturesOnly = !on;
}

std::string TraceCapture::finish()
{
    if (!text_)
        return "";
    caught = before_;
    const std::string text = text_->read();
    text_.reset();
    const std::lock_guard guard(switchMutex);
    if (--captureCount == 0) {
        switchTrace(wasTracing);
        traceForCapturesOnly = false;
    }
    return text;
}

}  // namespace vorncapture
