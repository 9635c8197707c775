// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "capture/camera_worker.h"
#include "capture/clock.h"
#include "capture/exposure_plan.h"
#include "capture/frame.h"
#include "capture/result.h"

namespace vorncapture {

/// Where an exposure stands.
enum class Phase {
    STARTING,  ///< the camera is being prepared
    EXPOSING,  ///< the sensor integrates
    READING,   ///< the picture is being read out
};

/// Called in the caller's thread while an exposure runs: @p elapsed of @p total seconds of integration are over. The
/// first call with READING of a long exposure comes before the camera is told to end it and waits for this function, so
/// that the caller may keep the camera free of other work during the readout.
using ProgressCallback = std::function<void(Phase phase, double elapsed, double total)>;

/// How long to wait for a camera before it counts as mute; real time, whatever clock the session has.
struct Watchdog {
    CameraWorker::Limit open{60000};     ///< opening, firmware load and identification included
    CameraWorker::Limit command{60000};  ///< any single operation
    double readoutBytesPerSecond = 1e5;  ///< the slowest readout imaginable; added to `command` for the image
};

/// How to open a camera.
struct SessionOptions {
    std::shared_ptr<Clock> clock = Clock::system();
    Watchdog watchdog = {};
    const CancelToken* cancel = nullptr;  ///< ends a wait for a mute camera; may be null, must outlive open()
    int listIndex = -1;                   ///< place in VornCamera::list(), used to explain failures; -1 unknown
};

/// One opened camera: it is open from open() until the object goes, and every picture is taken through expose().
/// All members may be called from any thread; calls wait for each other, an exposure lets others in while it waits.
class Session {
public:
    /// Opens @p camera. The largest single bulk read is set to 1 MiB, because all USB programs together share one
    /// limit on buffers (16 MiB unless raised) and a whole frame in one piece would exceed it.
    /// Errors: PERMISSION, BUSY, DEVICE_LOST, TIMEOUT, FAILED, CANCELLED.
    static Result<std::unique_ptr<Session>> open(CameraHandle camera, const SessionOptions& options = {});

    /// @return what the camera said about itself.
    const CameraInfo& info() const { return info_; }

    /// Reads temperatures, cooler and gain; what cannot be read stays empty.
    Telemetry readTelemetry();

    /// Takes one picture. Fails at once, without touching the camera, when the request does not fit it.
    /// After a failure the shutter has been closed, and the camera was closed and opened again to find the cause.
    /// @param cancel ends the exposure when requested; may be null. A short exposure and a readout that has begun
    ///     come to their end first, and their picture is dropped.
    /// Errors: BAD_REQUEST, CANCELLED, FAILED, DEVICE_LOST, TIMEOUT.
    Result<Frame> expose(const ExposureRequest& request, const CancelToken* cancel = nullptr,
                         const ProgressCallback& progress = {});

    /// Runs @p work(VornCamera&) in the camera's thread, for operations that have no member here.
    /// @return its result, or nothing when the camera does not answer
    template <typename Work>
    auto call(Work work)
    {
        return worker_.run(std::move(work), options_.watchdog.command);
    }

    /// Runs @p work, an operation of the library whose result says whether it succeeded, in the camera's thread.
    /// After a failure the camera was closed and opened again to find the cause.
    /// @param complaint what a failure is called, "the shutter does not move"
    /// Errors: FAILED, DEVICE_LOST, TIMEOUT.
    Status operate(const std::string& complaint, const std::function<bool(VornCamera&)>& work);

    /// Finds out whether the image endpoint of a register camera (IIDC) is halted: after one stalled transfer it stays
    /// so, in later programs too, and no call of the library ends that. Takes the shortest picture. @return the error
    /// that says so and how to cure it, or nothing, also for other families and a camera that does not answer
    std::optional<Error> findStall();

    /// @return the error of a request that needs what this camera does not have: "Vorn K12 has no filter wheel".
    Error lacks(const std::string& what) const;

    /// @return the error of a camera that does not answer.
    Error mute() const;

    /// @return the clock that waits go by.
    Clock& clock() { return *options_.clock; }

    /// @return true when a call on the camera never came back. Its thread is then left alone, and the process should
    /// end without waiting for it.
    bool stuck() const { return worker_.stuck(); }

private:
    struct Integration;

    Session(CameraHandle camera, const SessionOptions& options);

    Status openCamera();
    Status setModes(const ExposureRequest& request);
    Result<Integration> startLong(const ExposurePlan& plan);
    Status waitLong(const ExposurePlan& plan, Integration& integration, const CancelToken* cancel,
                    const ProgressCallback& progress);
    Result<Frame> readOut(const ExposurePlan& plan, Integration integration, const CancelToken* cancel,
                          const ProgressCallback& progress);
    Error abandon(const std::string& complaint, const std::string& failure);
    Error cancelled(const ExposurePlan& plan, double exposedSeconds);

    SessionOptions options_;
    CameraWorker worker_;
    CameraInfo info_;
};

}  // namespace vorncapture
