// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "device/parts/simulated_sensor.h"
#include "device/usb/simulated_camera.h"

namespace vornsim {

/// What a camera speaks.
enum class Family { STANDARD, ADVANCED, QUICKER, CLASSIC, IIDC };

/// @return the name of a family as lists show it, "STANDARD".
const char* familyName(Family family);

/// One model that can be simulated.
struct ModelInfo {
    const char* name;    ///< display name, "Vorn K12"
    uint16_t productId;  ///< USB product id
    Family family;
    uint32_t pixelCountX;
    uint32_t pixelCountY;
    bool colour;
};

/// How one simulated camera differs from its model's defaults.
struct CameraOptions {
    uint64_t seed = 1;          ///< sky, noise and hot pixels
    uint32_t serialNumber = 0;  ///< 0: made from the seed and the model
    SceneKind scene = SceneKind::SKY;
    double ambientCelsius = 15.0;
};

/// @return every model, in order of product id table.
std::span<const ModelInfo> models();

/// @return the model of this display name ("Vorn K12", case and blanks do not matter, "K12" will do), or null.
const ModelInfo* findModel(std::string_view name);

/// Makes a camera, powered but without bridge firmware. @p clock and @p log must outlive it.
std::unique_ptr<SimulatedCamera> makeCamera(const ModelInfo& model, const CameraOptions& options, const Clock& clock,
                                            DeviceLog& log);

}  // namespace vornsim
