// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "camera_model.h"
#include "simulated_camera.h"

namespace vornsim {

/// One factory a family; the model must be of that family. @p clock and @p log must outlive the camera.
std::unique_ptr<SimulatedCamera> makeStandardCamera(const CameraModel& model, const CameraOptions& options,
                                                    const Clock& clock, DeviceLog& log);
std::unique_ptr<SimulatedCamera> makeAdvancedCamera(const CameraModel& model, const CameraOptions& options,
                                                    const Clock& clock, DeviceLog& log);
std::unique_ptr<SimulatedCamera> makeQuickerCamera(const CameraModel& model, const CameraOptions& options,
                                                   const Clock& clock, DeviceLog& log);
std::unique_ptr<SimulatedCamera> makeClassicCamera(const CameraModel& model, const CameraOptions& options,
                                                   const Clock& clock, DeviceLog& log);
std::unique_ptr<SimulatedCamera> makeIidcCamera(const CameraModel& model, const CameraOptions& options,
                                                const Clock& clock, DeviceLog& log);

}  // namespace vornsim
