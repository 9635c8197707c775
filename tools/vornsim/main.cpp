// SPDX-License-Identifier: MIT
#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <vector>

#include "device/faults/fault_rule.h"
#include "subcommand.h"

using namespace vornsim;

namespace {

constexpr const char* EXAMPLES = R"(Examples:
  vornsim list
  vornsim run --camera "Vorn K12" -- vornctl list

Each subcommand has a --help of its own.)";

constexpr const char* RUN_EXAMPLES = R"(Examples:
  vornsim run --camera "Vorn K12" -- vornctl list
  vornsim run --camera K12 --camera K12 --log cameras.log -- vornctl expose -t 10 -o sky.fits
  vornsim run --camera K12 --scene ramp -- gdb --args ./my-imaging-program
  vornsim run --camera K12 --fault exposure=1,transfer=3,error=NO_DEVICE -- vornctl expose -t 10

The program is not changed in any way: it uses the system's libusb-1.0 and sees the simulated cameras instead of the
machine's USB devices. vornsim ends with the program's exit status, or 128 + the signal that ended it.)";

constexpr const char* USBIP_EXAMPLES = R"(Examples:
  vornsim usbip --camera "Vorn K12"
  vornsim usbip --listen 127.0.0.1:3241 --camera K12 --camera XRM --log cameras.log

It prints what to type in another terminal: the usbip tool lets the kernel attach the cameras, and from then on udev,
lsusb and any program see them as hardware. Ctrl-C unplugs them all.)";

/// A subcommand's options, and what it does.
struct Subcommand {
    CLI::App* app;
    std::function<int(const CommandLine& line)> run;
};

/// Declares the options that every subcommand with cameras has, and explains them below its own @p examples.
void addCameraOptions(CLI::App& app, CameraChoice& choice, const std::string& examples)
{
    app.footer(examples + "\n\n" + FAULT_HELP);
    app.add_option("--camera", choice.cameras, "A model to plug in, such as \"Vorn K12\" or K12; may be repeated")
        ->type_name("MODEL")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_flag("--no-camera", choice.noCamera, "Plug nothing in");
    app.add_option("--seed", choice.options.seed, "Which sky, noise and hot pixels; the n-th camera gets SEED+n-1")
        ->capture_default_str();
    app.add_option("--serial", choice.options.serialNumber,
                   "Serial number of the first camera, the next ones follow (default: made from the seed)");
    app.add_option_function<std::string>(
           "--scene",
           [&choice](const std::string& name) {
               const std::string scene = CLI::detail::to_lower(name);
               choice.options.scene = scene == "ramp"   ? SceneKind::RAMP
                                      : scene == "flat" ? SceneKind::FLAT
                                                        : SceneKind::SKY;
           },
           "What the sensors see: sky, flat (an evenly lit screen) or ramp (a noiseless test pattern)")
        ->check(CLI::IsMember({"sky", "flat", "ramp"}, CLI::ignore_case).description(""))
        ->type_name("sky|flat|ramp")
        ->default_str("sky");
    app.add_option_function<std::string>(
           "--chip",
           [&choice](const std::string& name) { choice.emulatedChip = CLI::detail::to_lower(name) == "emulated"; },
           "What stands for the cameras' USB bridge: native (a model, fast) or emulated (the chip, executing the "
           "program "
           "that the host loads)")
        ->check(CLI::IsMember({"native", "emulated"}, CLI::ignore_case).description(""))
        ->type_name("native|emulated")
        ->default_str("native");
    app.add_option("--ambient", choice.options.ambientCelsius, "Temperature around the cameras in degrees Celsius")
        ->capture_default_str();
    app.add_option("--fault", choice.faults, "Something to go wrong, as explained below; may be repeated")
        ->type_name("WHEN,WHAT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--log", choice.logPath, "Write what the cameras do to this file, - for standard error");
}

Subcommand addList(CLI::App& app, Options& options)
{
    CLI::App* list = app.add_subcommand("list", "List the cameras that can be simulated");
    list->add_flag("--json", options.json, "Print JSON");
    return {list, [&options](const CommandLine& /*line*/) { return listCommand(options); }};
}

