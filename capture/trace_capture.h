// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <string>

namespace vorncapture {

/// A text that one thread writes and others may read meanwhile.
class SharedText {
public:
    void append(const std::string& more);
    std::string read() const;

private:
    mutable std::mutex mutex_;
    std::string text_;
};

/// Turns the library's trace on and catches what the thread that made it writes to `stderr`, for as long as it lives.
/// Several threads may do so at the same time, each gets its own text. Trace lines of threads that catch nothing are
/// dropped meanwhile, unless the trace was on before; all else goes to standard error as ever. To be destroyed in the
/// thread that made it; a second one in the same thread gets all that comes after it.
class TraceCapture {
public:
    /// @param text is appended to while this lives; null: one of its own
    explicit TraceCapture(std::shared_ptr<SharedText> text = nullptr);
    ~TraceCapture() { (void)finish(); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// Ends the catching. Where the trace was on before, its reader has got the text as well.
    /// @return what was caught; on a second call nothing
    std::string finish();

private:
    std::shared_ptr<SharedText> text_;
    SharedText* before_ = nullptr;  ///< what this thread caught into until now
};

/// Switches the library's trace on or off for the user; what is being caught meanwhile is caught to its end.
void setTrace(bool on);

}  // namespace vorncapture
