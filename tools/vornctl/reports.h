// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "capture/frame.h"

namespace vornctl {

/// What a camera is and says about itself, as `info --json` prints it. Keys are never renamed; what is unknown or
/// absent is null.
nlohmann::ordered_json describeCamera(const vorncapture::CameraInfo& info, const vorncapture::Telemetry& telemetry);

/// What a picture is and how it was made, as `expose --json` prints it, without its files.
nlohmann::ordered_json describeFrame(const vorncapture::Frame& frame);

}  // namespace vornctl
