// SPDX-License-Identifier: MIT
#include "capture/session.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "capture/camera_list.h"
#include "capture/exposure_time.h"
#include "capture/open_diagnosis.h"

namespace vorncapture {
namespace {

constexpr long MAX_PACKET_BYTES = 0x100000;
constexpr int OPENING_TRIES = 2;

/// Our own timing of an exposure is good to about this; finer digits would only tell of the scheduler.
constexpr double TIMING_STEP_SECONDS = 0.001;

/// Cameras time short exposures in whole microseconds or coarser; more digits would come from the arithmetic.
constexpr double SHORT_STEP_SECONDS = 1e-6;

/// What a register camera reports when its thermometer could not be read.
constexpr double ABSOLUTE_ZERO_CELSIUS = -273.15;

/// What the library's trace says before the number of the encoding.
constexpr std::string_view ENCODING_LABEL = "temperature sensor type: ";

CameraInfo readInfo(VornCamera& camera)
{
    CameraInfo info;
    const char* name = nullptr;
    camera.getCapabilities(&name, &info.family, &info.caps);
    info.name = name != nullptr ? name : "camera";
    info.serialNumber = camera.getSerialNumber();
    info.versionMajor = camera.getVersionMajor();
    info.versionMinor = camera.getVersionMinor();
    return info;
}

/// @return the sensor's temperature, if the camera tells a believable one.
std::optional<double> readCelsius(VornCamera& camera, unsigned int sensor)
{
    float celsius = std::nanf("");  // a camera without a sensor may report success and leave it
    if (!camera.getTemperatureSensorStatus(sensor, &celsius) || !std::isfinite(celsius))
        return std::nullopt;
    if (celsius < ABSOLUTE_ZERO_CELSIUS + 1.0)
        return std::nullopt;
    return static_cast<double>(celsius);
}

void readTemperatures(VornCamera& camera, const CameraInfo& info, Telemetry& telemetry)
{
    if (info.family == QUICKER)
        return;
    if (info.family == IIDC) {  // it counts no sensors, and yet its one register answers to any number
        telemetry.celsius.push_back(readCelsius(camera, 0));
        return;
    }
    for (unsigned int sensor = 1; sensor <= info.caps.tempSensorCount; ++sensor)
        telemetry.celsius.push_back(info.temperatureEncoding != 0 ? readCelsius(camera, sensor) : std::nullopt);
}

void readCooler(VornCamera& camera, const CameraInfo& info, Telemetry& telemetry)
{
    if (info.caps.cooler <= COOLER_ALWAYSON || info.family == QUICKER || info.family == IIDC)
        return;
    COOLING_STATE state = COOLING_INACTIVE;
    float target = std::nanf("");
    float power = std::nanf("");
    // Converting a set-point ends the process when the camera never named the encoding of its temperatures, so the
    // set-point is asked for only after a temperature has come through.
    float* targetOut = telemetry.ccdCelsius() ? &target : nullptr;
    if (!camera.getCoolingStatus(&state, targetOut, &power))
        return;
    telemetry.coolingState = state;
    if (state == COOLING_SETPOINT && std::isfinite(target))
        telemetry.targetCelsius = static_cast<double>(target);
    if (std::isfinite(power))
        telemetry.coolerPowerPercent = static_cast<double>(power);
}

void readGain(VornCamera& camera, const CameraInfo& info, Telemetry& telemetry)
{
    int gain = 0;
    int offset = 0;
    if (info.family != ADVANCED || !camera.getGain(&gain, &offset))
        return;
    telemetry.gain = gain;
    telemetry.offset = offset;
}

/// @return the encoding of temperatures that a camera named while it was opened, the last that @p trace has.
unsigned int temperatureEncoding(const std::string& trace)
{
    const size_t found = trace.rfind(ENCODING_LABEL);
    return found == std::string::npos
               ? 0U
               : static_cast<unsigned int>(std::atoi(trace.c_str() + found + ENCODING_LABEL.size()));
}

/// @return whether the camera should have named its encoding, and @p trace has lost that: the library silences the
/// trace of all cameras while it examines one of them.
bool missesEncoding(const CameraInfo& info, const std::string& trace)
{
    return info.family != IIDC && info.family != QUICKER && info.caps.tempSensorCount > 0 && !trace.empty() &&
           trace.find(ENCODING_LABEL) == std::string::npos;
}

Telemetry telemetryOf(VornCamera& camera, const CameraInfo& info)
{
    Telemetry telemetry;
    readTemperatures(camera, info, telemetry);
    readCooler(camera, info, telemetry);
    readGain(camera, info, telemetry);
    return telemetry;
}

/// @return seconds for a message: "0.001", "59.8".
std::string secondsText(double seconds)
{
    std::array<char, 32> text = {};
    (void)std::snprintf(text.data(), text.size(), seconds < 1.0 ? "%.3g" : "%.1f", seconds);
    return text.data();
}

double rounded(double seconds, double step)
{
    // Divided, since 100000 times a hundred-thousandth is 0.09999999999999999 further on.
    const double steps = std::round(1.0 / step);
    return std::round(seconds * steps) / steps;
}

Clock::Utc earlier(Clock::Utc moment, double seconds)
{
    return moment - std::chrono::duration_cast<Clock::Utc::duration>(std::chrono::duration<double>(seconds));
}

/// Outcome of the calls that end an exposure and transfer its image.
struct Readout {
    const char* failure = nullptr;  ///< text of the library's error, null on success
    std::vector<uint16_t> pixels;
    double endSeconds = 0.0;  ///< steady time at which the readout was commanded
    Clock::Utc commanded;     ///< when the command returned
};

/// Reads a picture out. A successful readCCD() keeps the camera's lock, so getImage() follows it whatever happens.
Readout readImage(VornCamera& camera, const ExposurePlan& plan, Clock& clock, std::atomic<bool>& transferring)
{
    Readout readout;
    readout.endSeconds = clock.steadySeconds();
    const Region& asked = plan.asked;
    const bool commanded =
        plan.longExposure
            ? camera.readCCD(asked.x, asked.y, asked.width, asked.height, plan.readBinX, plan.readBinY)
            : camera.readCCD(asked.x, asked.y, asked.width, asked.height, plan.readBinX, plan.readBinY, plan.seconds);
    readout.commanded = clock.utc();
    transferring = true;
    if (!commanded) {
        readout.failure = camera.getLastError();
        return readout;
    }
    readout.pixels.resize(plan.bufferCount);
    if (!camera.getImage(readout.pixels.data(), plan.transferCount))
        readout.failure = camera.getLastError();
    return readout;
}

}  // namespace

/// When the integration began and how long it lasted.
struct Session::Integration {
    const char* failure = nullptr;  ///< text of the library's error, null when the exposure runs
    double beginSeconds = 0.0;      ///< steady time
    double leadSeconds = 0.0;       ///< that the readout command goes on integrating
    Clock::Utc start;
    Telemetry telemetry;
};

Session::Session(CameraHandle camera, const SessionOptions& options) : options_(options), worker_(std::move(camera)) {}

Result<std::unique_ptr<Session>> Session::open(CameraHandle camera, const SessionOptions& options)
{
    std::unique_ptr<Session> session(new Session(std::move(camera), options));
    const Status status = session->openCamera();
    session->options_.cancel = nullptr;
    if (!status.ok())
        return status.error();
    return session;
}

Status Session::openCamera()
{
    // The library's texts do not tell why a camera does not open, nor how it encodes temperatures, but its trace does.
    std::shared_ptr<SharedText> said;
    std::optional<std::optional<CameraInfo>> info;
    const auto isDone = [&] { return info && *info && !missesEncoding(**info, said->read()); };
    // All tries together keep to the limit.
    const auto end = std::chrono::steady_clock::now() + options_.watchdog.open;
    CameraWorker::Limit left = options_.watchdog.open;
    for (int tries = 0; tries < OPENING_TRIES && (tries == 0 || left.count() > 0) && !isDone(); ++tries) {
        const bool again = info && *info;
        said = std::make_shared<SharedText>();
        const auto openAndAsk = [said, again](VornCamera& camera) -> std::optional<CameraInfo> {
            const TraceCapture trace(said);
            if (again)
                camera.close();
            camera.setParam(MAX_PACKET_SIZE, MAX_PACKET_BYTES);
            if (!camera.open())
                return std::nullopt;
            return readInfo(camera);
        };
        info = worker_.run(openAndAsk, left, options_.cancel);
        left = std::chrono::duration_cast<CameraWorker::Limit>(end - std::chrono::steady_clock::now());
        if (options_.cancel != nullptr && options_.cancel->requested())
            return Error{ErrorKind::CANCELLED, "stopped while the camera was being opened", ""};
        if (!info) {  // a camera that is retried without end; another listing would disturb it
            Error error = explainOpenFailure(said->read(), -1);
            if (error.kind != ErrorKind::BUSY && error.kind != ErrorKind::PERMISSION)
                error.kind = ErrorKind::TIMEOUT;
            return error;
        }
    }
    if (!*info)
        return explainOpenFailure(said->read(), options_.listIndex);
    (*info)->temperatureEncoding = temperatureEncoding(said->read());
    info_ = **info;
    return Done{};
}

Telemetry Session::readTelemetry()
{
    auto telemetry = call([info = info_](VornCamera& camera) { return telemetryOf(camera, info); });
    return telemetry.value_or(Telemetry{});
}

Result<Frame> Session::expose(const ExposureRequest& request, const CancelToken* cancel,
                              const ProgressCallback& progress)
{
    Result<ExposurePlan> planned = planExposure(info_, request);
    if (!planned.ok())
        return planned.error();
    const ExposurePlan& plan = planned.value();
    const Status modes = setModes(request);
    if (!modes.ok())
        return modes.error();
    if (progress)
        progress(Phase::STARTING, 0.0, plan.seconds);

    Result<Integration> started = startLong(plan);
    if (!started.ok())
        return started.error();
    Integration& integration = started.value();
    const Status waited = waitLong(plan, integration, cancel, progress);
    if (!waited.ok())
        return waited.error();
    if (plan.longExposure && progress)
        progress(Phase::READING, plan.seconds, plan.seconds);

    Result<Frame> frame = readOut(plan, std::move(integration), cancel, progress);
    if (frame.ok())
        frame.value().request = request;
    return frame;
}

Status Session::setModes(const ExposureRequest& request)
{
    const auto set = [request, family = info_.family](VornCamera& camera) {
        // Only STANDARD cameras know dark frames; the others have no shutter to keep shut, which the plan notes.
        const bool darkSet = family != STANDARD || camera.setDarkFrameMode(request.dark);
        return darkSet && camera.setPreviewMode(request.preview) && camera.set8BitMode(request.eightBit);
    };
    const auto done = call(set);
    if (!done)
        return mute();
    if (!*done)
        return Error{ErrorKind::FAILED, "the camera refused the readout mode", ""};
    return Done{};
}

Result<Session::Integration> Session::startLong(const ExposurePlan& plan)
{
    const auto start = [info = info_, clock = options_.clock, isLong = plan.longExposure](VornCamera& camera) {
        Integration integration;
        integration.telemetry = telemetryOf(camera, info);
        integration.leadSeconds = isLong ? readoutLeadSeconds(camera) : 0.0;
        if (isLong && !camera.startExposure(false))
            integration.failure = camera.getLastError();
        integration.beginSeconds = clock->steadySeconds();
        integration.start = clock->utc();
        return integration;
    };
    auto integration = call(start);
    if (!integration)
        return mute();
    if (integration->failure != nullptr)
        return abandon("the exposure does not start", integration->failure);
    return *integration;
}

Status Session::waitLong(const ExposurePlan& plan, Integration& integration, const CancelToken* cancel,
                         const ProgressCallback& progress)
{
    const double waitSeconds = plan.longExposure ? plan.seconds - integration.leadSeconds : 0.0;
    const auto tick = [&](double left) {
        if (progress)
            progress(Phase::EXPOSING, std::clamp(waitSeconds - left, 0.0, plan.seconds), plan.seconds);
    };
    if (!sleepUntil(*options_.clock, integration.beginSeconds + waitSeconds, cancel, tick))
        return cancelled(plan, options_.clock->steadySeconds() - integration.beginSeconds);
    return Done{};
}

Result<Frame> Session::readOut(const ExposurePlan& plan, Integration integration, const CancelToken* cancel,
                               const ProgressCallback& progress)
{
    // Shared with the camera's thread, which may outlive this call.
    const auto transferring = std::make_shared<std::atomic<bool>>(false);
    const auto clock = options_.clock;
    const double shortSeconds = plan.longExposure ? 0.0 : plan.seconds;
    const double limitSeconds = shortSeconds + integration.leadSeconds +
                                static_cast<double>(plan.bufferCount) * 2.0 / options_.watchdog.readoutBytesPerSecond;
    const auto limit = options_.watchdog.command + CameraWorker::Limit(static_cast<int64_t>(limitSeconds * 1000.0));
    const auto tick = [&] {
        if (!progress)
            return;
        const double elapsed = clock->steadySeconds() - integration.beginSeconds;
        const bool exposing = !*transferring && elapsed < plan.seconds;
        progress(exposing ? Phase::EXPOSING : Phase::READING, std::clamp(elapsed, 0.0, plan.seconds), plan.seconds);
    };
    auto readout = worker_.run(
        [plan, clock, transferring](VornCamera& camera) { return readImage(camera, plan, *clock, *transferring); },
        limit, cancel, tick);
    if (!readout) {
        if (cancel != nullptr && cancel->requested())
            return Error{ErrorKind::CANCELLED, "stopped without waiting for the camera; no picture was taken", ""};
        return mute();
    }
    if (readout->failure != nullptr) {
        Error lost =
            abandon("the picture of " + secondsText(plan.seconds) + " s could not be read out", readout->failure);
        if (lost.kind != ErrorKind::FAILED)
            return lost;
        return findStall().value_or(lost);
    }
    if (cancel != nullptr && cancel->requested())
        return cancelled(plan, plan.seconds);

    Frame frame;
    frame.pixels = std::move(readout->pixels);
    cropToPlan(frame.pixels, plan);
    frame.width = plan.width;
    frame.height = plan.height;
    frame.camera = info_;
    if (plan.bayer) {
        frame.camera.caps.colour = COLOUR_RGGB;
        frame.camera.caps.offsetX = plan.bayer->x;
        frame.camera.caps.offsetY = plan.bayer->y;
    }
    frame.region = plan.region;
    frame.telemetry = std::move(integration.telemetry);
    frame.notes = plan.notes;
    frame.warnings = plan.warnings;
    if (plan.longExposure) {
        const double made = readout->endSeconds - integration.beginSeconds + integration.leadSeconds;
        frame.exposureSeconds = rounded(made, TIMING_STEP_SECONDS);
        frame.start = integration.start;
    } else {
        // The command returns when the exposure is over; a register camera's returns when it begins.
        frame.exposureSeconds = rounded(shortExposureMade(info_.family, plan.seconds), SHORT_STEP_SECONDS);
        frame.start = info_.family == IIDC ? readout->commanded : earlier(readout->commanded, frame.exposureSeconds);
    }
    return frame;
}

Status Session::operate(const std::string& complaint, const std::function<bool(VornCamera&)>& work)
{
    const auto failure = call([work](VornCamera& camera) -> std::optional<std::string> {
        return work(camera) ? std::nullopt : std::optional<std::string>(camera.getLastError());
    });
    if (!failure)
        return mute();
    if (*failure)
        return abandon(complaint, **failure);
    return Done{};
}

Error Session::abandon(const std::string& complaint, const std::string& failure)
{
    // Close the shutter first, then find out by opening it again whether the camera is still there. Opening loads its
    // program anew, so that a camera that had lost its way can be used again.
    const auto reopen = [](VornCamera& camera) -> std::string {
        camera.abortExposure();
        camera.close();
        return camera.open() ? std::string() : camera.getLastError();
    };
    const auto outcome = worker_.run(reopen, options_.watchdog.open);
    if (!outcome)
        return mute();
    return explainFailure(complaint, failure, *outcome);
}

std::optional<Error> Session::findStall()
{
    const Result<ExposurePlan> plan = planExposure(info_, {});
    if (info_.family != IIDC || !plan.ok())
        return std::nullopt;
    const auto transferring = std::make_shared<std::atomic<bool>>(false);
    const auto said = std::make_shared<SharedText>();
    const auto probe = [plan = plan.value(), clock = options_.clock, transferring, said](VornCamera& camera) {
        const TraceCapture trace(said);
        return readImage(camera, plan, *clock, *transferring).failure == nullptr;
    };
    const auto taken = worker_.run(probe, options_.watchdog.command);
    if (!taken || *taken || said->read().find("LIBUSB_ERROR_PIPE") == std::string::npos)
        return std::nullopt;
    return explainStall(nodesOfCamera(options_.listIndex));
}

Error Session::cancelled(const ExposurePlan& plan, double exposedSeconds)
{
    const auto closed =
        call([shutter = info_.caps.hasShutter](VornCamera& camera) { return camera.abortExposure() || !shutter; });
    Error error{ErrorKind::CANCELLED,
                "stopped after " + secondsText(exposedSeconds) + " of " + secondsText(plan.seconds) +
                    " s; no picture was taken",
                ""};
    if (!closed.value_or(false))
        error.advice = "The shutter could not be closed.";
    return error;
}

Error Session::lacks(const std::string& what) const
{
    return {ErrorKind::UNSUPPORTED, info_.name + " has no " + what, ""};
}

Error Session::mute() const
{
    return {ErrorKind::TIMEOUT, "the " + (info_.name.empty() ? std::string("camera") : info_.name) + " does not answer",
            "Check its power supply and cable, unplug it and plug it in again."};
}

}  // namespace vorncapture
