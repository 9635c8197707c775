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

std::string StderrCapture::text()
{
    restore();
    std::string result;
    char piece[4096];
    rewind(file_);
    for (size_t count = 0; (count = fread(piece, 1, sizeof piece, file_)) > 0;)
        result.append(piece, count);
    return result;
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
