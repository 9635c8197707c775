// SPDX-License-Identifier: MIT
#include "simulated_sensor.h"

namespace vornsim {

std::vector<uint16_t> SimulatedSensor::expose(Integration integration, const Region& region, uint32_t outWidth,
                                              uint32_t outHeight)
{
    integration.frameNumber = ++frames_;
    integration_ = integration;
    width_ = outWidth;
    height_ = outHeight;
    return kind_ == SceneKind::RAMP ? rampPattern(region, outWidth, outHeight)
                                    : scene_.expose(sensor_, integration, region, outWidth, outHeight);
}

}  // namespace vornsim
