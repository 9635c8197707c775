// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>

#include "capture/session.h"

namespace vorncapture {

/// A set-point that moves evenly from one temperature to another, so that neither sensor nor cooler is shocked.
class TemperatureRamp {
public:
    /// @param perMinute degrees Celsius a minute, above 0; empty: at once
    TemperatureRamp(double from, double to, std::optional<double> perMinute);

    /// @return the set-point @p seconds after the start.
    double at(double seconds) const;
    /// @return seconds until the end is reached.
    double duration() const { return duration_; }

private:
    double from_;
    double to_;
    double duration_ = 0.0;
};

/// Tells when a temperature has come to rest at a target.
class TemperatureWatch {
public:
    static constexpr double TOLERANCE_CELSIUS = 0.5;
    static constexpr double HOLD_SECONDS = 30.0;

    explicit TemperatureWatch(double target) : target_(target) {}

    /// Takes a reading; @p seconds never goes back.
    void add(double seconds, double celsius);
    /// @return whether all readings of the last HOLD_SECONDS were within TOLERANCE_CELSIUS of the target.
    bool settled() const { return settled_; }

private:
    double target_;
    double nearSince_ = 0.0;
    bool near_ = false;
    bool settled_ = false;
};

/// Finds out that a cooler cannot reach its target, because the air around it is colder or because its power does not
/// suffice: it then runs at 0 or 100 per cent and the temperature no longer moves.
class ReachWatch {
public:
    static constexpr double STILL_SECONDS = 45.0;
    static constexpr double STILL_SECONDS_CLOSE =
        180.0;  ///< with full power near the target, where a sensor slows down
    static constexpr double CLOSE_CELSIUS = 3.0;

    explicit ReachWatch(double target) : target_(target) {}

    /// Takes a reading; @p seconds never goes back. A reading without temperature or power says nothing.
    void add(double seconds, double setPoint, const Telemetry& telemetry);

    /// @return what is in the way, or nothing.
    std::optional<Error> obstacle() const { return obstacle_; }

private:
    enum class Limit { NONE, NO_POWER, FULL_POWER };

    double target_;
    Limit limit_ = Limit::NONE;
    double since_ = 0.0;    ///< of the last movement towards the target
    double celsius_ = 0.0;  ///< at that time
    std::optional<Error> obstacle_;
};

/// How to cool down.
struct CoolingRequest {
    double targetCelsius = 0.0;
    std::optional<double> perMinute = std::nullopt;  ///< ramp in degrees Celsius a minute
    bool wait = true;                                ///< until the temperature has settled
    double limitSeconds = 1800.0;                    ///< longest wait, the ramp not counted
};

/// Called in the caller's thread about once a second with what the camera says.
using CoolingProgress = std::function<void(const Telemetry& telemetry, double setPointCelsius, double elapsedSeconds)>;

/// Lowest and highest target that make sense. Cameras count temperatures from -60 degrees up: a lower target would wrap
/// round and heat the sensor.
constexpr double LOWEST_TARGET_CELSIUS = -60.0;
constexpr double HIGHEST_TARGET_CELSIUS = 40.0;

/// Cools the sensor to a target. When it is cancelled the cooler goes on towards the set-point it has.
/// Errors: UNSUPPORTED, BAD_REQUEST (no such target), NOT_REACHED (the target cannot be reached, or was not
/// in time), CANCELLED and those of Session::operate().
Status coolDown(Session& session, const CoolingRequest& request, const CancelToken* cancel = nullptr,
                const CoolingProgress& progress = {});

/// Starts the camera's own controlled warm-up and, with @p wait, waits until the cooler is off.
/// Errors: UNSUPPORTED, NOT_REACHED (not in time), CANCELLED (the warm-up goes on) and those of
/// Session::operate().
Status warmUp(Session& session, bool wait, double limitSeconds = 3600.0, const CancelToken* cancel = nullptr,
              const CoolingProgress& progress = {});

}  // namespace vorncapture
