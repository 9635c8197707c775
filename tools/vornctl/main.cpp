// SPDX-License-Identifier: MIT
/// @file main.cpp
/// Command line of vornctl: what can be asked, and what is refused before any camera is touched.
#include <algorithm>
#include <array>
#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <vornccd.h>

#include "../spelling.h"
#include "capture/text.h"
#include "commands.h"
#include "console.h"
#include "options.h"

namespace {

using vornctl::Options;

constexpr double LONGEST_WAIT_SECONDS = 1e6;
constexpr double MOST_PICTURES = 1e6;

template <typename Number>
struct Plain {
    using Type = Number;
};
template <typename Number>
struct Plain<std::optional<Number>> {
    using Type = Number;
};

/// Adds an option whose value is a number from @p low to @p high; a type without fractions wants a whole one. What is
/// refused, is refused with the numbers that are allowed.
template <typename Target>
CLI::Option* addNumber(CLI::App& command, const std::string& name, Target& target, double low, double high,
                       const std::string& help)
{
    using Number = typename Plain<Target>::Type;
    const std::string shown = name.substr(name.find_last_of(',') + 1);
    const auto read = [=, &target](const std::string& text) {
        const auto number = vorncapture::parseNumber<Number>(text);
        const double value = number ? static_cast<double>(*number) : std::nan("");
        if (!(value >= low && value <= high)) {
            std::array<char, 80> allowed = {};
            (void)std::snprintf(allowed.data(), allowed.size(), ": give a %s from %.9g to %.9g",
                                std::is_integral_v<Number> ? "whole number" : "number", low, high);
            throw CLI::ValidationError(shown + " cannot be \"" + text + "\"" + allowed.data());
        }
        target = *number;
    };
    return command.add_option_function<std::string>(name, read, help);
}

void addDeviceOption(CLI::App& command, Options& options)
{
    command
        .add_option("-d,--device", options.device,
                    "which camera: list index (0), serial number (123456, serial:7), model (\"Vorn K12\", k12) or "
                    "place on the bus "
                    "(1:2 as lsusb has it, or the port 1-2.3)")
        ->type_name("CAMERA");
    addNumber(command, "--timeout", options.timeoutSeconds, 0.1, LONGEST_WAIT_SECONDS,
              "longest time to wait for the camera")
        ->type_name("SECONDS");
}

/// One command of the tool: how it is called, and what does it.
struct Command {
    CLI::App* app;
    std::function<int()> run;
};

/// Everything the commands' options are read into.
struct Asked {
    Options options;
    std::string shutter;
    vornctl::GuideRequest guide;
    double guideMilliseconds = 0.0;
    vornctl::GpioRequest gpio;
    vornctl::GainRequest gain;
    vorncapture::CoolingRequest cooling;
    bool noWait = false;
    double warmLimitSeconds = 3600.0;
    vornctl::MonitorRequest monitor;
};

CLI::App* addCommand(CLI::App& app, Asked& asked, const char* name, const char* help, const char* examples)
{
    CLI::App* command = app.add_subcommand(name, help);
    addDeviceOption(*command, asked.options);
    command->footer(std::string("Examples:\n") + examples);
    return command;
}

/// Adds a text that @p parse reads into @p target; what it refuses is a usage error.
template <typename Target>
CLI::Option* addRead(CLI::App& command, const std::string& name, Target& target,
                     vorncapture::Status (*parse)(const std::string&, Target&), const std::string& help)
{
    const auto read = [&target, parse](const std::string& text) {
        const auto status = parse(text, target);
        if (!status.ok())
            throw CLI::ValidationError(status.error().text);
    };
    return command.add_option_function<std::string>(name, read, help);
}

void addFilterNames(CLI::App& command, Options& options)
{
    command.add_option("--filter-names", options.filterNames, "names of the filters, from position 1")
        ->type_name("NAME,NAME,...")
        ->envname("VORNCTL_FILTERS");
}

Command addFilter(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "filter", "turn the filter wheel, or show its position",
                                   "  vornctl filter\n  vornctl filter 3\n"
                                   "  export VORNCTL_FILTERS=L,R,G,B,Ha; vornctl filter ha");
    command->add_option("FILTER", asked.options.filter, "position to turn to, from 1, or name");
    addFilterNames(*command, asked.options);
    return {command, [&asked] { return vornctl::filterCommand(asked.options); }};
}

Command addShutter(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "shutter", "open or close the shutter",
                                   "  vornctl shutter close\n  vornctl shutter open");
    command->add_option("STATE", asked.shutter, "open or close")->required()->check(CLI::IsMember({"open", "close"}));
    return {command, [&asked] { return vornctl::shutterCommand(asked.options, asked.shutter == "open"); }};
}

