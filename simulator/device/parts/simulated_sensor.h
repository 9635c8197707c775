// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "scene/scene.h"

namespace vornsim {

/// What the sensor is shown.
enum class SceneKind {
    SKY,  ///< a star field with noise
    /// A noiseless pattern whose value shows row and column: (y * 256 + x) & 0xFFFF before binning. Samples of 8 bits
    /// are its high byte XOR its low byte; precharge pairs lose the lowest bit.
    RAMP,
    FLAT,  ///< an evenly lit screen with noise
};

/// The imaging sensor of a camera in front of its scene. Remembers what the last frame was exposed with.
class SimulatedSensor {
public:
    SimulatedSensor(const SensorModel& sensor, uint64_t seed, SceneKind kind)
        : sensor_(sensor), scene_(seed, kind == SceneKind::FLAT), kind_(kind)
    {
    }

    /// Integrates and reads a region. @p integration.frameNumber is filled in here. @return outWidth *
    /// outHeight values.
    std::vector<uint16_t> expose(Integration integration, const Region& region, uint32_t outWidth, uint32_t outHeight);

    /// Sets what the amplifier and converter make of the charge, for cameras whose host can choose it.
    void setConverter(double electronsPerAdu, double biasAdu)
    {
        sensor_.electronsPerAdu = electronsPerAdu;
        sensor_.biasAdu = biasAdu;
    }

    const Integration& lastIntegration() const { return integration_; }
    uint32_t lastWidth() const { return width_; }
    uint32_t lastHeight() const { return height_; }
    uint64_t frameCount() const { return frames_; }

private:
    SensorModel sensor_;
    Scene scene_;
    SceneKind kind_;
    Integration integration_;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint64_t frames_ = 0;
};

}  // namespace vornsim
