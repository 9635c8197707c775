// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace vorntest {

/// Catches standard error from construction until text() or destruction.
class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    /// @return what was written so far; the capture goes on.
    std::string textSoFar();
    /// Ends the capture. @return everything that was written.
    std::string text();

private:
    void restore();

    FILE* file_;
    int savedStderr_;
};

/// Traces the library from construction until lines() or destruction, with both switches on.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();

    /// @return the raw text so far; the trace goes on.
    std::string textSoFar() { return capture_.textSoFar(); }
    /// Ends the trace. @return all of it.
    std::string text();
    /// Ends the trace. @return its lines without their line ends; a last line without line end is marked " (no end)".
    std::vector<std::string> lines();
    /// Ends the trace. @return whether one of its lines is @p line.
    bool has(const std::string& line);

private:
    StderrCapture capture_;
    std::string text_;
};

}  // namespace vorntest
