// SPDX-License-Identifier: MIT
/// @file temperature_conversion.h
/// Raw sensor values and degrees Celsius. Both encodings span -60 to +270 degrees.
#pragma once

#include "transport/saturate.h"

#include <cstdint>

namespace vornccd {

/// Largest raw value of a sensor encoding, 1 (10-bit) or 2 (12-bit); 0 for any other.
constexpr float rawSpan(uint32_t sensorType)
{
    return sensorType == 1 ? 1023.0F : sensorType == 2 ? 4095.0F : 0.0F;
}

// Single precision throughout, in this order: multiply first.

/// @return degrees Celsius; 0 for an unknown encoding.
constexpr float rawToCelsius(uint32_t sensorType, int raw)
{
    const float span = rawSpan(sensorType);
    return span == 0.0F ? 0.0F : static_cast<float>(raw) * 330.0F / span - 60.0F;
}

/// @return raw value, rounded; 0 for an unknown encoding. Out of range it saturates as a signed 32-bit number.
constexpr uint32_t celsiusToRaw(uint32_t sensorType, float celsius)
{
    const float span = rawSpan(sensorType);
    if (span == 0.0F)
        return 0;
    return static_cast<uint32_t>(
        saturatingTrunc<int32_t>(static_cast<double>((celsius + 60.0F) * span / 330.0F + 0.5F)));
}

}  // namespace vornccd
