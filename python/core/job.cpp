// SPDX-License-Identifier: MIT
#include "job.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "interpreter_released.h"

namespace py = pybind11;

namespace vornpy {
namespace {

using Seconds = std::chrono::duration<double>;

/// How soon a signal is noticed.
constexpr Seconds SLICE{0.02};

}  // namespace

void Job::State::report(Deliver news)
{
    const std::lock_guard guard(mutex_);
    news_ = std::move(news);
}

Job::Job(std::function<Deliver(State&)> work) : state_(std::make_shared<State>())
{
    // Signals are for the interpreter's threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread([state = state_, work = std::move(work)]() mutable {
            Deliver outcome;
            std::exception_ptr failure;
            try {
                outcome = work(*state);
            } catch (...) {
                failure = std::current_exception();
            }
            work = nullptr;  // a camera may close here, before anybody hears that the work is done
            const std::lock_guard guard(state->mutex_);
            state->outcome_ = std::move(outcome);
            state->failure_ = failure;
            state->done_ = true;
            state->ended_.notify_all();
            if (state->wakeDescriptor_ >= 0)
                (void)eventfd_write(state->wakeDescriptor_, 1);
        }).detach();
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Job::~Job()
{
    const std::lock_guard guard(state_->mutex_);
    state_->cancelOnce();
    if (state_->wakeDescriptor_ >= 0)
        ::close(state_->wakeDescriptor_);
    state_->wakeDescriptor_ = -1;
}

bool Job::wait(double seconds)
{
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const auto state = state_;
    while (true) {
        const Seconds left(seconds < 0.0 ? SLICE : Seconds(seconds) - Seconds(Clock::now() - begin));
        bool done = false;
        {
            const InterpreterReleased released;
            std::unique_lock guard(state->mutex_);
            done = state->ended_.wait_for(guard, std::clamp(left, Seconds(0.0), SLICE), [&] { return state->done_; });
        }
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
        if (done || left <= Seconds(0.0))
            return done;
    }
}

bool Job::done() const
{
    const std::lock_guard guard(state_->mutex_);
    return state_->done_;
}

void Job::cancel(bool atOnce)
{
    state_->cancelOnce();
    if (atOnce && !state_->cancel.urgent())
        state_->cancel.request();
}

py::object Job::news()
{
    Deliver news;
    {
        const std::lock_guard guard(state_->mutex_);
        news = std::exchange(state_->news_, nullptr);
    }
    return news ? news() : py::none();
}

py::object Job::result()
{
    Deliver outcome;
    std::exception_ptr failure;
    {
        const std::lock_guard guard(state_->mutex_);
        if (!state_->done_)
            throw py::value_error("the work is not done yet");
        outcome = state_->outcome_;
        failure = state_->failure_;
    }
    if (failure)
        std::rethrow_exception(failure);
    return outcome();
}

int Job::descriptor()
{
    const std::lock_guard guard(state_->mutex_);
    if (state_->wakeDescriptor_ < 0) {
        state_->wakeDescriptor_ = eventfd(state_->done_ ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (state_->wakeDescriptor_ < 0) {
            PyErr_SetFromErrno(PyExc_OSError);
            throw py::error_already_set();
        }
    }
    return state_->wakeDescriptor_;
}

}  // namespace vornpy
