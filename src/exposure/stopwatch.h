// SPDX-License-Identifier: MIT
#pragma once

#include <sys/time.h>

namespace vornccd {

/// Elapsed time for the trace, by the clock that a host or a test can replace.
class Stopwatch {
public:
    Stopwatch() : start_(now()) {}

    /// @return seconds since construction.
    double elapsedSeconds() const { return now() - start_; }

private:
    static double now()
    {
        timeval time = {};
        (void)gettimeofday(&time, nullptr);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    }

    double start_;
};

}  // namespace vornccd
