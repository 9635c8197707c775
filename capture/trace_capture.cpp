// SPDX-License-Identifier: MIT
#include "capture/trace_capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include <vornccd.h>

namespace vorncapture {

namespace {

std::mutex oneAtATime;

}  // namespace

TraceCapture::TraceCapture() : turn_(oneAtATime), wasTracing_(VornDebug)
{
    (void)std::fflush(stderr);
    caught_ = memfd_create("trace", MFD_CLOEXEC);
    standard_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (caught_ < 0 || standard_ < 0)
        return;
    (void)dup2(caught_, STDERR_FILENO);
    VornDebug = true;
}

std::string TraceCapture::finish()
{
    std::string text;
    if (caught_ >= 0 && standard_ >= 0) {
        (void)std::fflush(stderr);
        VornDebug = wasTracing_;
        (void)dup2(standard_, STDERR_FILENO);
        std::array<char, 4096> block = {};
        (void)lseek(caught_, 0, SEEK_SET);
        for (ssize_t got = 0; (got = read(caught_, block.data(), block.size())) > 0;)
            text.append(block.data(), static_cast<size_t>(got));
        if (wasTracing_)
            (void)std::fwrite(text.data(), 1, text.size(), stderr);
    }
    for (int* descriptor : {&caught_, &standard_}) {
        if (*descriptor >= 0)
            (void)close(*descriptor);
        *descriptor = -1;
    }
    if (turn_.owns_lock())
        turn_.unlock();
    return text;
}

}  // namespace vorncapture
