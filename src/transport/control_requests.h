// SPDX-License-Identifier: MIT
/// @file control_requests.h
/// Vendor requests on endpoint 0: the bridge chip's memory and the registers of IIDC cameras.
#pragma once

#include <cstdint>

namespace vornccd {

constexpr uint8_t VENDOR_IN = 0xC0;
constexpr uint8_t VENDOR_OUT = 0x40;
constexpr unsigned CONTROL_TIMEOUT_MS = 3000;

constexpr uint8_t LOAD_REQUEST = 0xA0;    // memory of the chip, which serves it itself, with or without a program
constexpr uint16_t CPU_CONTROL = 0xE600;  // address in it: 1 halts the CPU, 0 starts it

constexpr uint8_t REGISTER_REQUEST = 127;  // one register of an IIDC camera
constexpr uint16_t REGISTER_LENGTH = 4;

}  // namespace vornccd
