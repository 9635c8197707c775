// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

namespace vorncapture {

/// Carries the wish to stop from a signal handler or another thread to the one that exposes.
class CancelToken {
public:
    /// Asks to stop. The first request lets a transfer that has begun come to its end, so that the camera is left in
    /// order; the second one stops waiting for it. Async-signal-safe.
    void request() { requests_.fetch_add(1, std::memory_order_relaxed); }

    /// Forgets all requests, for the next exposure.
    void reset() { requests_.store(0, std::memory_order_relaxed); }

    /// @return true after the first request.
    bool requested() const { return requests_.load(std::memory_order_relaxed) > 0; }

    /// @return true after the second request.
    bool urgent() const { return requests_.load(std::memory_order_relaxed) > 1; }

private:
    std::atomic<int> requests_{0};
    static_assert(std::atomic<int>::is_always_lock_free);
};

}  // namespace vorncapture
