// SPDX-License-Identifier: MIT
#include "capture/cooling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>

namespace vorncapture {
namespace {

constexpr double POLL_SECONDS = 1.0;
constexpr double FULL_POWER_PERCENT = 99.0;  // coolers count their power in steps
constexpr double NO_POWER_PERCENT = 1.0;
constexpr double AWAY_CELSIUS = 1.0;            // from the set-point, where a cooler that could would do something else
constexpr double MOVED_CELSIUS = 0.25;          // towards the target, or
constexpr double MOVED_PART = 0.02;             // of the way that is left
constexpr double SET_POINT_STEP_CELSIUS = 0.1;  // finer steps of a ramp are not worth a command

std::string degrees(double celsius)
{
    std::array<char, 32> text = {};
    (void)std::snprintf(text.data(), text.size(), "%.1f degC", celsius);
    return text.data();
}

Status setTarget(Session& session, double celsius)
{
    return session.operate("the cooler takes no target",
                           [celsius](VornCamera& camera) { return camera.setCooling(static_cast<float>(celsius)); });
}

/// Converting a target ends the process when the camera never named the encoding of its temperatures, so a temperature
/// must have come through before.
Status checkCooler(const Session& session, const Telemetry& telemetry)
{
    const COOLER_TYPE cooler = session.info().caps.cooler;
    if (cooler == COOLER_NONE)
        return session.lacks("cooler");
    if (cooler == COOLER_ALWAYSON)
        return Error{
            ErrorKind::UNSUPPORTED,
            "the cooler of " + session.info().name + " runs whenever the camera is powered; it takes no target", ""};
    if (!telemetry.ccdCelsius())
        return Error{ErrorKind::FAILED, "the camera does not tell its sensor's temperature",
                     "Without it cooling cannot be controlled. Switch the camera off and on again."};
    return Done{};
}

}  // namespace

TemperatureRamp::TemperatureRamp(double from, double to, std::optional<double> perMinute) : from_(from), to_(to)
{
    if (perMinute)
        duration_ = std::abs(to - from) / *perMinute * 60.0;
}

double TemperatureRamp::at(double seconds) const
{
    if (seconds >= duration_)
        return to_;
    return from_ + (to_ - from_) * std::max(0.0, seconds) / duration_;
}

void TemperatureWatch::add(double seconds, double celsius)
{
    const bool near = std::abs(celsius - target_) <= TOLERANCE_CELSIUS;
    if (near && !near_)
        nearSince_ = seconds;
    near_ = near;
    settled_ = near && seconds - nearSince_ >= HOLD_SECONDS;
}

void ReachWatch::add(double seconds, double setPoint, const Telemetry& telemetry)
{
    const auto celsius = telemetry.ccdCelsius();
    const auto power = telemetry.coolerPowerPercent;
    if (!celsius || !power)
        return;
    Limit limit = Limit::NONE;
    if (*power >= FULL_POWER_PERCENT && *celsius > setPoint + AWAY_CELSIUS)
        limit = Limit::FULL_POWER;
    else if (*power <= NO_POWER_PERCENT && *celsius < setPoint - AWAY_CELSIUS)
        limit = Limit::NO_POWER;
    const double left = std::abs(*celsius - target_);
    const double moved = limit == Limit::FULL_POWER ? celsius_ - *celsius : *celsius - celsius_;
    // Thermometers count in steps of up to a third of a degree, and a sensor slows down as it gets nearer.
    if (limit != limit_ || moved >= std::max(MOVED_CELSIUS, MOVED_PART * left)) {
        limit_ = limit;
        since_ = seconds;
        celsius_ = *celsius;
    }
    const bool close = limit == Limit::FULL_POWER && left <= CLOSE_CELSIUS;
    if (limit == Limit::NONE || seconds - since_ < (close ? STILL_SECONDS_CLOSE : STILL_SECONDS))
        return;
    Error error{ErrorKind::NOT_REACHED, "the cooler cannot reach " + degrees(target_) + ": ", ""};
    if (limit == Limit::FULL_POWER) {
        error.text += "with all its power the sensor stays at " + degrees(*celsius);
        error.advice = "Choose a target of " + degrees(std::ceil(*celsius) + CLOSE_CELSIUS) +
                       " or above, which leaves it power to regulate with, or let colder air reach the camera.";
    } else {
        error.text += "without any power the sensor stays at " + degrees(*celsius);
        error.advice = "It can only cool, and the air around the camera is colder than the target: choose one below " +
                       degrees(*celsius) + ".";
    }
    error.advice += " The set-point stays at " + degrees(setPoint) + " until it is changed.";
    obstacle_ = error;
}

Status coolDown(Session& session, const CoolingRequest& request, const CancelToken* cancel,
                const CoolingProgress& progress)
{
    const double target = request.targetCelsius;
    if (!(target >= LOWEST_TARGET_CELSIUS) || !(target <= HIGHEST_TARGET_CELSIUS))
        return Error{ErrorKind::BAD_REQUEST,
                     "a target lies from " + degrees(LOWEST_TARGET_CELSIUS) + " to " + degrees(HIGHEST_TARGET_CELSIUS),
                     ""};
    if (request.perMinute && !(*request.perMinute > 0.0))
        return Error{ErrorKind::BAD_REQUEST, "a ramp has more than 0 degrees a minute", ""};
    Telemetry telemetry = session.readTelemetry();
    Status possible = checkCooler(session, telemetry);
    if (!possible.ok())
        return possible;

    Clock& clock = session.clock();
    const double start = clock.steadySeconds();
    const TemperatureRamp ramp(telemetry.ccdCelsius().value_or(target), target, request.perMinute);
    TemperatureWatch watch(target);
    ReachWatch reach(target);
    std::optional<double> commanded;
    while (true) {
        const double elapsed = clock.steadySeconds() - start;
        const double setPoint = ramp.at(elapsed);
        const bool last = setPoint == target;
        if (!commanded || (last ? *commanded != target : std::abs(setPoint - *commanded) >= SET_POINT_STEP_CELSIUS)) {
            Status done = setTarget(session, setPoint);
            if (!done.ok())
                return done;
            commanded = setPoint;
        }
        if (last && !request.wait)
            return Done{};
        telemetry = session.readTelemetry();
        if (telemetry.ccdCelsius())
            watch.add(elapsed, *telemetry.ccdCelsius());
        if (progress)
            progress(telemetry, setPoint, elapsed);
        if (watch.settled())
            return Done{};
        reach.add(elapsed, setPoint, telemetry);
        if (const auto obstacle = reach.obstacle())
            return *obstacle;
        if (elapsed > ramp.duration() + request.limitSeconds) {
            const auto reached = telemetry.ccdCelsius();
            return Error{ErrorKind::NOT_REACHED,
                         "the sensor has not settled at " + degrees(target) + " in " +
                             std::to_string(std::lround(request.limitSeconds)) + " s" +
                             (reached ? "; it is at " + degrees(*reached) : std::string()),
                         "The cooler goes on towards the target. Wait longer, or choose a higher target."};
        }
        if (!sleepUntil(clock, clock.steadySeconds() + POLL_SECONDS, cancel))
            return Error{ErrorKind::CANCELLED, "stopped waiting; the cooler goes on towards " + degrees(*commanded),
                         ""};
    }
}

Status warmUp(Session& session, bool wait, double limitSeconds, const CancelToken* cancel,
              const CoolingProgress& progress)
{
    Telemetry telemetry = session.readTelemetry();
    Status possible = checkCooler(session, telemetry);
    if (!possible.ok())
        return possible;
    Status begun =
        session.operate("the warm-up does not start", [](VornCamera& camera) { return camera.initiateWarmUp(); });
    if (!begun.ok() || !wait)
        return begun;
    Clock& clock = session.clock();
    const double start = clock.steadySeconds();
    while (true) {
        const double elapsed = clock.steadySeconds() - start;
        telemetry = session.readTelemetry();
        if (progress)
            progress(telemetry, HIGHEST_TARGET_CELSIUS, elapsed);
        if (telemetry.coolingState == COOLING_INACTIVE)
            return Done{};
        if (elapsed > limitSeconds)
            return Error{ErrorKind::NOT_REACHED,
                         "the camera is still warming up after " + std::to_string(std::lround(limitSeconds)) + " s",
                         "It goes on by itself. Look again with: vornctl status"};
        if (!sleepUntil(clock, clock.steadySeconds() + POLL_SECONDS, cancel))
            return Error{ErrorKind::CANCELLED, "stopped waiting; the camera goes on warming up", ""};
    }
}

}  // namespace vorncapture
