// SPDX-License-Identifier: MIT
#include "trace_capture.h"

#include <unistd.h>
#include <algorithm>

#include "vornccd.h"

namespace vorntest {

StderrCapture::StderrCapture() : file_(tmpfile()), savedStderr_(dup(STDERR_FILENO))
{
    (void)fflush(stderr);
    (void)dup2(fileno(file_), STDERR_FILENO);
}

StderrCapture::~StderrCapture()
{
    restore();
    (void)fclose(file_);
}

void StderrCapture::restore()
{
    if (savedStderr_ < 0)
        return;
    (void)fflush(stderr);
    (void)dup2(savedStderr_, STDERR_FILENO);
    (void)close(savedStderr_);
    savedStderr_ = -1;
}

std::string StderrCapture::textSoFar()
{
    // pread leaves the position alone that the descriptor shares with standard error
    std::string result;
    char piece[4096];
    for (ssize_t count = 0; (count = pread(fileno(file_), piece, sizeof piece, static_cast<off_t>(result.size()))) > 0;)
        result.append(piece, static_cast<size_t>(count));
    return result;
}

std::string StderrCapture::text()
{
    restore();
    return textSoFar();
}

TraceCapture::TraceCapture()
{
    VornDebug = true;
    VornDebugOn = true;
}

TraceCapture::~TraceCapture()
{
    VornDebug = false;
}

std::vector<std::string> TraceCapture::lines()
{
    VornDebug = false;
    if (!done_) {
        done_ = true;
        const std::string text = capture_.text();
        for (size_t start = 0; start < text.size();) {
            const size_t end = text.find('\n', start);
            lines_.push_back(end == std::string::npos ? text.substr(start) + " (no end)"
                                                      : text.substr(start, end - start));
            start = end == std::string::npos ? text.size() : end + 1;
        }
    }
    return lines_;
}

bool TraceCapture::has(const std::string& line)
{
    (void)lines();
    return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
}

}  // namespace vorntest
