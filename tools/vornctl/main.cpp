// SPDX-License-Identifier: MIT
/// @file main.cpp
/// Command line of vornctl: what can be asked, and what is refused before any camera is touched.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include <vornccd.h>

#include "commands.h"
#include "console.h"
#include "options.h"

namespace {

using vornctl::Options;

using Parser = vorncapture::Status (*)(const std::string&, vorncapture::ExposureRequest&);

/// Adds an option whose text @p parse reads into the request; what it refuses is a usage error.
CLI::Option* addParsed(CLI::App& command, const std::string& name, Options& options, Parser parse,
                       const std::string& help)
{
    const auto read = [&options, parse](const std::string& text) {
        const auto status = parse(text, options.request);
        if (!status.ok())
            throw CLI::ValidationError(status.error().text);
    };
    return command.add_option_function<std::string>(name, read, help);
}

void addDeviceOption(CLI::App& command, Options& options)
{
    command
        .add_option("-d,--device", options.device,
                    "which camera: list index (0), serial number (123456, serial:7) or model (\"Vorn K12\", k12)")
        ->type_name("CAMERA");
}

void addExposeOptions(CLI::App& expose, Options& options)
{
    addDeviceOption(expose, options);
    addParsed(expose, "-t,--time", options, vornctl::parseSeconds, "exposure time; 0 is the shortest possible")
        ->type_name("SECONDS")
        ->required();
    expose.add_option("-o,--output", options.fitsPath, "FITS file; without -o and --png: vorn-DATE-TIME.fits")
        ->type_name("FILE.fits");
    expose.add_option("--png", options.pngPath, "automatically stretched picture")->type_name("FILE.png");
    addParsed(expose, "--bin", options, vornctl::parseBinning, "sensor pixels summed into one, 2x2")->type_name("XxY");
    addParsed(expose, "--roi", options, vornctl::parseRegion, "part of the sensor, in unbinned pixels")
        ->type_name("X,Y,W,H");
    expose.add_flag("--dark", options.request.dark, "keep the shutter closed");
    expose.add_flag("-f,--force", options.force, "replace existing files");
}

int run(int argc, char** argv)
{
    Options options;
    bool trace = false;
    CLI::App app("Drives cooled CCD cameras on USB.", "vornctl");
    app.set_version_flag("--version", "vornctl " VORNCTL_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("--json", options.json, "print one JSON object on standard output");
    app.add_flag("-q,--quiet", options.quiet, "no progress and no notes");
    app.add_flag("--trace", trace, "write all that goes on with the camera to standard error");
    app.footer(
        "Exit status: 0 success, 1 the operation failed, 2 usage, 3 no such camera, 4 no permission,\n"
        "5 the camera does not answer or is gone, 130 or 143 stopped by a signal.");

    CLI::App* list = app.add_subcommand("list", "list the attached cameras");
    CLI::App* info = app.add_subcommand("info", "tell what a camera is and can do");
    CLI::App* expose = app.add_subcommand("expose", "take one picture");
    addDeviceOption(*info, options);
    addExposeOptions(*expose, options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);  // help or version
        const bool anyCommand = !app.get_subcommands().empty();
        (void)std::fprintf(stderr, "vornctl: %s (see vornctl --help)\n",
                           anyCommand ? error.what() : "give a command it knows: list, info or expose");
        return vornctl::EXIT_USAGE;
    }
    VornDebug = trace;
    if (*list)
        return vornctl::listCommand(options);
    if (*info)
        return vornctl::infoCommand(options);
    return *expose ? vornctl::exposeCommand(options) : vornctl::EXIT_USAGE;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {  // memory that ran out, above all
        (void)std::fprintf(stderr, "vornctl: %s\n", error.what());
        return vornctl::EXIT_FAILED;
    }
}
