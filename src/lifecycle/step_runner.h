// SPDX-License-Identifier: MIT
#pragma once

#include "camera_impl.h"
#include "transport/pause.h"

#include <functional>
#include <type_traits>
#include <utility>

namespace vornccd {

/// Runs the steps of a script in order until one fails; those after it are skipped.
class StepRunner {
public:
    explicit StepRunner(VornCameraImpl& steppedCamera) : camera(steppedCamera) {}

    /// Runs a member or a function that takes the camera first. One without a result cannot fail.
    template <typename Step, typename... Arguments>
    void run(Step step, Arguments&&... arguments)
    {
        if (!ok_)
            return;
        if constexpr (std::is_void_v<std::invoke_result_t<Step, VornCameraImpl&, Arguments...>>)
            std::invoke(step, camera, std::forward<Arguments>(arguments)...);
        else
            ok_ = std::invoke(step, camera, std::forward<Arguments>(arguments)...);
    }

    /// A pause of @p us microseconds.
    void pause(long us)
    {
        if (ok_)
            sleepms(us);
    }

    /// Skips what follows.
    void fail() { ok_ = false; }

    /// @return whether no step has failed so far.
    bool ok() const { return ok_; }

    VornCameraImpl& camera;

private:
    bool ok_ = true;
};

}  // namespace vornccd
