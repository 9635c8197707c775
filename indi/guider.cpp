// SPDX-License-Identifier: MIT
#include "guider.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

namespace vornindi {

using vorncapture::Error;
using vorncapture::Status;

Guider::Guider(Ended ended) : ended_(std::move(ended))
{
    std::thread([this] { serve(); }).detach();
}

void Guider::attach(std::shared_ptr<vorncapture::Session> session)
{
    const std::lock_guard guard(mutex_);
    pulses_ = {};
    suspended_ = false;
    mask_ = 0;  // opening a camera opens its relays; who lets one go opens them
    session_ = std::move(session);
    changed_.notify_all();
}

void Guider::pulse(Axis axis, vorncapture::GuideRelay relay, double seconds, unsigned int number)
{
    const std::lock_guard guard(mutex_);
    pulses_[static_cast<size_t>(axis)] = {static_cast<unsigned short>(relay), seconds, number, false, {}};
    changed_.notify_all();
}

void Guider::stop(Axis axis)
{
    const std::lock_guard guard(mutex_);
    pulses_[static_cast<size_t>(axis)] = {};
    changed_.notify_all();
}

void Guider::suspend(const vorncapture::CancelToken& cancel)
{
    constexpr std::chrono::milliseconds CANCEL_STEP{50};
    std::unique_lock guard(mutex_);
    suspended_ = true;  // pulses that have begun go on to their end
    while ((mask_ != 0 || pulses_[0].closed || pulses_[1].closed) && !cancel.requested())
        changed_.wait_for(guard, CANCEL_STEP);
}

void Guider::resume()
{
    const std::lock_guard guard(mutex_);
    suspended_ = false;
    changed_.notify_all();
}

bool Guider::idle() const
{
    const std::lock_guard guard(mutex_);
    return mask_ == 0 && pulses_[0].mask == 0 && pulses_[1].mask == 0;
}

/// @return the relays that should be closed now.
unsigned short Guider::wantedMask() const
{
    unsigned int mask = 0;
    for (const Pulse& pulse : pulses_)
        mask |= pulse.closed || !suspended_ ? pulse.mask : 0U;
    return static_cast<unsigned short>(mask);
}

/// Brings the relays to where they should be. The time of a pulse begins when its relay has been closed.
void Guider::setRelays(std::unique_lock<std::mutex>& guard)
{
    const unsigned short mask = wantedMask();
    const auto session = session_;
    const std::array<Pulse, 2> begun = pulses_;
    Status done = vorncapture::Done{};
    if (mask != mask_ && session) {
        mask_ = mask;
        guard.unlock();
        const auto set = [mask](VornCamera& camera) { return camera.setGuideRelays(mask); };
        // Not at once as an operation, which opens a camera again that fails: an exposure may be under way.
        if (!session->call(set).value_or(false))
            done = session->operate("the guide relays do not move", set);
        guard.lock();
        if (session != session_)
            return;
    }
    std::vector<std::pair<Axis, unsigned int>> failed;
    for (size_t axis = 0; axis < pulses_.size(); ++axis) {
        Pulse& pulse = pulses_[axis];
        if (pulse.mask == 0 || pulse.number != begun[axis].number)
            continue;
        if (!done.ok()) {
            failed.emplace_back(static_cast<Axis>(axis), pulse.number);
            pulse = {};
        } else if (!pulse.closed && (mask & pulse.mask) != 0) {
            pulse.closed = true;
            pulse.end = Clock::now() +
                        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(pulse.seconds));
        }
    }
    if (done.ok())
        return;
    mask_ = 0;  // the camera was opened anew, which opens the relays
    guard.unlock();
    if (failed.empty())
        ended_(Axis::NORTH_SOUTH, 0, done.error());
    for (const auto& [axis, number] : failed)
        ended_(axis, number, done.error());
    guard.lock();
}

void Guider::serve()
{
    std::unique_lock guard(mutex_);
    while (true) {
        std::vector<std::pair<Axis, unsigned int>> over;
        const auto now = Clock::now();
        auto next = now + std::chrono::hours(1);
        bool waiting = false;
        for (size_t axis = 0; axis < pulses_.size(); ++axis) {
            Pulse& pulse = pulses_[axis];
            if (pulse.closed && now >= pulse.end) {
                over.emplace_back(static_cast<Axis>(axis), pulse.number);
                pulse = {};
            }
            if (pulse.closed)
                next = std::min(next, pulse.end);
            waiting = waiting || (pulse.mask != 0 && !pulse.closed && !suspended_);
        }
        if (session_ && (waiting || wantedMask() != mask_)) {
            setRelays(guard);
        } else if (over.empty()) {
            changed_.wait_until(guard, next);
        }
        changed_.notify_all();
        if (over.empty())
            continue;
        guard.unlock();
        for (const auto& [axis, number] : over)
            ended_(axis, number, std::nullopt);
        guard.lock();
    }
}

}  // namespace vornindi
