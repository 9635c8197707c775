// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "camera_access.h"
#include "capture/accessories.h"
#include "capture/cooling.h"
#include "capture/curve_plot.h"
#include "commands.h"
#include "reports.h"

namespace vornctl {
namespace {

using vorncapture::Done;
using vorncapture::Session;
using vorncapture::Status;
using vorncapture::Telemetry;

std::string degrees(const std::optional<double>& celsius)
{
    if (!celsius)
        return "unknown";
    std::array<char, 32> text = {};
    (void)std::snprintf(text.data(), text.size(), "%.1f degC", *celsius);
    return text.data();
}

/// "-5.3 degC, set-point -8.0 degC, power 61 %, 2:30 min", and what is left when that is known.
std::string coolingLine(const std::string& doing, const Telemetry& telemetry, const std::optional<double>& setPoint,
                        double elapsed, double left)
{
    std::string line = doing + ": " + degrees(telemetry.ccdCelsius());
    if (setPoint)
        line += ", set-point " + degrees(setPoint);
    if (telemetry.coolerPowerPercent)
        line += ", power " + std::to_string(std::lround(*telemetry.coolerPowerPercent)) + " %";
    line += ", " + duration(elapsed);
    return left > 0.0 ? line + ", " + duration(left) + " left" : line;
}

/// Estimates when a warm-up ends: when the cooler's power has come down to nothing.
class WarmUpEstimate {
public:
    /// @return seconds left, 0 while that cannot be said.
    double left(double seconds, const std::optional<double>& powerPercent)
    {
        constexpr double FALLEN_PERCENT = 3.0;
        if (!powerPercent)
            return 0.0;
        if (!first_)
            first_ = {seconds, *powerPercent};
        const double fallen = first_->second - *powerPercent;
        return fallen < FALLEN_PERCENT ? 0.0 : (seconds - first_->first) * *powerPercent / fallen;
    }

private:
    std::optional<std::pair<double, double>> first_;  ///< seconds and power
};

/// @param filters of the wheel, for those who asked with --filter-names or in the environment
void tellStatus(Session& session, const Options& options, const vorncapture::FilterNames& filters = {})
{
    std::optional<vorncapture::WheelStatus> wheel;
    const Telemetry telemetry = session.readTelemetry();
    if (session.info().caps.hasFilterWheel) {
        if (const auto read = vorncapture::readWheel(session); read.ok())
            wheel = read.value();
    }
    printStatus(session.info(), telemetry, wheel, filters, 0.0, options.json);
}

/// @return the error of a camera that went silent while its telemetry was read, which leaves values out only.
Status stillThere(const Session& session)
{
    if (!session.stuck())
        return Done{};
    return session.mute();
}

}  // namespace

int coolCommand(const Options& options, const vorncapture::CoolingRequest& request)
{
    return withCamera(options, [&](Opened& camera) -> Status {
        std::optional<double> first;
        const auto show = [&](const Telemetry& telemetry, double setPoint, double elapsed) {
            // The rest of a ramp can be told; how long the sensor takes after it only the sensor knows.
            if (!first)
                first = telemetry.ccdCelsius();
            const double ramp = request.perMinute
                                    ? std::abs(request.targetCelsius - first.value_or(0.0)) / *request.perMinute * 60.0
                                    : 0.0;
            camera.progress.say(coolingLine("cooling", telemetry, setPoint, elapsed, ramp - elapsed));
        };
        Status done = vorncapture::coolDown(camera.session(), request, &camera.cancel, show);
        camera.progress.clear();
        if (done.ok())
            tellStatus(camera.session(), options);
        return done;
    });
}

int warmCommand(const Options& options, bool wait, double limitSeconds)
{
    return withCamera(options, [&](Opened& camera) -> Status {
        WarmUpEstimate estimate;
        const auto show = [&](const Telemetry& telemetry, double, double elapsed) {
            camera.progress.say(coolingLine("warming up until the cooler is off", telemetry, std::nullopt, elapsed,
                                            estimate.left(elapsed, telemetry.coolerPowerPercent)));
        };
        Status done = vorncapture::warmUp(camera.session(), wait, limitSeconds, &camera.cancel, show);
        camera.progress.clear();
        if (done.ok())
            tellStatus(camera.session(), options);
        return done;
    });
}

int statusCommand(const Options& options)
{
    const auto filters = vorncapture::FilterNames::parse(options.filterNames);
    if (!filters.ok())
        return report(filters.error());
    return withCamera(options, [&options, &filters](Opened& camera) -> Status {
        camera.progress.clear();
        tellStatus(camera.session(), options, filters.value());
        return stillThere(camera.session());
    });
}

int monitorCommand(const Options& options, const MonitorRequest& request)
{
    const auto filters = vorncapture::FilterNames::parse(options.filterNames);
    if (!filters.ok())
        return report(filters.error());
    if (!request.plotPath.empty()) {
        const Status possible = vorncapture::checkCurvePlot(request.plotPath, options.force);
        if (!possible.ok())
            return report(withForce(possible.error()));
    }
    return withCamera(options, [&](Opened& camera) -> Status {
        camera.progress.clear();
        vorncapture::Clock& clock = camera.session().clock();
        const double start = clock.steadySeconds();
        vorncapture::CoolingCurve curve{camera.session().info().name, clock.utc(), {}};
        const auto stopped = [&camera] { return camera.cancel.requested(); };
        Status outcome = Done{};
        for (unsigned int look = 0; (request.count == 0 || look < request.count) && !stopped() && outcome.ok();
             ++look) {
            if (!vorncapture::sleepUntil(clock, start + look * request.intervalSeconds, &camera.cancel))
                break;
            const double elapsed = clock.steadySeconds() - start;
            const Telemetry telemetry = camera.session().readTelemetry();
            outcome = stillThere(camera.session());
            if (!outcome.ok())
                break;
            std::optional<vorncapture::WheelStatus> wheel;
            if (camera.session().info().caps.hasFilterWheel) {
                if (const auto read = vorncapture::readWheel(camera.session()); read.ok())
                    wheel = read.value();
                else
                    outcome = read.error();
            }
            printStatusLine(telemetry, wheel, filters.value(), elapsed, options.json);
            if (Status told = flushOutput(); outcome.ok() && !told.ok())
                outcome = told;
            curve.points.push_back(
                {elapsed, telemetry.ccdCelsius(), telemetry.targetCelsius, telemetry.coolerPowerPercent});
        }
        // Also after a wish to stop, which is how a monitor usually ends.
        if (!request.plotPath.empty()) {
            Status drawn = vorncapture::writeCurvePlot(curve, request.plotPath, options.force);
            if (!drawn.ok())
                return drawn;
            if (!options.quiet)
                (void)std::fprintf(stderr, "%s\n", request.plotPath.c_str());
        }
        if (outcome.ok() && stopped())
            return vorncapture::Error{vorncapture::ErrorKind::CANCELLED, "stopped", ""};
        return outcome;
    });
}

}  // namespace vornctl