Command addGuide(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "guide", "close a relay of the guide port for some milliseconds",
                                   "  vornctl guide x+ 500      half a second\n"
                                   "  vornctl guide 3 1200      the same relay as y+\n"
                                   "Which way the stars move depends on the mount. Ctrl-C opens the relays at once.");
    addRead(*command, "DIRECTION", asked.guide.relay, vornctl::parseDirection, "x+, x-, y+ or y-; relay 1 to 4")
        ->required()
        ->each([&asked](const std::string& text) { asked.guide.direction = text; });
    addNumber(*command, "MILLISECONDS", asked.guideMilliseconds, 1.0, vorncapture::LONGEST_PULSE_SECONDS * 1000.0,
              "how long, 1 to 60000")
        ->required();
    return {command, [&asked] {
                asked.guide.seconds = asked.guideMilliseconds / 1000.0;
                return vornctl::guideCommand(asked.options, asked.guide);
            }};
}

Command addGpio(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "gpio", "read and drive the GPIO lines",
                                   "  vornctl gpio\n  vornctl gpio --outputs 0b0011 --set 0b0001");
    addRead(*command, "--outputs", asked.gpio.outputs, vornctl::parseMask, "directions of the lines, a bit a line")
        ->type_name("MASK");
    addRead(*command, "--set", asked.gpio.levels, vornctl::parseMask, "levels of the outputs, a bit a line")
        ->type_name("MASK");
    return {command, [&asked] { return vornctl::gpioCommand(asked.options, asked.gpio); }};
}

Command addGain(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "gain", "show or set gain and offset of the readout",
                                   "  vornctl gain\n  vornctl gain --gain 20 --offset 100");
    addNumber(*command, "--gain", asked.gain.gain, 0.0, vorncapture::LARGEST_GAIN, "0 to 63")->type_name("N");
    addNumber(*command, "--offset", asked.gain.offset, 0.0, vorncapture::LARGEST_OFFSET, "0 to 512")->type_name("N");
    return {command, [&asked] { return vornctl::gainCommand(asked.options, asked.gain); }};
}

Command addCool(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "cool", "cool the sensor and wait until it has settled",
                                   "  vornctl cool -10\n"
                                   "  vornctl cool -20 --ramp 3     at most 3 degrees a minute\n"
                                   "  vornctl cool -10 --no-wait    set the target and return");
    addNumber(*command, "CELSIUS", asked.cooling.targetCelsius, vorncapture::LOWEST_TARGET_CELSIUS,
              vorncapture::HIGHEST_TARGET_CELSIUS, "target in degrees Celsius")
        ->required();
    addNumber(*command, "--ramp", asked.cooling.perMinute, 0.01, 1000.0,
              "lower the set-point evenly, so many degrees a minute")
        ->type_name("DEGREES");
    command->add_flag("--no-wait", asked.noWait, "return at once; with --ramp, at the end of the ramp");
    return {command, [&asked] {
                asked.cooling.wait = !asked.noWait;
                asked.cooling.limitSeconds = asked.options.timeoutSeconds.value_or(asked.cooling.limitSeconds);
                return vornctl::coolCommand(asked.options, asked.cooling);
            }};
}

Command addWarm(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "warm", "warm the sensor up slowly and switch the cooler off",
                                   "  vornctl warm\n  vornctl warm --no-wait   return at once; the camera goes on");
    command->add_flag("--no-wait", asked.noWait, "do not wait for the end");
    return {command, [&asked] {
                const double limit = asked.options.timeoutSeconds.value_or(asked.warmLimitSeconds);
                return vornctl::warmCommand(asked.options, !asked.noWait, limit);
            }};
}

Command addStatus(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "status", "show temperatures, cooler and filter wheel",
                                   "  vornctl status\n  vornctl status --json");
    addFilterNames(*command, asked.options);
    return {command, [&asked] { return vornctl::statusCommand(asked.options); }};
}

Command addMonitor(CLI::App& app, Asked& asked)
{
    CLI::App* command = addCommand(app, asked, "monitor", "show the same repeatedly until Ctrl-C",
                                   "  vornctl monitor --interval 10\n"
                                   "  vornctl monitor --json --count 60 --plot cooling.svg");
    addNumber(*command, "--interval", asked.monitor.intervalSeconds, 0.1, LONGEST_WAIT_SECONDS,
              "time between two readings")
        ->type_name("SECONDS")
        ->default_str("5");
    addNumber(*command, "--count", asked.monitor.count, 0.0, MOST_PICTURES, "number of readings; 0: until Ctrl-C")
        ->type_name("N");
    command
        ->add_option("--plot", asked.monitor.plotPath,
                     "draw temperature, target and power at the end, as PNG or SVG by the name's ending")
        ->type_name("FILE");
    command->add_flag("-f,--force", asked.options.force, "replace an existing file");
    addFilterNames(*command, asked.options);
    return {command, [&asked] { return vornctl::monitorCommand(asked.options, asked.monitor); }};
}

