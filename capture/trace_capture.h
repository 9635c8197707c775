// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>
#include <string>

namespace vorncapture {

/// Turns the library's trace on and catches what comes to standard error, for as long as it lives. It holds the
/// process's standard error, so use it for a moment only; a second one waits for the first to end.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture() { (void)finish(); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// Restores trace and standard error. Where the trace was on before, its reader gets the text as well.
    /// @return what was caught; on a second call nothing
    std::string finish();

private:
    std::unique_lock<std::mutex> turn_;
    bool wasTracing_;
    int caught_ = -1;    ///< file in memory that takes the text
    int standard_ = -1;  ///< the true standard error
};

}  // namespace vorncapture
