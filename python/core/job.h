// SPDX-License-Identifier: MIT
#pragma once

#include <pybind11/pybind11.h>

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>

#include "capture/cancel_token.h"

namespace vornpy {

/// Makes a Python object of something; called with the interpreter's lock held. It must hold no Python object itself,
/// because it is made, and may be destroyed, in a thread that does not have that lock.
using Deliver = std::function<pybind11::object()>;

/// Work on a camera in a thread of its own, which never touches the interpreter. Whoever wants its outcome waits in
/// slices and so notices signals; the interpreter may also end while the work goes on.
class Job {
public:
    /// What the work and those who wait for it share.
    class State {
    public:
        vorncapture::CancelToken cancel;

        /// Asks the work to stop, unless it has been asked before: a second request would mean not to wait for the
        /// camera.
        void cancelOnce()
        {
            if (!cancel.requested())
                cancel.request();
        }

        /// Keeps the newest news of the work; older ones that nobody has taken are dropped.
        void report(Deliver news);

    private:
        friend class Job;
        std::mutex mutex_;
        std::condition_variable ended_;
        bool done_ = false;
        Deliver news_;
        Deliver outcome_;
        std::exception_ptr failure_;
        int wakeDescriptor_ = -1;
    };

    /// Starts @p work, which returns its outcome or throws.
    explicit Job(std::function<Deliver(State&)> work);

    /// Asks work that is not done to stop, and leaves it alone.
    ~Job();
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    /// Waits without the interpreter's lock, at most @p seconds; less than 0: without limit. Raises what a signal
    /// handler raises, KeyboardInterrupt above all; the work goes on then.
    /// @return whether the work is done
    bool wait(double seconds);

    bool done() const;

    /// Asks the work to stop; with @p atOnce not to wait for the camera either.
    void cancel(bool atOnce);

    /// @return what the work reported since the last call; None when nothing.
    pybind11::object news();

    /// @return the outcome of work that is done; raises its error.
    pybind11::object result();

    /// @return a descriptor, owned by the job, that becomes readable when the work is done.
    int descriptor();

private:
    std::shared_ptr<State> state_;
};

}  // namespace vornpy
