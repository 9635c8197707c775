// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

/// Numbers of the USB specification that devices and transports share.
namespace vornsim::usb {

inline constexpr uint8_t DIRECTION_IN = 0x80;  // of endpoint addresses and bmRequestType

// bmRequestType
inline constexpr uint8_t KIND_MASK = 0x60;
inline constexpr uint8_t KIND_STANDARD = 0x00;
inline constexpr uint8_t KIND_VENDOR = 0x40;
inline constexpr uint8_t RECIPIENT_MASK = 0x1F;
inline constexpr uint8_t RECIPIENT_INTERFACE = 1;
inline constexpr uint8_t RECIPIENT_ENDPOINT = 2;

// bRequest
inline constexpr uint8_t GET_STATUS = 0;
inline constexpr uint8_t CLEAR_FEATURE = 1;
inline constexpr uint8_t SET_FEATURE = 3;
inline constexpr uint8_t GET_DESCRIPTOR = 6;
inline constexpr uint8_t GET_CONFIGURATION = 8;
inline constexpr uint8_t SET_CONFIGURATION = 9;
inline constexpr uint8_t GET_INTERFACE = 10;
inline constexpr uint8_t SET_INTERFACE = 11;

inline constexpr uint16_t ENDPOINT_HALT = 0;  // feature

// Descriptors
inline constexpr uint8_t DEVICE = 1;
inline constexpr uint8_t CONFIGURATION = 2;
inline constexpr uint8_t INTERFACE = 4;
inline constexpr uint8_t ENDPOINT = 5;
inline constexpr uint8_t DEVICE_QUALIFIER = 6;
inline constexpr uint8_t DEVICE_LENGTH = 18;
inline constexpr uint8_t CONFIGURATION_LENGTH = 9;
inline constexpr uint8_t INTERFACE_LENGTH = 9;
inline constexpr uint8_t ENDPOINT_LENGTH = 7;

inline constexpr size_t SETUP_LENGTH = 8;  // bytes of a setup packet

}  // namespace vornsim::usb
