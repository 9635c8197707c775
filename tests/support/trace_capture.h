// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vornccd.h"

namespace vorntest {

/// Catches standard error, with both trace switches on, until text(), lines(), has() or destruction.
class TraceCapture {
public:
    TraceCapture() : file_(tmpfile()), savedStderr_(dup(STDERR_FILENO))
    {
        (void)fflush(stderr);
        (void)dup2(fileno(file_), STDERR_FILENO);
        VornDebug = VornDebugOn = true;
    }
    ~TraceCapture() { (void)text(); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// @return what was written so far; the capture goes on.
    std::string textSoFar()
    {
        // pread leaves the position alone that the descriptor shares with standard error
        std::string result;
        char piece[4096];
        ssize_t count = 0;
        while ((count = pread(fileno(file_), piece, sizeof piece, static_cast<off_t>(result.size()))) > 0)
            result.append(piece, static_cast<size_t>(count));
        return result;
    }
    std::string text()
    {
        VornDebug = false;
        if (file_ != nullptr) {
            (void)fflush(stderr);
            (void)dup2(savedStderr_, STDERR_FILENO);
            (void)close(savedStderr_);
            text_ = textSoFar();
            (void)fclose(std::exchange(file_, nullptr));
        }
        return text_;
    }
    std::vector<std::string> lines()
    {
        std::vector<std::string> lines;
        std::istringstream stream(text());
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }
    bool has(const std::string& line) { return ("\n" + text()).find("\n" + line + "\n") != std::string::npos; }

private:
    FILE* file_;
    int savedStderr_;
    std::string text_;
};

}  // namespace vorntest