void addPictureOptions(CLI::App& expose, Asked& asked)
{
    Options& options = asked.options;
    const auto readSeconds = [&options](const std::string& text) {
        const auto status = vornctl::parseSeconds(text, options.request);
        if (!status.ok())
            throw CLI::ValidationError(status.error().text);
        options.seconds = options.request.seconds;
    };
    expose.add_option_function<std::string>("-t,--time", readSeconds, "exposure time; 0 is the shortest possible")
        ->type_name("SECONDS");
    addRead(expose, "--type", options.kind, vornctl::parseKind,
            "light, dark, bias or flat; dark and bias keep the shutter closed")
        ->type_name("TYPE");
    expose.add_flag("--dark", options.request.dark, "the same as --type dark");
    addRead(expose, "--bin", options.request, vornctl::parseBinning, "sensor pixels summed into one, 2x2")
        ->type_name("XxY");
    addRead(expose, "--roi", options.request, vornctl::parseRegion, "part of the sensor, in unbinned pixels")
        ->type_name("X,Y,W,H");
    addRead(expose, "--bayer", options.request, vornctl::parseBayer,
            "colour filters of the sensor's first four pixels, where the camera does not report them: RGGB, GRBG, "
            "GBRG or BGGR")
        ->type_name("PATTERN");
    expose.add_flag("--preview", options.request.preview, "the camera's faster, noisier readout");
    expose.add_flag("--eight-bit", options.request.eightBit, "8-bit readout, values 0 to 255");
    expose.add_option("--filter", options.filter, "position or name of the filter to turn the wheel to before")
        ->type_name("FILTER");
    addFilterNames(expose, options);
}

/// What stands in the header for those who look at the picture later; what stays the same is said once, in the
/// environment.
void addObservationOptions(CLI::App& expose, vorncapture::Observation& observation)
{
    constexpr double LONGEST_MM = 1e6;
    expose.add_option("--object", observation.object, "name of the object, for header and file name")
        ->type_name("NAME");
    expose.add_option("--observer", observation.observer, "name of the observer")
        ->type_name("NAME")
        ->envname("VORNCTL_OBSERVER");
    expose.add_option("--telescope", observation.telescope, "name of the telescope")
        ->type_name("NAME")
        ->envname("VORNCTL_TELESCOPE");
    const auto angle = [&expose](const char* name, std::optional<double>& target, double low, double high,
                                 const char* what, const char* help) {
        const auto read = [=, &target](const std::string& text) {
            const auto status = vornctl::parseAngle(text, low, high, what, target);
            if (!status.ok())
                throw CLI::ValidationError(status.error().text);
        };
        return expose.add_option_function<std::string>(name, read, help);
    };
    angle("--ra", observation.rightAscensionHours, 0.0, 24.0, "right ascension", "of the object")->type_name("H:M:S");
    angle("--dec", observation.declinationDegrees, -90.0, 90.0, "declination", "of the object")->type_name("D:M:S");
    angle("--latitude", observation.siteLatitudeDegrees, -90.0, 90.0, "latitude", "of the telescope, north positive")
        ->type_name("D:M:S")
        ->envname("VORNCTL_LATITUDE");
    angle("--longitude", observation.siteLongitudeDegrees, -180.0, 180.0, "longitude",
          "of the telescope, east positive")
        ->type_name("D:M:S")
        ->envname("VORNCTL_LONGITUDE");
    const auto readKeywords = [&observation](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            const auto keyword = vorncapture::parseKeyword(text);
            if (!keyword.ok())
                throw CLI::ValidationError(keyword.error().text);
            observation.keywords.push_back(keyword.value());
        }
    };
    expose
        .add_option_function<std::vector<std::string>>("--key", readKeywords,
                                                       "one more keyword for the header; may be repeated")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    addNumber(expose, "--focal-length", observation.focalLengthMm, 0.1, LONGEST_MM, "of the telescope")
        ->type_name("MM")
        ->envname("VORNCTL_FOCAL_LENGTH");
    addNumber(expose, "--aperture", observation.apertureMm, 0.1, LONGEST_MM, "diameter of the telescope's aperture")
        ->type_name("MM")
        ->envname("VORNCTL_APERTURE");
}

