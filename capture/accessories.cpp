// SPDX-License-Identifier: MIT
#include "capture/accessories.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

namespace vorncapture {
namespace {

constexpr double WHEEL_POLL_SECONDS = 0.25;
constexpr double WHEEL_LIMIT_SECONDS = 60.0;
constexpr double PULSE_STEP_SECONDS = 0.02;  // how soon a cancellation ends a pulse

Error cancelledError(const std::string& what)
{
    return {ErrorKind::CANCELLED, "stopped; " + what, ""};
}

std::optional<Error> lineProblem(const Session& session, uint16_t mask)
{
    const unsigned int count = session.info().caps.lineCount;
    if (count == 0)
        return session.lacks("GPIO lines");
    if (count < 16 && mask >> count != 0)
        return Error{ErrorKind::BAD_REQUEST,
                     session.info().name + " has " + std::to_string(count) +
                         " GPIO lines, so that the largest mask is " + std::to_string((1U << count) - 1),
                     ""};
    return std::nullopt;
}

}  // namespace

Result<WheelStatus> readWheel(Session& session)
{
    if (!session.info().caps.hasFilterWheel)
        return session.lacks("filter wheel");
    const auto wheel = std::make_shared<WheelStatus>();  // the camera's thread may outlive this call
    const Status done = session.operate("the filter wheel does not answer", [wheel](VornCamera& camera) {
        return camera.getFilterWheelStatus(&wheel->count, &wheel->moving, &wheel->current, &wheel->target);
    });
    if (!done.ok())
        return done.error();
    return *wheel;
}

Status turnWheel(Session& session, unsigned int position, const CancelToken* cancel)
{
    Result<WheelStatus> wheel = readWheel(session);
    if (!wheel.ok())
        return wheel.error();
    const unsigned int count = wheel.value().count;
    if (position == 0 || position > count)
        return Error{
            ErrorKind::BAD_REQUEST,
            "the filter wheel has the positions 1 to " + std::to_string(count) + ", not " + std::to_string(position),
            ""};
    Status sent = session.operate("the filter wheel does not turn",
                                  [position](VornCamera& camera) { return camera.setFilter(position); });
    if (!sent.ok())
        return sent;
    Clock& clock = session.clock();
    const double deadline = clock.steadySeconds() + WHEEL_LIMIT_SECONDS;
    while (true) {
        wheel = readWheel(session);
        if (!wheel.ok())
            return wheel.error();
        if (!wheel.value().moving && wheel.value().current == position)
            return Done{};
        if (clock.steadySeconds() > deadline)
            return Error{ErrorKind::FAILED,
                         "the filter wheel stands at " + std::to_string(wheel.value().current) + " and not at " +
                             std::to_string(position),
                         "Does something block it? Switch the camera off and on again."};
        if (!sleepUntil(clock, clock.steadySeconds() + WHEEL_POLL_SECONDS, cancel))
            return cancelledError("the filter wheel turns on to its position by itself");
    }
}

Status moveShutter(Session& session, bool open)
{
    if (!session.info().caps.hasShutter)
        return session.lacks("shutter");
    return session.operate("the shutter does not move", [open](VornCamera& camera) { return camera.setShutter(open); });
}

Status guidePulse(Session& session, GuideRelay relay, double seconds, const CancelToken* cancel)
{
    if (!session.info().caps.hasGuidePort)
        return session.lacks("guide port");
    if (!(seconds > 0.0) || seconds > LONGEST_PULSE_SECONDS)
        return Error{ErrorKind::BAD_REQUEST, "a guide pulse lasts from 1 to 60000 milliseconds", ""};
    const auto mask = static_cast<unsigned short>(relay);
    const auto openAll = [](VornCamera& camera) { return camera.setGuideRelays(0); };
    Status closed = session.operate("the guide relay does not close",
                                    [mask](VornCamera& camera) { return camera.setGuideRelays(mask); });
    if (!closed.ok()) {
        (void)session.call(openAll);  // it may have closed all the same
        return closed;
    }
    const double end = session.clock().steadySeconds() + seconds;
    const bool whole = sleepUntil(session.clock(), end, cancel, {}, PULSE_STEP_SECONDS);
    Status opened = session.operate("the guide relays do not open", openAll);
    if (!opened.ok()) {
        const auto again = session.call(openAll);  // the camera has been opened anew
        Error error = opened.error();
        if (!again.value_or(false))
            error.advice = "The mount may still be moving: pull the guide cable. " + error.advice;
        return error;
    }
    if (!whole)
        return cancelledError("the guide relays are open");
    return opened;
}

Status setLineDirections(Session& session, uint16_t outputs)
{
    if (const auto problem = lineProblem(session, outputs))
        return *problem;
    return session.operate("the GPIO lines cannot be set up",
                           [outputs](VornCamera& camera) { return camera.setGPIODirection(outputs); });
}

Status driveLines(Session& session, uint16_t levels)
{
    if (const auto problem = lineProblem(session, levels))
        return *problem;
    return session.operate("the GPIO lines cannot be driven",
                           [levels](VornCamera& camera) { return camera.setGPIO(levels); });
}

Result<uint16_t> readLines(Session& session)
{
    if (const auto problem = lineProblem(session, 0))
        return *problem;
    const auto levels = std::make_shared<unsigned short>(0);
    const Status done = session.operate("the GPIO lines cannot be read",
                                        [levels](VornCamera& camera) { return camera.getGPIO(levels.get()); });
    if (!done.ok())
        return done.error();
    return *levels;
}

Result<GainSetting> readGain(Session& session)
{
    if (session.info().family != ADVANCED)
        return session.lacks("gain setting");
    const auto setting = std::make_shared<GainSetting>();
    const Status done = session.operate("the gain cannot be read", [setting](VornCamera& camera) {
        return camera.getGain(&setting->gain, &setting->offset);
    });
    if (!done.ok())
        return done.error();
    return *setting;
}

Status setGain(Session& session, const GainSetting& setting)
{
    if (session.info().family != ADVANCED)
        return session.lacks("gain setting");
    if (setting.gain < 0 || setting.gain > LARGEST_GAIN || setting.offset < 0 || setting.offset > LARGEST_OFFSET)
        return Error{ErrorKind::BAD_REQUEST, "the gain goes from 0 to 63 and the offset from 0 to 512", ""};
    return session.operate("the gain cannot be set",
                           [setting](VornCamera& camera) { return camera.setGain(setting.gain, setting.offset); });
}

}  // namespace vorncapture
