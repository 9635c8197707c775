// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "capture/accessories.h"
#include "capture/cancel_token.h"
#include "capture/session.h"

namespace vornindi {

/// Times guide pulses in a thread of its own. The two axes are independent of each other.
class Guider {
public:
    enum class Axis { NORTH_SOUTH, WEST_EAST };

    /// Called in the guider's thread when a pulse has ended or failed.
    using Ended = std::function<void(Axis axis, unsigned int number, const std::optional<vorncapture::Error>& error)>;

    explicit Guider(Ended ended);
    Guider(const Guider&) = delete;
    Guider& operator=(const Guider&) = delete;

    /// Takes a camera with a guide port, or none: then all pulses end. The relays are opened in either case.
    void attach(std::shared_ptr<vorncapture::Session> session);

    /// Closes @p relay for @p seconds, in place of what the axis is doing.
    /// @param number given back to Ended
    void pulse(Axis axis, vorncapture::GuideRelay relay, double seconds, unsigned int number);

    /// Ends the axis's pulse without a call of Ended.
    void stop(Axis axis);

    /// Waits until no relay is closed, and lets no pulse begin until resume(): for the time when the camera is too busy
    /// to open a relay on time. @param cancel ends the wait
    void suspend(const vorncapture::CancelToken& cancel);
    void resume();

    /// @return true when no pulse is under way or waits.
    bool idle() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Pulse {
        unsigned short mask = 0;  ///< 0: none
        double seconds = 0.0;
        unsigned int number = 0;
        bool closed = false;  ///< the relay; before, the pulse waits
        Clock::time_point end;
    };

    [[noreturn]] void serve();
    void setRelays(std::unique_lock<std::mutex>& guard);
    unsigned short wantedMask() const;

    Ended ended_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::shared_ptr<vorncapture::Session> session_;
    std::array<Pulse, 2> pulses_;
    unsigned short mask_ = 0;  ///< relays that are closed
    bool suspended_ = false;
};

}  // namespace vornindi