Command addExpose(CLI::App& app, Asked& asked)
{
    Options& options = asked.options;
    CLI::App* command = addCommand(
        app, asked, "expose", "take one picture or a sequence",
        "  vornctl expose -t 10\n"
        "  vornctl expose -t 0.5 --bin 2x2 --roi 100,100,640,480 -o moon.fits --png moon.png\n"
        "  vornctl expose -t 300 --count 20 --filter 2 -o 'm31-{filter}-{n:3}-{temp}C.fits'\n"
        "  VORNCTL_FILTERS=L,R,G,B vornctl expose -t 60 --filter R --object 'M 31' -o '{object}-{filter}.fits'\n"
        "  vornctl expose --type bias --count 50 -o 'bias-{n:2}.fits' --warm\n"
        "  vornctl expose -t 1 -o - >moon.fits\n"
        "Names may have {n}, {n:3}, {date}, {type}, {seconds}, {filter}, {temp}, {camera} and {object}. Without {n}\n"
        "a sequence gets a number before the ending. Ctrl-C drops the picture at hand and keeps the others.");
    addPictureOptions(*command, asked);
    addObservationOptions(*command, options.observation);
    command
        ->add_option("-o,--output", options.fitsPath,
                     "FITS file; - is standard output; without -o and --png: vorn-DATE-TIME.fits")
        ->type_name("FILE.fits");
    command->add_option("--png", options.pngPath, "automatically stretched picture")->type_name("FILE.png");
    addNumber(*command, "-n,--count", options.count, 1.0, MOST_PICTURES, "number of pictures")
        ->type_name("N")
        ->default_str("1");
    addNumber(*command, "--interval", options.intervalSeconds, 0.0, LONGEST_WAIT_SECONDS,
              "from the start of one picture to that of the next")
        ->type_name("SECONDS");
    addNumber(*command, "--retry", options.retries, 0.0, MOST_PICTURES,
              "take a picture again after a failure, so many times in all; wait for a camera that is gone")
        ->type_name("N");
    command->add_flag("--warm", options.warmAtEnd, "start the camera's warm-up at the end, also after an error");
    command->add_flag("-f,--force", options.force, "replace existing files");
    return {command, [&asked] { return vornctl::exposeCommand(asked.options); }};
}

Command addDoctor(CLI::App& app, Asked& asked)
{
    CLI::App* command = app.add_subcommand("doctor", "find out why cameras do not work, and what to do");
    command->footer(
        "Examples:\n"
        "  vornctl doctor\n"
        "  vornctl doctor --quiet    problems only\n"
        "It opens each attached camera for a moment; one that another program uses is not disturbed.");
    return {command, [&asked] { return vornctl::doctorCommand(asked.options); }};
}

/// @return a help text whose lines fit into a terminal of 80 columns. What does not fit goes on below the explanation
/// of an option, or below its own line's beginning.
std::string fitted(const std::string& text)
{
    constexpr size_t COLUMNS = 80;
    constexpr size_t EXPLANATION = 30;  // where CLI11 begins it
    std::istringstream lines(text);
    std::string fitting;
    for (std::string line; std::getline(lines, line);) {
        const size_t begin = line.find_first_not_of(' ');
        const bool option = begin == 2 && line.size() > EXPLANATION && line[EXPLANATION - 1] == ' ';
        const size_t indent = option || begin == EXPLANATION ? EXPLANATION : begin == std::string::npos ? 0 : begin;
        while (line.size() > COLUMNS) {
            const size_t cut = line.rfind(' ', COLUMNS);
            if (cut == std::string::npos || cut <= indent)
                break;
            fitting += line.substr(0, cut) + "\n";
            line = std::string(indent, ' ') + line.substr(cut + 1);
        }
        fitting += line + "\n";
    }
    return fitting;
}

/// @return "; did you mean "status"?" for a word that is near a known one, else nothing.
std::string guess(const std::string& word, const std::vector<std::string>& known)
{
    const std::string near = spelling::nearest(word, known);
    return near.empty() ? "" : "; did you mean \"" + near + "\"?";
}

/// @return the long names of all options that @p app and its @p command have.
std::vector<std::string> optionNames(const CLI::App& app, const CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::App* has : {&app, &command}) {
        for (const CLI::Option* option : has->get_options()) {
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
        }
    }
    return names;
}

/// @return the names of all commands, for the message that none was given.
std::string namesOf(const std::vector<Command>& commands)
{
    std::string names;
    for (const Command& command : commands)
        names += (names.empty() ? "" : &command == &commands.back() ? " or " : ", ") + command.app->get_name();
    return names;
}

