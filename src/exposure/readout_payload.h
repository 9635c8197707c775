// SPDX-License-Identifier: MIT
/// @file readout_payload.h
/// The readout command of each family as bytes.
#pragma once

#include "exposure/exposure_code.h"
#include "lifecycle/camera_impl.h"

#include <array>
#include <cstdint>

namespace vornccd {

/// 0 code (2), 2 binX (2), 4 binY (2), 6 x (2), 8 y (2), 10 width (2), 12 height (2), 14 flags (2); little-endian.
std::array<uint8_t, 16> standardReadoutPayload(const ReadoutRegion& region, const ExposureCode& exposure, bool preview,
                                               bool dark);

/// 0 code, 1 binX, 2 binY, 3 first column (2), 5 first row (2), 7 end column (2), 9 end row (2), 11 preview, 12 3;
/// little-endian, coordinates counted from 1, ends one past the last.
std::array<uint8_t, 13> classicReadoutPayload(const ReadoutRegion& region, const ExposureCode& exposure, bool preview);

/// 0 code (2), 2 zero, 3 binX, 4 zero, 5 binY, 6 x (2), 8 y (2), 10 width (2), 12 height (2), 14 flags, 15 mode;
/// big-endian.
std::array<uint8_t, 16> advancedReadoutPayload(const ReadoutRegion& region, const ExposureCode& exposure, bool preview,
                                               bool eightBit, uint8_t mode);

constexpr uint8_t ADVANCED_MODE_LONG = 0x43;
constexpr uint8_t ADVANCED_MODE_SHORT = 0x03;

}  // namespace vornccd
