// SPDX-License-Identifier: MIT
#include "open_camera.h"

#include <chrono>
#include <utility>

#include "capture/camera_selection.h"
#include "listing.h"
#include "python_errors.h"

namespace py = pybind11;

namespace vornpy {
namespace {

using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::Session;

constexpr std::chrono::milliseconds CANCEL_STEP{20};

[[noreturn]] void raiseClosed(const std::string& text, const std::string& advice)
{
    const py::object type = py::module_::import("vornccd._errors").attr("Closed");
    const py::object exception = type(text, advice);
    PyErr_SetObject(type.ptr(), exception.ptr());
    throw py::error_already_set();
}

/// @return what raises @p error when the outcome is asked for.
Deliver failure(const Error& error)
{
    return [error]() -> py::object { raise(error); };
}

vorncapture::Result<std::unique_ptr<Session>> openNow(const std::string& text, double timeoutSeconds,
                                                      const vorncapture::CancelToken& cancel)
{
    const auto selector = vorncapture::CameraSelector::parse(text);
    if (!selector.ok())
        return selector.error();
    vorncapture::SessionOptions options;
    options.cancel = &cancel;
    if (timeoutSeconds > 0.0) {
        const auto limit = std::chrono::milliseconds(static_cast<int64_t>(timeoutSeconds * 1000.0));
        options.watchdog.open = limit;
        options.watchdog.command = limit;
    }
    return vorncapture::openSelected(listInTurn(), selector.value(), options);
}

}  // namespace

std::unique_ptr<Job> OpenCamera::open(const std::string& selector, double timeoutSeconds)
{
    return std::make_unique<Job>([selector, timeoutSeconds](Job::State& state) -> Deliver {
        auto session = openNow(selector, timeoutSeconds, state.cancel);
        if (!session.ok())
            return failure(session.error());
        const auto camera = std::make_shared<OpenCamera>(std::move(session.value()));
        return [camera] { return py::cast(camera); };
    });
}

OpenCamera::OpenCamera(std::unique_ptr<Session> session) : info_(session->info()), session_(std::move(session)) {}

OpenCamera::~OpenCamera()
{
    if (inherited())
        new std::shared_ptr<Session>(std::move(session_));
}

std::unique_ptr<Job> OpenCamera::start(Turn turn, Work work)
{
    if (inherited())
        raiseClosed("the " + info_.name + " was opened by another process, this one's parent",
                    "Open it in the process that uses it.");
    if (closed())
        raiseClosed("the " + info_.name + " is closed", "Open it again with vornccd.open().");
    return std::make_unique<Job>([self = shared_from_this(), turn, work = std::move(work)](Job::State& state) {
        return self->run(turn, work, state);
    });
}

/// Work that close() has to wait for, as long as it lives.
class OpenCamera::Presence {
public:
    Presence(OpenCamera& camera, Running running) : camera_(camera), running_(running)
    {
        const std::lock_guard guard(camera_.mutex_);
        if (!camera_.closing_)
            session_ = camera_.session_;
        camera_.running_.insert(running_);
    }
    ~Presence()
    {
        const std::lock_guard guard(camera_.mutex_);
        session_.reset();  // never the last one: the camera's own goes when nothing runs
        camera_.running_.erase(running_);
        camera_.idle_.notify_all();
    }
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;

    /// @return null when the camera has been closed meanwhile.
    Session* session() const { return session_.get(); }

private:
    OpenCamera& camera_;
    Running running_;
    std::shared_ptr<Session> session_;
};

/// A turn at a gate, from when it came until the object goes.
class OpenCamera::Passage {
public:
    Passage(Gate* gate, const vorncapture::CancelToken& cancel) : gate_(gate)
    {
        if (gate_ == nullptr)
            return;
        std::unique_lock guard(gate_->mutex);
        while (gate_->taken && !cancel.requested())
            gate_->freed.wait_for(guard, CANCEL_STEP);
        through_ = !gate_->taken;
        gate_->taken = true;
    }
    ~Passage()
    {
        if (gate_ == nullptr || !through_)
            return;
        const std::lock_guard guard(gate_->mutex);
        gate_->taken = false;
        gate_->freed.notify_one();
    }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    /// @return false when cancelled before the turn came.
    bool through() const { return through_; }

private:
    Gate* gate_;
    bool through_ = true;
};

Deliver OpenCamera::run(Turn turn, const Work& work, Job::State& state)
{
    const Presence presence(*this, {&state, turn});
    if (presence.session() == nullptr)
        return failure({ErrorKind::CANCELLED, "the camera was closed meanwhile", ""});
    const Passage passage(turn == Turn::NONE ? nullptr : &gates_.at(static_cast<size_t>(turn)), state.cancel);
    if (!passage.through())
        return failure({ErrorKind::CANCELLED, "stopped before it began", ""});
    return work(*presence.session(), state);
}

std::unique_ptr<Job> OpenCamera::close()
{
    {
        const std::lock_guard guard(mutex_);
        closing_ = true;
        for (const Running& running : running_)
            running.state->cancelOnce();
    }
    return std::make_unique<Job>([self = shared_from_this()](Job::State& state) -> Deliver {
        std::shared_ptr<Session> session;
        {
            std::unique_lock guard(self->mutex_);
            while (!self->running_.empty()) {
                for (const Running& running : self->running_) {
                    if (state.cancel.requested() && !running.state->cancel.urgent())
                        running.state->cancel.request();
                }
                self->idle_.wait_for(guard, CANCEL_STEP);
            }
            session = std::move(self->session_);
        }
        session.reset();
        return []() -> py::object { return py::none(); };
    });
}

void OpenCamera::abort()
{
    const std::lock_guard guard(mutex_);
    for (const Running& running : running_) {
        if (running.turn == Turn::EXPOSURE)
            running.state->cancelOnce();
    }
}

bool OpenCamera::closed() const
{
    const std::lock_guard guard(mutex_);
    return closing_;
}

}  // namespace vornpy
