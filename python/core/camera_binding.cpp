// SPDX-License-Identifier: MIT
#include "camera_binding.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "capture/accessories.h"
#include "capture/cooling.h"
#include "capture/exposure_plan.h"
#include "capture/filter_names.h"
#include "frame_binding.h"
#include "open_camera.h"
#include "python_errors.h"

namespace py = pybind11;

namespace vornpy {
namespace {

using vorncapture::CameraInfo;
using vorncapture::FilterNames;
using vorncapture::Frame;
using vorncapture::FrameKind;
using vorncapture::Region;
using vorncapture::Result;
using vorncapture::Session;
using vorncapture::Status;
using vorncapture::Telemetry;

const char* coolerName(COOLER_TYPE cooler)
{
    switch (cooler) {
        case COOLER_NONE:
            return "none";
        case COOLER_ALWAYSON:
            return "always on";
        case COOLER_ONOFF:
            return "on/off";
        case COOLER_SELECTPOWER:
            return "power";
        case COOLER_SETPOINT:
            return "set-point";
    }
    return "unknown";
}

const char* coolingName(COOLING_STATE state)
{
    switch (state) {
        case COOLING_INACTIVE:
            return "off";
        case COOLING_ON:
            return "on";
        case COOLING_SETPOINT:
            return "regulating";
        case WARMING_UP:
            return "warming up";
    }
    return "unknown";
}

const char* phaseName(vorncapture::Phase phase)
{
    switch (phase) {
        case vorncapture::Phase::STARTING:
            return "starting";
        case vorncapture::Phase::EXPOSING:
            return "exposing";
        case vorncapture::Phase::READING:
            return "reading";
    }
    return "unknown";
}

py::dict describe(const CameraInfo& info)
{
    using namespace py::literals;
    const VornCapabilities& caps = info.caps;
    return py::dict(
        "name"_a = info.name, "family"_a = vorncapture::familyName(info.family), "serial"_a = info.serialNumber,
        "firmware"_a = std::to_string(info.versionMajor) + "." + std::to_string(info.versionMinor),
        "width"_a = caps.pixelCountX, "height"_a = caps.pixelCountY,
        "pixel_size"_a = py::make_tuple(caps.pixelSizeX, caps.pixelSizeY),
        "max_binning"_a = py::make_tuple(caps.maxBinX, caps.maxBinY), "colour"_a = caps.colour == COLOUR_RGGB,
        "bayer_offset"_a = py::make_tuple(caps.offsetX, caps.offsetY), "cooler"_a = coolerName(caps.cooler),
        "has_shutter"_a = caps.hasShutter, "has_guide_port"_a = caps.hasGuidePort,
        "has_filter_wheel"_a = caps.hasFilterWheel, "has_8bit_mode"_a = caps.has8BitMode,
        "gpio_lines"_a = caps.lineCount, "shortest_exposure"_a = caps.minShortExposure,
        "longest_exposure"_a = caps.supportsLongExposure ? py::object(py::none()) : py::float_(caps.maxShortExposure));
}

py::dict describe(const Telemetry& telemetry)
{
    using namespace py::literals;
    const auto state = telemetry.coolingState;
    return py::dict("temperatures"_a = telemetry.celsius,
                    "cooling"_a = state ? py::object(py::str(coolingName(*state))) : py::none(),
                    "set_point"_a = telemetry.targetCelsius, "cooler_power"_a = telemetry.coolerPowerPercent,
                    "gain"_a = telemetry.gain, "offset"_a = telemetry.offset);
}

/// @return what makes a Python object of @p value, or raises the error in its place.
template <typename T, typename Convert>
Deliver deliver(Result<T> result, Convert convert)
{
    const auto kept = std::make_shared<Result<T>>(std::move(result));
    return [kept, convert]() -> py::object { return convert(valueOrRaise(*kept)); };
}

Deliver deliver(const Status& status)
{
    return deliver(status, [](const auto&) -> py::object { return py::none(); });
}

/// Work that is a call of @p function with the session and @p arguments.
template <typename Function, typename... Arguments>
std::unique_ptr<Job> simple(OpenCamera& camera, Function function, Arguments... arguments)
{
    return camera.start(Turn::NONE, [function, arguments...](Session& session, Job::State&) {
        return deliver(function(session, arguments...));
    });
}

/// What the picture's header is told besides.
struct Labels {
    vorncapture::FrameKind kind;
    FilterNames filters;
    vorncapture::Observation observation;
};

Result<Frame> takePicture(Session& session, Job::State& state, const vorncapture::ExposureRequest& request,
                          const Labels& labels)
{
    // Before the wheel is asked anything: what cannot be done sends nothing.
    const auto plan = vorncapture::planExposure(session.info(), request);
    if (!plan.ok())
        return plan.error();
    std::optional<unsigned int> filter;
    if (session.info().caps.hasFilterWheel) {
        const auto wheel = vorncapture::readWheel(session);
        if (!wheel.ok())
            return wheel.error();
        filter = wheel.value().current;
    }
    const auto report = [&state](vorncapture::Phase phase, double elapsed, double total) {
        state.report([=]() -> py::object { return py::make_tuple(phaseName(phase), elapsed, total); });
    };
    Result<Frame> taken = session.expose(request, &state.cancel, report);
    if (taken.ok()) {
        Frame& frame = taken.value();
        frame.imageType = vorncapture::imageType(labels.kind);
        frame.filter = filter;
        frame.filterName = filter ? labels.filters.nameOf(*filter) : "";
        frame.observation = labels.observation;
    }
    return taken;
}

constexpr std::array KINDS = {FrameKind::LIGHT, FrameKind::DARK, FrameKind::BIAS, FrameKind::FLAT};

FrameKind kindOf(const std::string& name)
{
    const auto* found = std::find_if(KINDS.begin(), KINDS.end(),
                                     [&](FrameKind kind) { return vorncapture::frameKindName(kind) == name; });
    if (found == KINDS.end())
        throw py::value_error("kind must be light, dark, bias or flat, not " + name);
    return *found;
}

FilterNames filterNames(const std::string& text)
{
    auto names = FilterNames::parse(text);
    return valueOrRaise(names);
}

using Rectangle = std::tuple<unsigned int, unsigned int, unsigned int, unsigned int>;

std::unique_ptr<Job> expose(OpenCamera& camera, double seconds, const std::optional<Rectangle>& roi, unsigned int binX,
                            unsigned int binY, const std::string& kind, bool preview, bool eightBit,
                            const std::string& filters, const std::string& object, const std::string& observer,
                            const std::string& telescope, double focalLengthMm, double apertureMm)
{
    vorncapture::ExposureRequest request{.seconds = seconds,
                                         .binX = binX,
                                         .binY = binY,
                                         .dark = kindOf(kind) == FrameKind::DARK || kindOf(kind) == FrameKind::BIAS,
                                         .preview = preview,
                                         .eightBit = eightBit};
    if (roi)
        request.region = std::apply([](auto... part) { return Region{part...}; }, *roi);
    const Labels labels{kindOf(kind), filterNames(filters), {object, observer, telescope, focalLengthMm, apertureMm}};
    return camera.start(Turn::EXPOSURE, [request, labels](Session& session, Job::State& state) {
        return deliver(takePicture(session, state, request, labels), [kind = labels.kind](Frame& frame) -> py::object {
            return py::cast(Picture{std::make_shared<const Frame>(std::move(frame)), kind});
        });
    });
}

vorncapture::CoolingProgress coolingReport(Job::State& state)
{
    return [&state](const Telemetry& telemetry, double setPoint, double elapsed) {
        state.report([=]() -> py::object { return py::make_tuple(describe(telemetry), setPoint, elapsed); });
    };
}

std::unique_ptr<Job> cool(OpenCamera& camera, double target, std::optional<double> perMinute, bool wait, double limit)
{
    const vorncapture::CoolingRequest request{target, perMinute, wait, limit};
    return camera.start(Turn::NONE, [request](Session& session, Job::State& state) {
        return deliver(vorncapture::coolDown(session, request, &state.cancel, coolingReport(state)));
    });
}

std::unique_ptr<Job> warmUp(OpenCamera& camera, bool wait, double limit)
{
    return camera.start(Turn::NONE, [wait, limit](Session& session, Job::State& state) {
        return deliver(vorncapture::warmUp(session, wait, limit, &state.cancel, coolingReport(state)));
    });
}

std::unique_ptr<Job> readStatus(OpenCamera& camera)
{
    return camera.start(Turn::NONE, [](Session& session, Job::State&) -> Deliver {
        const Telemetry telemetry = session.readTelemetry();
        if (session.stuck())  // the same error as any other operation has
            return deliver(session.operate("", [](VornCamera&) { return true; }));
        return [telemetry]() -> py::object { return describe(telemetry); };
    });
}

std::unique_ptr<Job> readWheel(OpenCamera& camera)
{
    return camera.start(Turn::NONE, [](Session& session, Job::State&) {
        return deliver(vorncapture::readWheel(session), [](const vorncapture::WheelStatus& wheel) -> py::object {
            return py::make_tuple(wheel.count, wheel.current, wheel.target, wheel.moving);
        });
    });
}

std::unique_ptr<Job> turnWheel(OpenCamera& camera, const std::string& position, const std::string& filters)
{
    if (!camera.info().caps.hasFilterWheel)  // says so, whatever the position
        return readWheel(camera);
    auto number = filterNames(filters).positionOf(position);
    if (!number.ok() && filters.empty())
        raise({number.error().kind, number.error().text, "Name the filters: camera.filter_names = [\"L\", \"R\"]."});
    return camera.start(Turn::WHEEL, [wanted = valueOrRaise(number)](Session& session, Job::State& state) {
        return deliver(vorncapture::turnWheel(session, wanted, &state.cancel));
    });
}

std::unique_ptr<Job> guide(OpenCamera& camera, unsigned int relay, double seconds)
{
    const auto mask = static_cast<vorncapture::GuideRelay>(1U << relay);
    return camera.start(Turn::GUIDING, [mask, seconds](Session& session, Job::State& state) {
        return deliver(vorncapture::guidePulse(session, mask, seconds, &state.cancel));
    });
}

std::unique_ptr<Job> readLines(OpenCamera& camera)
{
    return camera.start(Turn::NONE, [](Session& session, Job::State&) {
        return deliver(vorncapture::readLines(session), [](uint16_t levels) -> py::object { return py::int_(levels); });
    });
}

std::unique_ptr<Job> readGain(OpenCamera& camera)
{
    return camera.start(Turn::NONE, [](Session& session, Job::State&) {
        return deliver(vorncapture::readGain(session), [](const vorncapture::GainSetting& setting) -> py::object {
            return py::make_tuple(setting.gain, setting.offset);
        });
    });
}

}  // namespace

void bindCamera(py::module_& module)
{
    py::class_<Job>(module, "Job")
        .def("wait", &Job::wait)
        .def("done", &Job::done)
        .def("cancel", &Job::cancel)
        .def("news", &Job::news)
        .def("result", &Job::result)
        .def("fileno", &Job::descriptor);
    py::class_<OpenCamera, std::shared_ptr<OpenCamera>>(module, "OpenCamera")
        .def_property_readonly("closed", &OpenCamera::closed)
        .def_property_readonly("inherited", &OpenCamera::inherited)
        .def("info", [](const OpenCamera& camera) { return describe(camera.info()); })
        .def("close", &OpenCamera::close)
        .def("abort", &OpenCamera::abort)
        .def("expose", &expose)
        .def("cool", &cool)
        .def("warm_up", &warmUp)
        .def("status", &readStatus)
        .def("wheel", &readWheel)
        .def("turn_wheel", &turnWheel)
        .def("guide", &guide)
        .def("shutter", [](OpenCamera& camera, bool open) { return simple(camera, vorncapture::moveShutter, open); })
        .def("gpio_directions",
             [](OpenCamera& camera, uint16_t mask) { return simple(camera, vorncapture::setLineDirections, mask); })
        .def("gpio_drive",
             [](OpenCamera& camera, uint16_t mask) { return simple(camera, vorncapture::driveLines, mask); })
        .def("gpio_read", &readLines)
        .def("gain", &readGain)
        .def("set_gain", [](OpenCamera& camera, int gain, int offset) {
            return simple(camera, vorncapture::setGain, vorncapture::GainSetting{gain, offset});
        });
    module.def("open", &OpenCamera::open);
    module.def("check_filter_names", [](const std::string& text) { (void)filterNames(text); });
}

}  // namespace vornpy
