// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace vornindi {

/// A thread that does one job after the other. It lives as long as the process.
class JobLane {
public:
    JobLane();
    JobLane(const JobLane&) = delete;
    JobLane& operator=(const JobLane&) = delete;

    /// Adds a job to the end of the queue.
    void post(std::function<void()> job);

private:
    [[noreturn]] void serve();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
};

}  // namespace vornindi
