// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "capture/accessories.h"
#include "capture/filter_names.h"
#include "capture/frame.h"

namespace vornctl {

/// What a camera is and says about itself, as `info --json` prints it. Keys are never renamed; what is unknown or
/// absent is null.
nlohmann::ordered_json describeCamera(const vorncapture::CameraInfo& info, const vorncapture::Telemetry& telemetry);

/// What a camera says about its temperatures and its cooler, as `status --json` prints it.
nlohmann::ordered_json describeCooling(const vorncapture::CameraInfo& info, const vorncapture::Telemetry& telemetry);

/// @return "off", "on", "regulating" or "warming up".
const char* coolingName(COOLING_STATE state);

/// What a picture is and how it was made, as `expose --json` prints it, without its files.
nlohmann::ordered_json describeFrame(const vorncapture::Frame& frame);

/// Named values in order. Keys are never renamed.
using Field = std::pair<std::string, std::variant<bool, int, unsigned int, std::string>>;

/// Prints values on standard output: as one JSON object, or as "key: value" lines.
void print(const std::vector<Field>& fields, bool json);

/// Prints what a camera is and can do for people, as `info` does.
void printCamera(const vorncapture::CameraInfo& info, const vorncapture::Telemetry& telemetry);

/// Prints what temperatures, cooler and wheel are at, as `status` does. The filter's name is for people only.
void printStatus(const vorncapture::CameraInfo& info, const vorncapture::Telemetry& telemetry,
                 const std::optional<vorncapture::WheelStatus>& wheel, const vorncapture::FilterNames& filters,
                 double elapsed, bool json);

/// Prints the same in one line or one JSON object, as `monitor` does.
void printStatusLine(const vorncapture::Telemetry& telemetry, const std::optional<vorncapture::WheelStatus>& wheel,
                     const vorncapture::FilterNames& filters, double elapsed, bool json);

}  // namespace vornctl
