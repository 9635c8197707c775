// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>

#include "bus/real_clock.h"
#include "subcommand.h"
#include "usbfs/child_process.h"
#include "usbfs/mock_bus.h"
#include "usbfs/preload.h"

namespace vornsim {
namespace {

int startFailure(const std::string& program, int error)
{
    const std::string reason = "cannot run \"" + program + "\": ";
    if (error == ENOENT)
        return fail(EXIT_NOT_FOUND, reason + "no such program here or in PATH");
    return fail(error == EACCES || error == ENOEXEC ? EXIT_NOT_EXECUTABLE : EXIT_OWN_FAILURE,
                reason + std::strerror(error));
}

}  // namespace

int runCommand(const Options& options, const CommandLine& line)
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
    if (const int exitStatus = cameras.make(options.choice))
        return exitStatus;
    ChildResult result;
    {
        MockBus bus(clock, options.usbfsMemoryMib);
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

}  // namespace vornsim
