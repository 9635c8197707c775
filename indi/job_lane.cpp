// SPDX-License-Identifier: MIT
#include "job_lane.h"

#include <thread>
#include <utility>

namespace vornindi {

JobLane::JobLane()
{
    std::thread([this] { serve(); }).detach();
}

void JobLane::post(std::function<void()> job)
{
    {
        const std::lock_guard guard(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

void JobLane::serve()
{
    while (true) {
        std::function<void()> job;
        {
            std::unique_lock guard(mutex_);
            wake_.wait(guard, [this] { return !jobs_.empty(); });
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

}  // namespace vornindi
