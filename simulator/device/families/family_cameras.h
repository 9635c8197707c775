// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "camera_model.h"
#include "device/bridge/bus_camera.h"
#include "device/usb/simulated_camera.h"

namespace vornsim {

/// Makes a camera, powered but without bridge firmware; one of a family with a bridge has the native bridge in front.
/// @p clock and @p log must outlive it.
std::unique_ptr<SimulatedCamera> makeCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                                            DeviceLog& log);

/// Makes what is behind the bridge alone. @return null for a model without a bridge. @p clock and @p log must outlive
/// it.
std::unique_ptr<BusCamera> makeBusCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                                         DeviceLog& log);

}  // namespace vornsim
