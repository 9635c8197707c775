// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "capture/accessories.h"
#include "capture/cooling.h"
#include "options.h"

namespace vornctl {

/// What `guide` is asked for.
struct GuideRequest {
    vorncapture::GuideRelay relay = vorncapture::GuideRelay::X_PLUS;
    std::string direction;  ///< as the user wrote it
    double seconds = 0.0;
};

/// What `gpio` is asked for; empty: left as it is.
struct GpioRequest {
    std::optional<uint16_t> outputs;
    std::optional<uint16_t> levels;
};

/// What `gain` is asked for; empty: left as it is.
struct GainRequest {
    std::optional<int> gain;
    std::optional<int> offset;
};

/// What `monitor` is asked for.
struct MonitorRequest {
    double intervalSeconds = 5.0;
    unsigned int count = 0;  ///< 0: until stopped
    std::string plotPath;    ///< empty: none
};

/// Each command does its work and reports its outcome.
/// @return the exit status of the process
int listCommand(const Options& options);
int infoCommand(const Options& options);
int doctorCommand(const Options& options);
int exposeCommand(Options options);
int statusCommand(const Options& options);
int monitorCommand(const Options& options, const MonitorRequest& request);
int coolCommand(const Options& options, const vorncapture::CoolingRequest& request);
int warmCommand(const Options& options, bool wait, double limitSeconds);
int filterCommand(const Options& options);
int shutterCommand(const Options& options, bool open);
int guideCommand(const Options& options, const GuideRequest& request);
int gpioCommand(const Options& options, const GpioRequest& request);
int gainCommand(const Options& options, const GainRequest& request);

}  // namespace vornctl
