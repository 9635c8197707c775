// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "device/families/camera_model.h"
#include "scene/scene.h"

namespace vornsim {

/// The imaging sensor of a camera in front of its scene. Keeps the last frame and what it was exposed with.
class SimulatedSensor {
public:
    SimulatedSensor(const CameraModel& model, const CameraOptions& options);

    /// Integrates and reads a region. @p integration.frameNumber is filled in here. @return the new last image,
    /// outWidth * outHeight values.
    const std::vector<uint16_t>& expose(Integration integration, const Region& region, uint32_t outWidth,
                                        uint32_t outHeight);

    /// Sets what the amplifier and converter make of the charge, for cameras whose host can choose it.
    void setConverter(double electronsPerAdu, double biasAdu)
    {
        sensor_.electronsPerAdu = electronsPerAdu;
        sensor_.biasAdu = biasAdu;
    }

    const std::vector<uint16_t>& lastImage() const { return image_; }
    const Integration& lastIntegration() const { return integration_; }
    uint32_t lastWidth() const { return width_; }
    uint32_t lastHeight() const { return height_; }
    uint64_t frameCount() const { return frames_; }
    const SensorModel& sensor() const { return sensor_; }

private:
    SensorModel sensor_;
    Scene scene_;
    SceneKind kind_;
    std::vector<uint16_t> image_;
    Integration integration_;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint64_t frames_ = 0;
};

}  // namespace vornsim
