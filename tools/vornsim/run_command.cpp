// SPDX-License-Identifier: MIT
#include "run_command.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "camera_log.h"
#include "model_choice.h"
#include "usbfs/child_process.h"
#include "usbfs/mock_bus.h"
#include "usbfs/real_clock.h"

namespace vornsim {
namespace {

int fail(int exitStatus, const std::string& message)
{
    std::fprintf(stderr, "vornsim: %s\n", message.c_str());
    return exitStatus;
}

/// Each camera is an individual: its own sky, noise and serial number.
CameraOptions optionsOf(const CameraOptions& first, unsigned index)
{
    CameraOptions options = first;
    options.seed += index;
    if (options.serialNumber != 0)
        options.serialNumber += index;
    return options;
}

void reportComplaints(const CameraLog& log, const std::string& logPath)
{
    const unsigned count = log.complaintCount();
    if (count == 0)
        return;
    const std::string remedy = logPath.empty() ? "run with --log FILE to see when" : "see " + logPath;
    std::fprintf(stderr, "vornsim: %s: %u request%s that real firmware could not serve (%s%s), %s\n",
                 log.cameraName().c_str(), count, count == 1 ? "" : "s",
                 count == 1 ? "" : "first: ", log.firstComplaint().c_str(), remedy.c_str());
}

int startFailure(const std::string& program, int error)
{
    const std::string reason = "cannot run \"" + program + "\": ";
    if (error == ENOENT)
        return fail(EXIT_NOT_FOUND, reason + "no such program here or in PATH");
    return fail(error == EACCES || error == ENOEXEC ? EXIT_NOT_EXECUTABLE : EXIT_OWN_FAILURE,
                reason + std::strerror(error));
}

}  // namespace

int runCommand(const RunRequest& request)
{
    std::vector<const ModelInfo*> chosen;
    for (const std::string& name : request.cameras) {
        chosen.push_back(findModel(name));
        if (!chosen.back())
            return fail(EXIT_USAGE, unknownModelMessage(name));
    }
    LogFile logFile;
    if (!request.logPath.empty())
        if (int error = logFile.open(request.logPath))
            return fail(EXIT_OWN_FAILURE, "cannot write the log " + request.logPath + ": " + std::strerror(error));

    ChildProcess child;  // before any thread starts
    const RealClock clock;
    std::vector<std::unique_ptr<CameraLog>> logs;
    std::vector<std::unique_ptr<UsbDevice>> cameras;
    ChildResult result;
    {
        MockBus bus(clock);
        for (const ModelInfo* model : chosen) {
            const auto index = static_cast<unsigned>(cameras.size());
            logs.push_back(std::make_unique<CameraLog>(index + 1, model->name, logFile));
            cameras.push_back(makeCamera(*model, optionsOf(request.options, index), clock, *logs.back()));
            if (!cameras.back())
                return fail(EXIT_OWN_FAILURE, std::string(model->name) + " cannot be simulated");
            const std::string problem = bus.attach(*cameras.back(), *logs.back());
            if (!problem.empty())
                return fail(EXIT_OWN_FAILURE, "cannot plug in " + logs.back()->cameraName() + ": " + problem);
        }
        result = child.run(request.program, bus.environment());
    }
    if (result.startError)
        return startFailure(request.program.front(), result.startError);
    for (const auto& log : logs)
        reportComplaints(*log, request.logPath);
    return result.exitStatus;
}

}  // namespace vornsim
