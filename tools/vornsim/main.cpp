// SPDX-License-Identifier: MIT
#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>

#include "list_command.h"
#include "run_command.h"
#include "usbfs/preload.h"

namespace {

constexpr const char* EXAMPLES = R"(Examples:
  vornsim list
  vornsim run --camera "Vorn K12" -- vornctl list
  vornsim run --camera K12 --camera K12 --log cameras.log -- vornctl expose -t 10 -o sky.fits
  vornsim run --camera K12 --scene ramp -- gdb --args ./my-imaging-program

The program is not changed in any way: it uses the system's libusb-1.0 and sees the simulated cameras instead of the
machine's USB devices. vornsim ends with the program's exit status, or 128 + the signal that ended it.)";

/// Everything up to the first "--" is vornsim's, everything after it the program's.
char** endOfOwnArguments(int argc, char** argv)
{
    return std::find_if(argv, argv + argc, [](const char* argument) { return std::strcmp(argument, "--") == 0; });
}

/// The command line, apart from what nobody expects to go wrong.
int runVornsim(int argc, char** argv)
{
    using namespace vornsim;
    CLI::App app("Simulated Vorn cameras for any program that uses libusb-1.0.", "vornsim");
    app.footer(EXAMPLES);
    app.set_version_flag("--version", "vornsim " VORNSIM_VERSION);
    app.require_subcommand(1);

    bool asJson = false;
    CLI::App* list = app.add_subcommand("list", "List the cameras that can be simulated");
    list->add_flag("--json", asJson, "Print JSON");

    RunRequest request;
    bool noCamera = false;
    const std::map<std::string, SceneKind> scenes{{"sky", SceneKind::SKY}, {"ramp", SceneKind::RAMP}};
    CLI::App* run = app.add_subcommand("run", "Run a program with simulated cameras: vornsim run ... -- PROGRAM ARGS");
    run->footer(EXAMPLES);
    run->add_option("--camera", request.cameras, "A model to plug in, such as \"Vorn K12\" or K12; may be repeated")
        ->type_name("MODEL")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    run->add_flag("--no-camera", noCamera, "Run the program with nothing plugged in");
    run->add_option("--seed", request.options.seed, "Which sky, noise and hot pixels; the n-th camera gets SEED+n-1")
        ->capture_default_str();
    run->add_option("--serial", request.options.serialNumber,
                    "Serial number of the first camera, the next ones follow (default: made from the seed)");
    run->add_option("--scene", request.options.scene, "What the sensors see: sky or ramp (a noiseless test pattern)")
        ->transform(CLI::CheckedTransformer(scenes, CLI::ignore_case).description("sky|ramp"))
        ->default_str("sky");
    run->add_option("--ambient", request.options.ambientCelsius, "Temperature around the cameras in degrees Celsius")
        ->capture_default_str();
    run->add_option("--log", request.logPath, "Write what the cameras do to this file, - for standard error");

    char** const ownEnd = endOfOwnArguments(argc, argv);
    try {
        app.parse(static_cast<int>(ownEnd - argv), argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    if (*list)
        return listCommand(asJson);

    request.program.assign(std::min(ownEnd + 1, argv + argc), argv + argc);
    if (request.program.empty()) {
        std::fprintf(stderr,
                     "vornsim: which program shall see the cameras? Put it after --, for example: "
                     "vornsim run --camera K12 -- vornctl list\n");
        return EXIT_USAGE;
    }
    if (request.cameras.empty() != noCamera) {
        std::fprintf(stderr,
                     "vornsim: say which cameras to plug in, for example --camera K12 (vornsim list shows all), "
                     "or --no-camera, not both\n");
        return EXIT_USAGE;
    }
    const std::string missing = ensurePreload(argv);
    if (!missing.empty()) {
        std::fprintf(stderr, "vornsim: %s\n", missing.c_str());
        return EXIT_OWN_FAILURE;
    }
    return runCommand(request);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return runVornsim(argc, argv);
    } catch (const std::exception& error) {  // no memory, most likely
        std::fprintf(stderr, "vornsim: %s\n", error.what());
        return vornsim::EXIT_OWN_FAILURE;
    }
}
