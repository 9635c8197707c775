// SPDX-License-Identifier: MIT
#include "capture/camera_worker.h"

#include <signal.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <queue>
#include <utility>

namespace vorncapture {
namespace {

constexpr CameraWorker::Limit TICK{100};

}  // namespace

/// Owned by the worker object and by its thread, so that a stuck thread never refers to something gone.
struct CameraWorker::Shared {
    std::mutex mutex;
    std::condition_variable wake;
    std::queue<std::function<void(VornCamera&)>> work;
    bool stopping = false;
    bool stuck = false;
    CameraHandle camera;
};

CameraWorker::CameraWorker(CameraHandle camera) : shared_(std::make_shared<Shared>())
{
    shared_->camera = std::move(camera);
    // A signal that ended one of the library's pauses would cut an exposure or a bring-up short, so the camera's thread
    // takes none; it inherits the mask of this one.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([shared = shared_] { serve(shared); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

CameraWorker::~CameraWorker()
{
    bool abandoned = false;
    {
        const std::lock_guard guard(shared_->mutex);
        shared_->stopping = true;
        abandoned = shared_->stuck;
    }
    shared_->wake.notify_all();
    if (abandoned)
        thread_.detach();
    else
        thread_.join();
}

void CameraWorker::serve(const std::shared_ptr<Shared>& shared)
{
    while (true) {
        std::function<void(VornCamera&)> work;
        {
            std::unique_lock guard(shared->mutex);
            shared->wake.wait(guard, [&shared] { return shared->stopping || !shared->work.empty(); });
            if (shared->work.empty())
                break;
            work = std::move(shared->work.front());
            shared->work.pop();
        }
        work(*shared->camera);
    }
    shared->camera->close();
    shared->camera.reset();
}

bool CameraWorker::stuck() const
{
    const std::lock_guard guard(shared_->mutex);
    return shared_->stuck;
}

bool CameraWorker::post(std::function<void(VornCamera&)> work)
{
    {
        const std::lock_guard guard(shared_->mutex);
        if (shared_->stuck)
            return false;
        shared_->work.push(std::move(work));
    }
    shared_->wake.notify_all();
    return true;
}

bool CameraWorker::await(const std::function<bool(Limit)>& ready, Limit limit, const CancelToken* cancel,
                         const std::function<void()>& tick)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (true) {
        const auto left = std::chrono::duration_cast<Limit>(deadline - std::chrono::steady_clock::now());
        if (ready(std::clamp(left, Limit{0}, TICK)))
            return true;
        if (left <= Limit{0} || (cancel != nullptr && cancel->urgent())) {
            const std::lock_guard guard(shared_->mutex);
            shared_->stuck = true;
            return false;
        }
        if (tick)
            tick();
    }
}

}  // namespace vorncapture
