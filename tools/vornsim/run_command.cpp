// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <memory>

#include "bus/real_clock.h"
#include "camera_set.h"
#include "subcommand.h"
#include "usbfs/child_process.h"
#include "usbfs/mock_bus.h"
#include "usbfs/preload.h"

namespace vornsim {
namespace {

constexpr const char* EXAMPLES = R"(Examples:
  vornsim run --camera "Vorn K12" -- vornctl list
  vornsim run --camera K12 --camera K12 --log cameras.log -- vornctl expose -t 10 -o sky.fits
  vornsim run --camera K12 --scene ramp -- gdb --args ./my-imaging-program
  vornsim run --camera K12 --fault exposure=1,transfer=3,error=NO_DEVICE -- vornctl expose -t 10

The program is not changed in any way: it uses the system's libusb-1.0 and sees the simulated cameras instead of the
machine's USB devices. vornsim ends with the program's exit status, or 128 + the signal that ended it.)";

int startFailure(const std::string& program, int error)
{
    const std::string reason = "cannot run \"" + program + "\": ";
    if (error == ENOENT)
        return fail(EXIT_NOT_FOUND, reason + "no such program here or in PATH");
    return fail(error == EACCES || error == ENOEXEC ? EXIT_NOT_EXECUTABLE : EXIT_OWN_FAILURE,
                reason + std::strerror(error));
}

int run(const CameraChoice& choice, unsigned memoryMib, const CommandLine& line)
{
    if (line.program.empty())
        return fail(EXIT_USAGE,
                    "which program shall see the cameras? Put it after --, for example: vornsim run --camera K12 -- "
                    "vornctl list");
    const std::string missing = ensurePreload(line.argv);
    if (!missing.empty())
        return fail(EXIT_OWN_FAILURE, missing);

    ChildProcess child;  // before any thread starts
    const RealClock clock;
    CameraSet cameras(clock);
    if (const int exitStatus = cameras.make(choice))
        return exitStatus;
    ChildResult result;
    {
        MockBus bus(clock, memoryMib);
        for (size_t i = 0; i < cameras.size(); ++i) {
            const std::string problem = bus.attach(cameras.camera(i), cameras.log(i));
            if (!problem.empty())
                return fail(EXIT_OWN_FAILURE, "cannot plug in " + cameras.log(i).cameraName() + ": " + problem);
        }
        result = child.run(line.program, bus.environment());
    }
    if (result.startError)
        return startFailure(line.program.front(), result.startError);
    cameras.reportComplaints();
    return result.exitStatus;
}

}  // namespace

/// `vornsim run`: runs a program with simulated cameras in place of the machine's USB devices, and gives its exit
/// status.
Subcommand addRunCommand(CLI::App& app)
{
    CLI::App* options =
        app.add_subcommand("run", "Run a program with simulated cameras: vornsim run ... -- PROGRAM ARGS");
    const auto choice = std::make_shared<CameraChoice>();
    addCameraOptions(*options, *choice, EXAMPLES);
    const auto memoryMib = std::make_shared<unsigned>(MockBus::USUAL_MEMORY_MIB);
    options
        ->add_option("--usbfs-memory-mb", *memoryMib,
                     "MiB that all USB transfers under way may take up, 0 for any number")
        ->capture_default_str();
    return {options, [choice, memoryMib](const CommandLine& line) { return run(*choice, *memoryMib, line); }};
}

}  // namespace vornsim
