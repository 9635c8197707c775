// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <array>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "capture/session.h"
#include "job.h"

namespace vornpy {

/// What only one caller at a time can do with a camera; the others wait for their turn.
enum class Turn { EXPOSURE, WHEEL, GUIDING, NONE };

/// A camera as several Python threads share it. Every operation runs as a Job.
class OpenCamera : public std::enable_shared_from_this<OpenCamera> {
public:
    using Work = std::function<Deliver(vorncapture::Session&, Job::State&)>;

    /// Opens the camera that @p selector means, see vorncapture::CameraSelector.
    /// @param timeoutSeconds longest wait for any answer of the camera; 0: as capture has it
    /// @return a job that delivers an OpenCamera
    static std::unique_ptr<Job> open(const std::string& selector, double timeoutSeconds);

    explicit OpenCamera(std::unique_ptr<vorncapture::Session> session);
    ~OpenCamera();
    OpenCamera(const OpenCamera&) = delete;
    OpenCamera& operator=(const OpenCamera&) = delete;

    /// Starts @p work when it is its turn. Raises Closed after close() and in a child process.
    std::unique_ptr<Job> start(Turn turn, Work work);

    /// Stops whatever runs, and closes the camera when all has ended. May be called again; not when inherited().
    /// @return a job that delivers None; to cancel it stops waiting for the camera
    std::unique_ptr<Job> close();

    /// Asks running exposures, and those that wait for their turn, to stop.
    void abort();

    bool closed() const;

    /// @return true in a child process: it has no thread that makes the calls, and the camera is its parent's.
    bool inherited() const { return getpid() != process_; }

    const vorncapture::CameraInfo& info() const { return info_; }

private:
    struct Running {
        Job::State* state;
        Turn turn;
        bool operator<(const Running& other) const { return state < other.state; }
    };

    /// Lets one in at a time, in no particular order.
    struct Gate {
        std::mutex mutex;
        std::condition_variable freed;
        bool taken = false;
    };

    class Presence;
    class Passage;

    Deliver run(Turn turn, const Work& work, Job::State& state);

    const vorncapture::CameraInfo info_;
    const pid_t process_ = getpid();
    mutable std::mutex mutex_;
    std::condition_variable idle_;
    std::shared_ptr<vorncapture::Session> session_;  ///< null when closed
    bool closing_ = false;
    std::set<Running> running_;
    std::array<Gate, 3> gates_;
};

}  // namespace vornpy
