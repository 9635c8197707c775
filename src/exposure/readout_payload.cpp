// SPDX-License-Identifier: MIT
#include "exposure/readout_payload.h"

#include "transport/wire.h"

namespace vornccd {

namespace {

// STANDARD readout flags
constexpr unsigned FLAGS_ALWAYS = 0x0043;
constexpr unsigned FLAG_PREVIEW = 0x0100;
constexpr unsigned FLAG_MICROSECONDS = 0x0400;
constexpr unsigned FLAG_DARK = 0x1000;

// ADVANCED readout flags
constexpr unsigned ADVANCED_PREVIEW = 0x01;
constexpr unsigned ADVANCED_MICROSECONDS = 0x04;
constexpr unsigned ADVANCED_8_BIT = 0x20;

}  // namespace

std::array<uint8_t, 16> standardReadoutPayload(const ReadoutRegion& region, const ExposureCode& exposure, bool preview,
                                               bool dark)
{
    const unsigned flags = FLAGS_ALWAYS | (preview ? FLAG_PREVIEW : 0U) |
                           (exposure.microseconds ? FLAG_MICROSECONDS : 0U) | (dark ? FLAG_DARK : 0U);
    std::array<uint8_t, 16> payload;
    putLe16(payload.data(), 0, static_cast<uint32_t>(exposure.code));
    putLe16(payload.data(), 2, region.binX);
    putLe16(payload.data(), 4, region.binY);
    putLe16(payload.data(), 6, region.x);
    putLe16(payload.data(), 8, region.y);
    putLe16(payload.data(), 10, region.width);
    putLe16(payload.data(), 12, region.height);
    putLe16(payload.data(), 14, flags);
    return payload;
}

std::array<uint8_t, 13> classicReadoutPayload(const ReadoutRegion& region, const ExposureCode& exposure, bool preview)
{
    std::array<uint8_t, 13> payload;
    payload[0] = static_cast<uint8_t>(exposure.code);
    payload[1] = static_cast<uint8_t>(region.binX);
    payload[2] = static_cast<uint8_t>(region.binY);
    putLe16(payload.data(), 3, region.x + 1);
    putLe16(payload.data(), 5, region.y + 1);
    putLe16(payload.data(), 7, region.x + region.width + 1);
    putLe16(payload.data(), 9, region.y + region.height + 1);
    payload[11] = preview ? 1 : 0;
    payload[12] = 3;
    return payload;
}

std::array<uint8_t, 16> advancedReadoutPayload(const ReadoutRegion& region, const ExposureCode& exposure, bool preview,
                                               bool eightBit, uint8_t mode)
{
    const unsigned flags = (preview ? ADVANCED_PREVIEW : 0U) | (exposure.microseconds ? ADVANCED_MICROSECONDS : 0U) |
                           (eightBit ? ADVANCED_8_BIT : 0U);
    std::array<uint8_t, 16> payload;
    putBe16(payload.data(), 0, static_cast<uint32_t>(exposure.code));
    putBe16(payload.data(), 2, region.binX & 0xFF);
    putBe16(payload.data(), 4, region.binY & 0xFF);
    putBe16(payload.data(), 6, region.x);
    putBe16(payload.data(), 8, region.y);
    putBe16(payload.data(), 10, region.width);
    putBe16(payload.data(), 12, region.height);
    payload[14] = static_cast<uint8_t>(flags);
    payload[15] = mode;
    return payload;
}

}  // namespace vornccd
