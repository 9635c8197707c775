// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "camera_model.h"
#include "scene/scene.h"

namespace vornsim {

/// @return whether the sensor's clocks can be driven for @p region at all. They can run on past the sensor's last row,
/// as far as the sensor is wide: those rows hold nothing but bias.
inline bool canRead(const CameraModel& model, const Region& region)
{
    const uint64_t lowest = std::max(model.info.pixelCountX, model.info.pixelCountY);
    return region.binX >= 1 && region.binX <= model.maxBinX && region.binY >= 1 && region.binY <= model.maxBinY &&
           region.width >= region.binX && region.height >= region.binY &&
           uint64_t{region.x} + region.width <= model.info.pixelCountX && uint64_t{region.y} + region.height <= lowest;
}

/// @return why a camera of this model cannot read @p region as the host asked, or an empty text. A region that is not
/// wholly on the sensor is such a reason, even where canRead().
inline std::string readoutFault(const CameraModel& model, const Region& region)
{
    const auto number = [](uint32_t value) { return std::to_string(value); };
    if (region.binX < 1 || region.binX > model.maxBinX || region.binY < 1 || region.binY > model.maxBinY)
        return "binning " + number(region.binX) + " x " + number(region.binY) + " is not possible";
    const uint64_t right = uint64_t{region.x} + region.width;
    const uint64_t bottom = uint64_t{region.y} + region.height;
    if (region.width < region.binX || region.height < region.binY || right > model.info.pixelCountX ||
        bottom > model.info.pixelCountY)
        return "region " + number(region.width) + " x " + number(region.height) + " at " + number(region.x) + ", " +
               number(region.y) + " is empty or leaves the sensor";
    return {};
}

}  // namespace vornsim
