// SPDX-License-Identifier: MIT
#include "camera_set.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <utility>
#include <variant>

#include "device/faulty_device.h"
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

void addCameraOptions(CLI::App& app, CameraChoice& choice, const std::string& examples)
{
    app.footer(examples + "\n\n" + FAULT_HELP);
    const std::map<std::string, SceneKind> scenes{{"sky", SceneKind::SKY}, {"ramp", SceneKind::RAMP}};
    app.add_option("--camera", choice.cameras, "A model to plug in, such as \"Vorn K12\" or K12; may be repeated")
        ->type_name("MODEL")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_flag("--no-camera", choice.noCamera, "Plug nothing in");
    app.add_option("--seed", choice.options.seed, "Which sky, noise and hot pixels; the n-th camera gets SEED+n-1")
        ->capture_default_str();
    app.add_option("--serial", choice.options.serialNumber,
                   "Serial number of the first camera, the next ones follow (default: made from the seed)");
    app.add_option("--scene", choice.options.scene, "What the sensors see: sky or ramp (a noiseless test pattern)")
        ->transform(CLI::CheckedTransformer(scenes, CLI::ignore_case).description("sky|ramp"))
        ->default_str("sky");
    app.add_option("--ambient", choice.options.ambientCelsius, "Temperature around the cameras in degrees Celsius")
        ->capture_default_str();
    app.add_option("--fault", choice.faults, "Something to go wrong, as explained below; may be repeated")
        ->type_name("WHEN,WHAT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--log", choice.logPath, "Write what the cameras do to this file, - for standard error");
}

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
    logPath_ = choice.logPath;
    if (!logPath_.empty())
        if (int error = logFile_.open(logPath_))
            return fail(EXIT_OWN_FAILURE, "cannot write the log " + logPath_ + ": " + std::strerror(error));

    for (const std::string& name : choice.cameras) {
        const ModelInfo& model = *findModel(name);
        const auto index = static_cast<unsigned>(cameras_.size());
        logs_.push_back(std::make_unique<CameraLog>(index + 1, model.name, logFile_));
        cameras_.push_back(makeOne(model, optionsOf(choice.options, index), index));
        if (!cameras_.back())
            return fail(EXIT_OWN_FAILURE, std::string(model.name) + " cannot be simulated");
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

std::unique_ptr<UsbDevice> CameraSet::makeOne(const ModelInfo& model, const CameraOptions& options, unsigned index)
{
    const auto make = [&clock = clock_, &log = *logs_[index], &model, options] {
        return makeCamera(model, options, clock, log);
    };
    std::vector<FaultRule> rules;
    std::copy_if(faults_.begin(), faults_.end(), std::back_inserter(rules),
                 [&](const FaultRule& rule) { return rule.camera == index + 1; });
    if (rules.empty())
        return make();
    return std::make_unique<FaultyDevice>(make, rules, clock_, *logs_[index]);
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
