// SPDX-License-Identifier: MIT
#include "camera_set.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>
#include <variant>

#include "chip/chip_camera.h"
#include "model_choice.h"
#include "subcommand.h"

namespace vornsim {
namespace {

/// Each camera is an individual: its own sky, noise and serial number.
CameraOptions optionsOf(const CameraOptions& first, unsigned index)
{
    CameraOptions options = first;
    options.seed += index;
    if (options.serialNumber != 0)
        options.serialNumber += index;
    return options;
}

}  // namespace

int CameraSet::make(const CameraChoice& choice)
{
    if (choice.cameras.empty() != choice.noCamera)
        return fail(EXIT_USAGE,
                    "say which cameras to plug in, for example --camera K12 (vornsim list shows all), or "
                    "--no-camera, not both");
    for (const std::string& name : choice.cameras)
        if (!findModel(name))
            return fail(EXIT_USAGE, unknownModelMessage(name));
    if (const int exitStatus = readFaults(choice))
        return exitStatus;
    emulatedChip_ = choice.emulatedChip;
    logPath_ = choice.logPath;
    if (!logPath_.empty())
        if (int error = logFile_.open(logPath_))
            return fail(EXIT_OWN_FAILURE, "cannot write the log " + logPath_ + ": " + std::strerror(error));

    for (const std::string& name : choice.cameras) {
        const ModelInfo& model = *findModel(name);
        const auto index = static_cast<unsigned>(cameras_.size());
        logs_.push_back(std::make_unique<CameraLog>(index + 1, model.name, logFile_));
        cameras_.push_back(makeOne(model, optionsOf(choice.options, index), index));
    }
    return 0;
}

int CameraSet::readFaults(const CameraChoice& choice)
{
    for (const std::string& text : choice.faults) {
        const auto parsed = parseFault(text);
        if (const auto* problem = std::get_if<std::string>(&parsed))
            return fail(EXIT_USAGE, "--fault " + text + ": " + *problem);
        faults_.push_back(std::get<FaultRule>(parsed));
        if (faults_.back().camera > choice.cameras.size())
            return fail(EXIT_USAGE, "--fault " + text + ": there are only " + std::to_string(choice.cameras.size()) +
                                        " cameras; plug in another one with --camera");
    }
    return 0;
}

std::unique_ptr<CameraSlot> CameraSet::makeOne(const ModelInfo& model, const CameraOptions& options, unsigned index)
{
    const auto make = [&clock = clock_, &log = *logs_[index], &model, options, emulated = emulatedChip_] {
        return emulated ? makeChipCamera(model, options, clock, log) : makeCamera(model, options, clock, log);
    };
    std::vector<FaultRule> rules;
    std::copy_if(faults_.begin(), faults_.end(), std::back_inserter(rules),
                 [&](const FaultRule& rule) { return rule.camera == index + 1; });
    return std::make_unique<CameraSlot>(make, rules, clock_, *logs_[index]);
}

void CameraSet::reportComplaints() const
{
    for (const auto& log : logs_) {
        const unsigned count = log->complaintCount();
        if (count == 0)
            continue;
        const std::string remedy = logPath_.empty() ? "run with --log FILE to see when" : "see " + logPath_;
        std::fprintf(stderr, "vornsim: %s: %u request%s that real firmware could not serve (%s%s), %s\n",
                     log->cameraName().c_str(), count, count == 1 ? "" : "s",
                     count == 1 ? "" : "first: ", log->firstComplaint().c_str(), remedy.c_str());
    }
}

}  // namespace vornsim
