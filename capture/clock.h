// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "capture/cancel_token.h"

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

/// Longest time from a wish to stop until sleepUntil() notices it, unless the caller says otherwise.
constexpr double CANCEL_STEP_SECONDS = 0.1;

/// Waits until @p clock shows @p due.
/// @param due steady seconds; a moment that has passed ends the wait at once
/// @param cancel ends the wait when requested; may be null
/// @param tick called with the seconds left, first at once, then once a step, at last when none is left (0 or less);
///     may be empty
/// @param step seconds between two looks at @p cancel, above 0
/// @return true when the moment has come, false when cancelled, also when both are true
bool sleepUntil(Clock& clock, double due, const CancelToken* cancel, const std::function<void(double left)>& tick = {},
                double step = CANCEL_STEP_SECONDS);

}  // namespace vorncapture