/// @return what is wrong with a command line that begins with @p first, and what is allowed.
std::string problemOf(const CLI::ParseError& error, const CLI::App& app, const std::vector<Command>& commands,
                      const std::string& first)
{
    const bool option = !first.empty() && first.front() == '-';
    if (app.get_subcommands().empty()) {
        std::vector<std::string> names;
        for (const Command& command : commands)
            names.push_back(command.app->get_name());
        return (first.empty() || option ? "give a command: " : '"' + first + "\" is no command: give ") +
               namesOf(commands) + (option ? "" : guess(first, names));
    }
    if (option && dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr)
        return "options come after the command: vornctl " + app.get_subcommands().front()->get_name() + " " + first;
    // CLI11 names what it did not expect, but not what is near to it.
    const std::string said = error.what();
    const size_t wrong = said.find("--");
    if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr || wrong == std::string::npos)
        return said;
    const std::string word = said.substr(wrong, said.find_first_of(" =", wrong) - wrong);
    return said + guess(word, optionNames(app, *app.get_subcommands().front()));
}

int run(int argc, char** argv)
{
    Asked asked;
    bool trace = false;
    CLI::App app("Drives cooled CCD cameras on USB.", "vornctl");
    app.set_version_flag("--version", "vornctl " VORNCTL_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("--json", asked.options.json, "print results as JSON on standard output");
    app.add_flag("-q,--quiet", asked.options.quiet, "no progress and no notes");
    app.add_flag("--trace", trace, "write the trace of all operations to standard error");
    app.footer(
        "Exit status: 0 success, 1 the operation failed, 2 usage, 3 no such camera, 4 no permission,\n"
        "5 the camera does not answer or is gone, 6 the temperature was not reached,\n"
        "130 or 143 stopped by a signal.\n"
        "vornctl COMMAND --help shows examples. The cooler stays as it is when a command ends.");

    CLI::App* list = app.add_subcommand("list", "list the attached cameras");
    CLI::App* info = addCommand(app, asked, "info", "show what a camera is and can do", "  vornctl info -d k12");
    const std::vector<Command> commands = {
        {list, [&asked] { return vornctl::listCommand(asked.options); }},
        {info, [&asked] { return vornctl::infoCommand(asked.options); }},
        addExpose(app, asked),
        addStatus(app, asked),
        addMonitor(app, asked),
        addCool(app, asked),
        addWarm(app, asked),
        addFilter(app, asked),
        addShutter(app, asked),
        addGuide(app, asked),
        addGpio(app, asked),
        addGain(app, asked),
        addDoctor(app, asked),
    };

    try {
        app.parse(argc, argv);
        vornctl::reportAsJson(asked.options.json);
    } catch (const CLI::ParseError& error) {
        const bool unknown = argc > 1 && argv[1][0] != '-' && app.get_subcommands().empty();
        if (error.get_exit_code() == 0 && !unknown) {  // help or version
            std::ostringstream text;
            (void)app.exit(error, text);
            (void)std::fputs(fitted(text.str()).c_str(), stdout);
            return vornctl::EXIT_OK;
        }
        vornctl::reportAsJson(std::find(argv, argv + argc, std::string_view("--json")) != argv + argc);
        const std::string problem = problemOf(error, app, commands, argc > 1 ? argv[1] : "");
        const auto given = app.get_subcommands();
        const std::string helped = given.empty() ? "vornctl" : "vornctl " + given.front()->get_name();
        return vornctl::report({vorncapture::ErrorKind::BAD_REQUEST, problem + " (see " + helped + " --help)", ""});
    }
    VornDebug = trace;
    for (const Command& command : commands) {
        if (*command.app)
            return command.run();
    }
    return vornctl::EXIT_USAGE;
}

}  // namespace

int main(int argc, char** argv)
{
    // A reader of standard output that has ended is told as any other trouble with it, with the camera closed in order.
    (void)std::signal(SIGPIPE, SIG_IGN);
    // Nothing that is printed at once is longer, so that it fails in flushOutput(), which knows why.
    static std::array<char, size_t{1} << 16> buffer;
    (void)std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
    try {
        const int status = run(argc, argv);
        const auto told = vornctl::flushOutput();
        return status == vornctl::EXIT_OK && !told.ok() ? vornctl::report(told.error()) : status;
    } catch (const std::exception& error) {  // memory that ran out, above all
        (void)std::fprintf(stderr, "vornctl: %s\n", error.what());
        return vornctl::EXIT_FAILED;
    }
}