Subcommand addRun(CLI::App& app, Options& options)
{
    CLI::App* run = app.add_subcommand("run", "Run a program with simulated cameras: vornsim run ... -- PROGRAM ARGS");
    addCameraOptions(*run, options.choice, RUN_EXAMPLES);
    run->add_option("--usbfs-memory-mb", options.usbfsMemoryMib,
                    "MiB that all USB transfers under way may take up, 0 for any number")
        ->capture_default_str();
    return {run, [&options](const CommandLine& line) { return runCommand(options, line); }};
}

Subcommand addUsbip(CLI::App& app, Options& options)
{
    CLI::App* usbip = app.add_subcommand("usbip", "Let a real kernel attach simulated cameras (USB/IP)");
    addCameraOptions(*usbip, options.choice, USBIP_EXAMPLES);
    usbip->add_option("--listen", options.listen, "Where clients reach the cameras")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    return {usbip, [&options](const CommandLine& /*line*/) { return usbipCommand(options); }};
}

#ifdef VORNSIM_HAS_REDIR
constexpr const char* REDIR_EXAMPLES = R"(Examples:
  qemu-system-x86_64 ... -device qemu-xhci \
      -chardev socket,id=cam,path=cam.sock,server=on,wait=off -device usb-redir,chardev=cam
  vornsim redir cam.sock --camera "Vorn K12"

QEMU listens on the socket, one for each camera; vornsim connects to it and plugs the camera into the guest. Ctrl-C
unplugs it, and starting vornsim again plugs one in again.)";

Subcommand addRedir(CLI::App& app, Options& options)
{
    CLI::App* redir = app.add_subcommand("redir", "Plug simulated cameras into a guest of QEMU (USB redirection)");
    addCameraOptions(*redir, options.choice, REDIR_EXAMPLES);
    redir->add_option("SOCKET", options.sockets, "The socket of QEMU's chardev, one for each camera")->required();
    return {redir, [&options](const CommandLine& /*line*/) { return redirCommand(options); }};
}
#endif

/// Everything up to the first "--" is vornsim's, everything after it the program's.
char** endOfOwnArguments(int argc, char** argv)
{
    return std::find_if(argv, argv + argc, [](const char* argument) { return std::strcmp(argument, "--") == 0; });
}

/// The command line, apart from what nobody expects to go wrong.
int runVornsim(int argc, char** argv)
{
    Options options;
    CLI::App app("Simulated Vorn cameras for any program that uses libusb-1.0.", "vornsim");
    app.footer(EXAMPLES);
    app.set_version_flag("--version", "vornsim " VORNSIM_VERSION);
    app.require_subcommand(1);
    const std::vector<Subcommand> subcommands = {
        addList(app, options),
        addRun(app, options),
        addUsbip(app, options),
#ifdef VORNSIM_HAS_REDIR
        addRedir(app, options),
#endif
    };

    char** const ownEnd = endOfOwnArguments(argc, argv);
    try {
        app.parse(static_cast<int>(ownEnd - argv), argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);  // help or version
        const auto given = app.get_subcommands();
        if (given.empty())
            return fail(EXIT_USAGE, "give a command it knows: list, run, usbip or redir (see vornsim --help)");
        return fail(EXIT_USAGE, std::string(error.what()) + " (see vornsim " + given.front()->get_name() + " --help)");
    }
    const auto chosen = std::find_if(subcommands.begin(), subcommands.end(),
                                     [](const Subcommand& command) { return command.app->parsed(); });
    return chosen->run({argv, {std::min(ownEnd + 1, argv + argc), argv + argc}});
}

}  // namespace

int vornsim::fail(int exitStatus, const std::string& message)
{
    std::fprintf(stderr, "vornsim: %s\n", message.c_str());
    return exitStatus;
}

int main(int argc, char** argv)
{
    try {
        return runVornsim(argc, argv);
    } catch (const std::exception& error) {  // no memory, most likely
        return vornsim::fail(vornsim::EXIT_OWN_FAILURE, error.what());
    }
}
