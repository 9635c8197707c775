// SPDX-License-Identifier: MIT
#include "trace_capture.h"

#include <unistd.h>
#include <sstream>

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

std::string TraceCapture::text()
{
    VornDebug = false;
    if (text_.empty())
        text_ = capture_.text();
    return text_;
}

std::vector<std::string> TraceCapture::lines()
{
    std::vector<std::string> lines;
    std::istringstream stream(text());
    for (std::string line; std::getline(stream, line);)
        lines.push_back(stream.eof() ? line + " (no end)" : line);
    return lines;
}

bool TraceCapture::has(const std::string& line)
{
    return ("\n" + text()).find("\n" + line + "\n") != std::string::npos;
}

}  // namespace vorntest
