// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>

namespace vorncapture {

/// Where an exposure gets its time from; tests put a virtual one in its place.
class Clock {
public:
    using Utc = std::chrono::system_clock::time_point;

    virtual ~Clock() = default;

    /// @return seconds since some fixed moment; never goes back.
    virtual double steadySeconds() = 0;

    /// @return the time of day.
    virtual Utc utc() = 0;

    /// Waits @p seconds (not negative).
    virtual void sleep(double seconds) = 0;

    /// @return the machine's own clock.
    static std::shared_ptr<Clock> system();
};

}  // namespace vorncapture
