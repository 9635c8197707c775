// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <string>

#include "camera_access.h"
#include "capture/accessories.h"
#include "commands.h"
#include "console.h"
#include "reports.h"

namespace vornctl {
using vorncapture::Done;
using vorncapture::Status;

namespace {

/// @return the bits of @p lines lines as --set takes them, "0b0101".
std::string mask(unsigned int bits, unsigned int lines)
{
    std::string text = "0b";
    for (unsigned int line = std::min(lines, 16U); line > 0; --line)
        text += (bits >> (line - 1) & 1U) != 0 ? '1' : '0';
    return text;
}

}  // namespace

int filterCommand(const Options& options)
{
    const auto wanted = wantedFilter(options);
    if (!wanted.ok())
        return report(wanted.error());
    const std::optional<unsigned int>& position = wanted.value().position;
    return withCamera(options, [&](Opened& camera) -> Status {
        if (position) {
            camera.progress.say("turning the filter wheel");
            Status turned = vorncapture::turnWheel(camera.session(), *position, &camera.cancel);
            if (!turned.ok())
                return turned;
        }
        const auto wheel = vorncapture::readWheel(camera.session());
        if (!wheel.ok())
            return wheel.error();
        camera.progress.clear();
        print({{"filter", wheel.value().current},
               {"name", wanted.value().names.nameOf(wheel.value().current)},
               {"target", wheel.value().target},
               {"moving", wheel.value().moving},
               {"filters", wheel.value().count}},
              options.json);
        return Done{};
    });
}

int shutterCommand(const Options& options, bool open)
{
    return withCamera(options, [&options, open](Opened& camera) -> Status {
        Status moved = vorncapture::moveShutter(camera.session(), open);
        if (moved.ok())
            print({{"shutter", open ? "open" : "closed"}}, options.json);
        return moved;
    });
}

int guideCommand(const Options& options, const GuideRequest& request)
{
    return withCamera(options, [&](Opened& camera) -> Status {
        camera.progress.say("guiding");
        Status guided = vorncapture::guidePulse(camera.session(), request.relay, request.seconds, &camera.cancel);
        camera.progress.clear();
        if (guided.ok())
            print({{"direction", request.direction},
                   {"milliseconds", static_cast<int>(std::lround(request.seconds * 1000.0))}},
                  options.json);
        return guided;
    });
}

int gpioCommand(const Options& options, const GpioRequest& request)
{
    return withCamera(options, [&](Opened& camera) -> Status {
        Status done = Done{};
        if (request.outputs)
            done = vorncapture::setLineDirections(camera.session(), *request.outputs);
        if (done.ok() && request.levels)
            done = vorncapture::driveLines(camera.session(), *request.levels);
        if (!done.ok())
            return done;
        const auto levels = vorncapture::readLines(camera.session());
        if (!levels.ok())
            return levels.error();
        const unsigned int lines = camera.session().info().caps.lineCount;
        if (options.json) {
            print({{"lines", lines}, {"levels", unsigned{levels.value()}}}, true);
        } else {
            print(
                {{"lines", lines},
                 {"directions", request.outputs ? mask(*request.outputs, lines) : "not readable; --outputs sets them"},
                 {"levels", mask(levels.value(), lines)}},
                false);
        }
        if (request.levels && *request.levels != levels.value())
            note("the lines read " + mask(levels.value(), lines) + " although " + mask(*request.levels, lines) +
                 " was set: only outputs are driven, and --outputs decides which lines those are");
        return Done{};
    });
}

int gainCommand(const Options& options, const GainRequest& request)
{
    return withCamera(options, [&](Opened& camera) -> Status {
        auto setting = vorncapture::readGain(camera.session());
        if (!setting.ok())
            return setting.error();
        if (request.gain || request.offset) {
            const vorncapture::GainSetting wanted{request.gain.value_or(setting.value().gain),
                                                  request.offset.value_or(setting.value().offset)};
            Status done = vorncapture::setGain(camera.session(), wanted);
            if (!done.ok())
                return done;
            setting = vorncapture::readGain(camera.session());
            if (!setting.ok())
                return setting.error();
        }
        if (options.json)
            print({{"gain", setting.value().gain}, {"offset", setting.value().offset}}, true);
        else
            print({{"gain", std::to_string(setting.value().gain) + " (0 to 63)"},
                   {"offset", std::to_string(setting.value().offset) + " (0 to 512)"}},
                  false);
        return Done{};
    });
}

}  // namespace vornctl
