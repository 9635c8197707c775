// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include <vornccd.h>

#include "capture/camera_handle.h"
#include "capture/cancel_token.h"

namespace vorncapture {

/// Makes all calls on one camera, one after the other, in a thread of its own: the readout hands a lock from one call
/// to the next and wants both in one thread, and some calls wait for a mute camera without end. Callers wait for them
/// with a limit; when it passes, the worker counts as stuck, refuses further work and leaves thread and camera object
/// to the end of the process, since nothing can call them back.
class CameraWorker {
public:
    using Limit = std::chrono::milliseconds;

    explicit CameraWorker(CameraHandle camera);
    ~CameraWorker();  ///< lets the work at hand end, closes and destroys the camera; unless stuck
    CameraWorker(const CameraWorker&) = delete;
    CameraWorker& operator=(const CameraWorker&) = delete;

    /// Runs @p work(camera) in the camera's thread and waits for its result. @p work must own what it refers to, for it
    /// may outlive the call. May be called from several threads.
    /// @param limit longest time to wait, from when the call was made
    /// @param cancel when urgent, ends the wait early; may be null
    /// @param tick called in the caller's thread about ten times a second while waiting; may be empty
    /// @return the result, or nothing when the worker is stuck
    template <typename Work>
    auto run(Work work, Limit limit, const CancelToken* cancel = nullptr, const std::function<void()>& tick = {})
        -> std::optional<std::invoke_result_t<Work, VornCamera&>>
    {
        using Outcome = std::invoke_result_t<Work, VornCamera&>;
        auto task = std::make_shared<std::packaged_task<Outcome(VornCamera&)>>(std::move(work));
        std::future<Outcome> outcome = task->get_future();
        if (!post([task](VornCamera& camera) { (*task)(camera); }))
            return std::nullopt;
        const auto ready = [&outcome](Limit wait) { return outcome.wait_for(wait) == std::future_status::ready; };
        if (!await(ready, limit, cancel, tick))
            return std::nullopt;
        return outcome.get();
    }

    /// @return true when a call did not come back.
    bool stuck() const;

private:
    struct Shared;

    bool post(std::function<void(VornCamera&)> work);
    bool await(const std::function<bool(Limit)>& ready, Limit limit, const CancelToken* cancel,
               const std::function<void()>& tick);
    static void serve(const std::shared_ptr<Shared>& shared);

    std::shared_ptr<Shared> shared_;
    std::thread thread_;
};

}  // namespace vorncapture
