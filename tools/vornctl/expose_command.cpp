// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "camera_access.h"
#include "capture/accessories.h"
#include "capture/ascii_text.h"
#include "capture/cooling.h"
#include "capture/fits_writer.h"
#include "capture/output_file.h"
#include "capture/png_writer.h"
#include "capture/text.h"
#include "commands.h"
#include "console.h"
#include "reports.h"

namespace vornctl {
namespace {

using nlohmann::ordered_json;
using vorncapture::Done;
using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::Frame;
using vorncapture::FrameKind;
using vorncapture::Phase;
using vorncapture::Result;
using vorncapture::Status;

const char* const CREATOR = "vornctl " VORNCTL_VERSION;

const char* const DEFAULT_PATTERN = "vorn-{date}.fits";
const char* const STANDARD_OUTPUT = "-";

/// Where one picture of a sequence goes.
struct Outputs {
    std::string fits;  ///< empty: none; "-": standard output
    std::string png;
};

bool isThere(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

/// Names without a pattern of the user's are made so that they never stand in the way: with a number behind.
std::string unusedPath(const std::string& path)
{
    const size_t dot = path.find_last_of('.');
    std::string unused = path;
    for (int count = 2; isThere(unused); ++count)
        unused = path.substr(0, dot) + "-" + std::to_string(count) + path.substr(dot);
    return unused;
}

Result<Outputs> outputsOf(const Options& options, const vorncapture::NameParts& parts)
{
    const bool named = !options.fitsPath.empty() || !options.pngPath.empty();
    const auto fill = [&](const std::string& pattern) {
        return vorncapture::fillPattern(vorncapture::patternForSequence(pattern, options.count), parts);
    };
    if (options.fitsPath == STANDARD_OUTPUT)
        return Outputs{STANDARD_OUTPUT, ""};
    const Result<std::string> fits = fill(named ? options.fitsPath : DEFAULT_PATTERN);
    const Result<std::string> png = fill(options.pngPath);
    for (const auto* path : {&fits, &png}) {
        if (!path->ok())
            return path->error();
    }
    return Outputs{named ? fits.value() : unusedPath(fits.value()), png.value()};
}

/// Finds out before the exposure what would spoil it afterwards.
Status checkOutputs(const Outputs& outputs, bool force)
{
    for (const std::string& path : {outputs.fits, outputs.png}) {
        if (path.empty() || path == STANDARD_OUTPUT)
            continue;
        const Status status = vorncapture::OutputFile(path, force).check();
        if (!status.ok())
            return withForce(status.error());
    }
    return Done{};
}

/// Refuses names that promise another kind of file than the one that is written. Without an ending, and with one that
/// begins with a digit ("m31-{temp}" makes such), everything goes.
Status checkEnding(const std::string& path, const std::vector<std::string>& endings, const std::string& advice)
{
    const size_t dot = path.find_last_of("./");
    const std::string ending =
        dot == std::string::npos || path[dot] == '/' ? "" : vorncapture::foldedName(path.substr(dot));
    if (ending.size() < 2 || ending[1] < 'a' || ending[1] > 'z')
        return Done{};
    if (std::find(endings.begin(), endings.end(), ending) != endings.end())
        return Done{};
    return Error{ErrorKind::BAD_REQUEST, "\"" + path + "\" would not be a " + ending.substr(1) + " file: " + advice,
                 ""};
}

Status checkUsage(const Options& options)
{
    const auto refuse = [](const std::string& text) { return Error{ErrorKind::BAD_REQUEST, text, ""}; };
    if (options.pngPath == STANDARD_OUTPUT)
        return refuse("only the FITS file can go to standard output: -o -");
    if (options.fitsPath == STANDARD_OUTPUT) {
        if (options.json || options.count > 1 || !options.pngPath.empty())
            return refuse("-o - writes one FITS file to standard output, without --json, --count and --png");
        if (isatty(STDOUT_FILENO) != 0)
            return refuse("standard output is a terminal; add | PROGRAM or > FILE after -o -");
    }
    Status named = checkEnding(options.fitsPath, {".fits", ".fit", ".fts", ".fz"},
                               "-o writes FITS, to a name that ends in .fits, .fit or .fts, or .fits.fz for a "
                               "compressed one; --png FILE.png writes a "
                               "picture to look at");
    if (named.ok())
        named = checkEnding(options.pngPath, {".png"}, "--png writes PNG, to a name that ends in .png");
    if (!named.ok())
        return named;
    if (!options.seconds && options.kind != FrameKind::BIAS)
        return refuse("give an exposure time: --time SECONDS (only --type bias needs none)");
    if (options.kind == FrameKind::BIAS && options.seconds.value_or(0.0) > 0.0)
        return refuse("a bias frame is as short as possible: leave --time out");
    return Done{};
}

Status writeFiles(const Frame& frame, const Outputs& outputs, bool force)
{
    if (outputs.fits == STANDARD_OUTPUT)
        return vorncapture::streamFits(frame, CREATOR);
    if (!outputs.fits.empty()) {
        Status status = vorncapture::writeFits(frame, outputs.fits, CREATOR, force);
        if (!status.ok())
            return status;
    }
    if (!outputs.png.empty())
        return vorncapture::writePng(frame, outputs.png, force);
    return Done{};
}

Status tellOutcome(const Frame& frame, const Outputs& outputs, unsigned int number, const Options& options)
{
    ordered_json json = describeFrame(frame);
    if (options.json) {
        json["number"] = number;
        json["fits"] = outputs.fits.empty() ? ordered_json() : ordered_json(outputs.fits);
        json["png"] = outputs.png.empty() ? ordered_json() : ordered_json(outputs.png);
        (void)std::printf("%s\n", json.dump().c_str());
        return flushOutput();
    }
    for (const std::string& path : {outputs.fits, outputs.png}) {
        if (!path.empty() && path != STANDARD_OUTPUT)
            (void)std::printf("%s\n", path.c_str());
    }
    if (Status told = flushOutput(); !told.ok() || options.quiet)
        return told;
    (void)std::fprintf(stderr, "%s: %u x %u pixels, %.6g s", frame.camera.name.c_str(), frame.width, frame.height,
                       frame.exposureSeconds);
    if (frame.telemetry.ccdCelsius())
        (void)std::fprintf(stderr, ", %.1f degC", *frame.telemetry.ccdCelsius());
    (void)std::fprintf(stderr, ", values %s to %s, mean %.1f\n", json["values"]["min"].dump().c_str(),
                       json["values"]["max"].dump().c_str(), json["values"]["mean"].get<double>());
    return Done{};
}

/// Waits between two pictures. @return false when the wish to stop came.
bool waitForNext(Opened& camera, double due)
{
    const auto tell = [&camera](double left) {
        if (left > 0.0)
            camera.progress.say("next picture in " + duration(std::ceil(left)));
    };
    return vorncapture::sleepUntil(camera.session().clock(), due, &camera.cancel, tell);
}

/// The filter in the light; nothing of it on a camera without a wheel.
struct WheelFilter {
    std::optional<unsigned int> position;
    std::string name;  ///< or the position as a text
};

/// What a sequence has learnt from its last picture.
struct Run {
    double readoutSeconds = 0.0;  ///< 0: unknown
    vorncapture::Telemetry telemetry;
};

/// Takes picture @p number, writes it and reports it.
Status takeOne(Opened& camera, const Options& options, unsigned int number, const WheelFilter& filter, Run& run)
{
    run.telemetry = camera.session().readTelemetry();
    vorncapture::NameParts parts{.number = number,
                                 .start = camera.session().clock().utc(),
                                 .kind = options.kind,
                                 .exposureSeconds = options.request.seconds,
                                 .filter = filter.name,
                                 .celsius = run.telemetry.ccdCelsius(),
                                 .camera = camera.session().info().name,
                                 .object = options.observation.object};
    const Result<Outputs> outputs = outputsOf(options, parts);
    if (!outputs.ok())
        return outputs.error();
    Status possible = checkOutputs(outputs.value(), options.force);
    if (!possible.ok())
        return possible;
    vorncapture::Clock& clock = camera.session().clock();
    std::optional<double> readingSince;
    auto taken =
        camera.session().expose(options.request, &camera.cancel, [&](Phase phase, double elapsed, double total) {
            if (phase == Phase::READING) {
                readingSince = readingSince.value_or(clock.steadySeconds());
                elapsed = clock.steadySeconds() - *readingSince;
                total = run.readoutSeconds;
            }
            camera.progress.show(phase, elapsed, total);
        });
    camera.progress.clear();
    if (!taken.ok())
        return taken.error();
    if (readingSince)
        run.readoutSeconds = clock.steadySeconds() - *readingSince;
    Frame& frame = taken.value();
    frame.imageType = vorncapture::imageType(options.kind);
    frame.filter = filter.position;
    frame.filterName = filter.name;
    frame.observation = options.observation;
    Status written = writeFiles(frame, outputs.value(), options.force);
    if (!written.ok())
        return written;
    // A warning is for each run, quiet or not: what it warns of spoils the picture.
    for (const std::string& text : options.quiet ? frame.warnings : frame.notes) {
        if (number == 1)
            note(text);
    }
    return tellOutcome(frame, outputs.value(), number, options);
}

/// Turns the wheel to the filter wanted. @return the filter that is in the light then
Result<WheelFilter> prepareWheel(Opened& camera, const WantedFilter& wanted)
{
    const bool wheel = camera.session().info().caps.hasFilterWheel;
    if (wanted.position && !wheel)
        return camera.session().lacks("filter wheel");
    if (wanted.position) {
        camera.progress.say("turning the filter wheel");
        Status turned = vorncapture::turnWheel(camera.session(), *wanted.position, &camera.cancel);
        if (!turned.ok())
            return turned.error();
    }
    if (!wheel)
        return WheelFilter{};
    const auto position = vorncapture::readWheel(camera.session());
    if (!position.ok())
        return position.error();
    return WheelFilter{position.value().current, wanted.names.nameOf(position.value().current)};
}

/// @return whether the same picture may succeed when it is taken again.
bool worthRetrying(const Error& error)
{
    return error.kind == ErrorKind::FAILED || error.kind == ErrorKind::TIMEOUT || error.kind == ErrorKind::DEVICE_LOST;
}

/// Gets the camera ready for another attempt after @p error.
Status prepareRetry(Opened& camera, const Error& error, const WantedFilter& wanted, const Run& run)
{
    if (error.kind == ErrorKind::FAILED)
        return Done{};  // it has been opened anew already
    Status there = camera.reconnect();
    if (!there.ok())
        return there;
    if (run.telemetry.targetCelsius && camera.session().readTelemetry().coolingState == COOLING_INACTIVE)
        note("the camera has lost its set-point, and its cooler is off");
    const auto wheel = prepareWheel(camera, wanted);
    return wheel.ok() ? Status(Done{}) : Status(wheel.error());
}

/// @return an error of a sequence that says which picture it befell and what there is.
Error inSequence(Error error, unsigned int number, unsigned int count)
{
    if (count == 1)
        return error;
    const std::string nothing = "; no picture was taken";
    if (error.text.ends_with(nothing))
        error.text.resize(error.text.size() - nothing.size());
    error.text = "picture " + std::to_string(number) + " of " + std::to_string(count) + ": " + error.text + "; " +
                 std::to_string(number - 1) + " of " + std::to_string(count) + " kept";
    return error;
}

Status takeAll(Opened& camera, const Options& options, const WantedFilter& wanted)
{
    const Result<WheelFilter> filter = prepareWheel(camera, wanted);
    if (!filter.ok())
        return filter.error();
    vorncapture::Clock& clock = *vorncapture::Clock::system();
    const double start = clock.steadySeconds();
    unsigned int retries = options.retries;
    Run run;
    for (unsigned int number = 1; number <= options.count; ++number) {
        if (!waitForNext(camera, start + (number - 1) * options.intervalSeconds))
            return inSequence({ErrorKind::CANCELLED, "stopped before it began", ""}, number, options.count);
        if (options.count > 1) {
            const double each = number == 1 ? options.request.seconds : (clock.steadySeconds() - start) / (number - 1);
            const double rest = (options.count - number) * std::max(each, options.intervalSeconds);
            camera.progress.setContext(
                "picture " + std::to_string(number) + " of " + std::to_string(options.count) + ", ",
                rest > 0.0 ? ", then " + duration(rest) + " to the end" : "");
        }
        Status taken = takeOne(camera, options, number, filter.value(), run);
        while (!taken.ok() && retries > 0 && worthRetrying(taken.error())) {
            --retries;
            note("picture " + std::to_string(number) + ": " + taken.error().text + "; trying again");
            Status ready = prepareRetry(camera, taken.error(), wanted, run);
            taken = ready.ok() ? takeOne(camera, options, number, filter.value(), run) : ready;
            if (!ready.ok())
                break;
        }
        if (!taken.ok())
            return inSequence(taken.error(), number, options.count);
    }
    return Done{};
}

/// FITS headers take ASCII only, so that names may look different there.
void noteTransliterations(const vorncapture::Observation& observation)
{
    for (const std::string* name : {&observation.object, &observation.observer, &observation.telescope}) {
        const std::string plain = vorncapture::toAscii(*name);
        if (plain != *name)
            note("\"" + *name + "\" becomes \"" + plain + "\" in the FITS header, which takes plain letters only");
    }
}

/// After a stop or a failure nothing moves the mount any longer.
void openRelays(Opened& camera)
{
    if (camera.isOpen() && camera.session().info().caps.hasGuidePort && !camera.stuck())
        (void)camera.session().call([](VornCamera& opened) { return opened.setGuideRelays(0); });
}

}  // namespace

int exposeCommand(Options options)
{
    if (options.request.dark)
        options.kind = options.seconds.value_or(1.0) > 0.0 ? FrameKind::DARK : FrameKind::BIAS;
    options.request.dark = options.kind == FrameKind::DARK || options.kind == FrameKind::BIAS;
    const Status usage = checkUsage(options);
    if (!usage.ok())
        return report(usage.error());
    // A first look with made-up values, before the camera is opened: patterns, folders and fixed names.
    const Result<Outputs> first = outputsOf(options, {.start = std::chrono::system_clock::now()});
    if (!first.ok())
        return report(first.error());
    Status possible = checkOutputs(first.value(), options.force);
    if (!possible.ok())
        return report(possible.error());

    const Result<WantedFilter> wanted = wantedFilter(options);
    if (!wanted.ok())
        return report(wanted.error());
    if (!options.quiet && (!options.fitsPath.empty() || options.pngPath.empty()))
        noteTransliterations(options.observation);
    return withCamera(options, [&options, &wanted](Opened& camera) -> Status {
        Status outcome = takeAll(camera, options, wanted.value());
        if (!outcome.ok())
            openRelays(camera);
        if (options.warmAtEnd && camera.isOpen() && !camera.stuck()) {
            Status warming = vorncapture::warmUp(camera.session(), false);
            if (outcome.ok() && !warming.ok())
                return warming;
            if (warming.ok() && !options.quiet)
                note("the camera is warming up; see vornctl status");
        }
        return outcome;
    });
}

}  // namespace vornctl
