// SPDX-License-Identifier: MIT
/// @file commands.h
/// Commands of the camera's application: a row each with the bytes that go out and come back, and what sends a row.
#pragma once

#include "camera_impl.h"

#include <cstdint>
#include <span>

namespace vornccd {

/// A numbered command. Where families differ in the lengths each form has a row.
struct Command {
    uint8_t code;
    unsigned payloadLength;  ///< bytes
    unsigned replyLength;    ///< bytes; 0 where no reply comes, or one that is read apart
};

inline constexpr Command CMD_GET_DESCRIPTOR = {1, 0, 0};  // the reply is streamed
inline constexpr Command CMD_GET_DESCRIPTOR_ADVANCED = {1, 0, 128};
inline constexpr Command CMD_PREPARE_CCD = {2, 2, 0};  // PREPARE_EXPOSURE or PREPARE_READOUT
inline constexpr Command CMD_EXPOSURE_PREPARE = {4, 0, 0};
inline constexpr Command CMD_EXPOSURE_START = {5, 0, 0};
inline constexpr Command CMD_READ_CCD = {6, 16, 0};
inline constexpr Command CMD_READ_CCD_CLASSIC = {6, 13, 0};
inline constexpr Command CMD_SET_SHUTTER = {9, 2, 0};              // SHUTTER_OPEN or SHUTTER_CLOSED
inline constexpr Command CMD_GET_DESCRIPTOR_CLASSIC = {10, 0, 0};  // the reply is streamed
inline constexpr Command CMD_PING_CLASSIC = {17, 1, 0};            // the reply of 2 bytes is read apart
inline constexpr Command CMD_GUIDE_RELAY_1 = {20, 0, 0};
inline constexpr Command CMD_GUIDE_RELAY_2 = {21, 0, 0};
inline constexpr Command CMD_GUIDE_RELAY_3 = {22, 0, 0};
inline constexpr Command CMD_GUIDE_RELAY_4 = {23, 0, 0};
inline constexpr Command CMD_GUIDE_RELAYS_OFF = {24, 0, 0};
inline constexpr Command CMD_APPINIT = {44, 0, 0};  // its end is polled for
inline constexpr Command CMD_GET_COOLER_DETAILS = {52, 0, 6};
inline constexpr Command CMD_GET_COOLING_STATUS = {53, 0, 6};
inline constexpr Command CMD_GET_COOLING_STATUS_LONG = {53, 0, 8};  // CLASSIC and ADVANCED
inline constexpr Command CMD_GET_TEMP_SENSOR_DETAILS = {54, 0, 2};
inline constexpr Command CMD_GET_TEMPERATURE = {55, 2, 6};  // the camera needs 100 ms to answer
inline constexpr Command CMD_SET_COOLING = {56, 2, 2};
inline constexpr Command CMD_WARM_UP = {57, 0, 0};
inline constexpr Command CMD_GET_SERIAL = {62, 0, 6};        // ADVANCED
inline constexpr Command CMD_READ_CCD_DEFAULT = {66, 0, 0};  // CLASSIC
inline constexpr Command CMD_PING = {80, 1, 0};              // the reply of 2 bytes is read apart
inline constexpr Command CMD_PING_ADVANCED = {80, 2, 2};
inline constexpr Command CMD_GET_GPIO = {130, 0, 4};
inline constexpr Command CMD_SET_GPIO_DIRECTION = {131, 2, 0};
inline constexpr Command CMD_SET_GPIO = {132, 2, 0};
inline constexpr Command CMD_GET_FILTER_STATUS = {135, 0, 8};
inline constexpr Command CMD_SET_FILTER = {136, 2, 2};
inline constexpr Command CMD_SET_GAIN = {140, 18, 0};
inline constexpr Command CMD_GET_GAIN = {141, 0, 16};
inline constexpr Command CMD_GET_VREG_CLEAR_TIME = {145, 0, 2};  // ADVANCED
inline constexpr Command CMD_KERNEL_PING = {253, 2, 2};          // ADVANCED

constexpr unsigned PREPARE_EXPOSURE = 0;
constexpr unsigned PREPARE_READOUT = 1;
constexpr unsigned SHUTTER_CLOSED = 0;
constexpr unsigned SHUTTER_OPEN = 1;

// One function for each form of a command. The buffers have the lengths of the row, which the compiler checks; all
// return whether the exchange worked, and none takes the lock.

/// Neither payload nor reply.
template <Command ROW>
bool send(VornCameraImpl& camera)
{
    static_assert(ROW.payloadLength == 0 && ROW.replyLength == 0);
    return camera.sendCommand(ROW.code);
}

/// A 16-bit payload in the family's byte order, no reply.
template <Command ROW>
bool sendValue(VornCameraImpl& camera, unsigned value)
{
    static_assert(ROW.payloadLength == 2 && ROW.replyLength == 0);
    return camera.sendCommand(ROW.code, static_cast<uint16_t>(value));
}

/// A payload, no reply.
template <Command ROW>
bool sendBytes(VornCameraImpl& camera, std::span<const uint8_t, ROW.payloadLength> payload)
{
    static_assert(ROW.payloadLength != 0 && ROW.replyLength == 0);
    return camera.sendCommand(ROW.code, payload.data(), nullptr, ROW.payloadLength, 0);
}

/// No payload, a reply.
template <Command ROW>
bool ask(VornCameraImpl& camera, std::span<uint8_t, ROW.replyLength> reply)
{
    static_assert(ROW.payloadLength == 0 && ROW.replyLength != 0);
    return camera.sendCommand(ROW.code, nullptr, reply.data(), 0, ROW.replyLength);
}

/// A 16-bit payload, low byte first on every family, and a reply.
template <Command ROW>
bool askValue(VornCameraImpl& camera, unsigned value, std::span<uint8_t, ROW.replyLength> reply)
{
    static_assert(ROW.payloadLength == 2 && ROW.replyLength != 0);
    return camera.sendCommand(ROW.code, static_cast<uint16_t>(value), reply.data(), ROW.replyLength);
}

/// A payload and a reply.
template <Command ROW>
bool askBytes(VornCameraImpl& camera, std::span<const uint8_t, ROW.payloadLength> payload,
              std::span<uint8_t, ROW.replyLength> reply)
{
    static_assert(ROW.payloadLength != 0 && ROW.replyLength != 0);
    return camera.sendCommand(ROW.code, payload.data(), reply.data(), ROW.payloadLength, ROW.replyLength);
}

}  // namespace vornccd
