// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include <unistd.h>

#include "capture/camera_check.h"
#include "commands.h"
#include "console.h"

namespace vornctl {
namespace {

using nlohmann::ordered_json;
using vorncapture::Finding;
using Level = Finding::Level;

const char* levelName(Level level)
{
    if (level == Level::GOOD)
        return "good";
    return level == Level::HINT ? "hint" : "problem";
}

/// Prints a finding in a line of its own, and how to cure it indented below.
void printPlain(const Finding& finding)
{
    (void)std::printf("%-8s %s\n", levelName(finding.level), finding.text.c_str());
    std::istringstream cure(finding.cure);
    for (std::string line; std::getline(cure, line);)
        (void)std::printf("%8s %s\n", "", line.c_str());
}

ordered_json describe(const Finding& finding)
{
    const ordered_json cure = finding.cure.empty() ? ordered_json() : ordered_json(finding.cure);
    return {{"level", levelName(finding.level)}, {"text", finding.text}, {"cure", cure}};
}

void print(const std::vector<Finding>& findings, const Options& options)
{
    ordered_json json;
    json["findings"] = ordered_json::array();
    for (const Finding& finding : findings) {
        json["findings"].push_back(describe(finding));
        if (!options.json && (!options.quiet || finding.level == Level::PROBLEM))
            printPlain(finding);
    }
    if (options.json)
        (void)std::printf("%s\n", json.dump().c_str());
}

/// @return whether INDI clients on this machine can use the cameras.
Finding examineIndiDriver()
{
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/indi_vorn_ccd").c_str(), X_OK) == 0)
            return {Level::GOOD, "the INDI driver is installed: KStars, PHD2 and CCDciel use the cameras by it", ""};
    }
    return {Level::HINT, "the INDI driver indi_vorn_ccd is not installed; KStars, PHD2 and CCDciel need it",
            "sudo apt-get install ./indi-vorn_*.deb"};
}

/// @return the exit status of the worst finding.
int statusOf(const std::vector<Finding>& findings)
{
    int status = EXIT_OK;
    for (const Finding& finding : findings) {
        if (finding.level == Level::PROBLEM)
            status = std::max(status, exitStatusOf(finding.kind));
    }
    return status;
}

}  // namespace

int doctorCommand(const Options& options)
{
    vorncapture::SessionOptions sessionOptions;
    sessionOptions.cancel = &cancelOnSignals();
    if (options.timeoutSeconds)
        sessionOptions.watchdog.open = std::chrono::milliseconds(static_cast<int64_t>(*options.timeoutSeconds * 1e3));
    ProgressLine progress(!options.quiet && !options.json);
    progress.say("examining the cameras");
    auto findings = vorncapture::checkCameras(sessionOptions);
    findings.push_back(examineIndiDriver());
    progress.clear();

    print(findings, options);
    const int status = statusOf(findings);
    if (status >= EXIT_LOST) {  // a camera may still keep its thread waiting, and must not keep the process
        (void)std::fflush(nullptr);
        std::_Exit(status);
    }
    return status;
}

}  // namespace vornctl
