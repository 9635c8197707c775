// SPDX-License-Identifier: MIT
/// @file iidc_registers.h
/// Register space of IIDC cameras.
#pragma once

#include <cstdint>

namespace vornccd {

constexpr uint64_t IIDC_BASE = 0xFFFFF0F00000;

constexpr uint64_t IIDC_RESET = IIDC_BASE;  // write IIDC_TRIGGER
constexpr uint64_t IIDC_VIDEO_MODE = IIDC_BASE + 0x604;
constexpr uint64_t IIDC_VIDEO_FORMAT = IIDC_BASE + 0x608;
constexpr uint64_t IIDC_ONE_SHOT = IIDC_BASE + 0x61C;  // write IIDC_TRIGGER: capture one frame
constexpr uint64_t IIDC_ERROR = IIDC_BASE + 0x628;
constexpr uint64_t IIDC_BRIGHTNESS = IIDC_BASE + 0x800;      // feature control
constexpr uint64_t IIDC_AUTO_EXPOSURE = IIDC_BASE + 0x804;   // feature control
constexpr uint64_t IIDC_GAMMA = IIDC_BASE + 0x818;           // feature control
constexpr uint64_t IIDC_SHUTTER = IIDC_BASE + 0x81C;         // feature control
constexpr uint64_t IIDC_GAIN = IIDC_BASE + 0x820;            // feature control
constexpr uint64_t IIDC_TEMPERATURE = IIDC_BASE + 0x82C;     // low 12 bits: 0.1 K
constexpr uint64_t IIDC_FRAME_RATE = IIDC_BASE + 0x83C;      // feature control
constexpr uint64_t IIDC_ABS_SHUTTER = IIDC_BASE + 0x918;     // float, seconds
constexpr uint64_t IIDC_ABS_GAIN = IIDC_BASE + 0x928;        // float
constexpr uint64_t IIDC_ABS_BRIGHTNESS = IIDC_BASE + 0x938;  // float
constexpr uint64_t IIDC_ABS_GAMMA = IIDC_BASE + 0x948;       // float
constexpr uint64_t IIDC_ABS_FRAME_RATE = IIDC_BASE + 0x968;  // float, frames per second
constexpr uint64_t IIDC_UP_TIME = IIDC_BASE + 0x12E0;        // seconds, IIDC_UP_TIME_FLAG aside
constexpr uint64_t IIDC_SERIAL = IIDC_BASE + 0x1F20;
constexpr uint64_t IIDC_BOARD = IIDC_BASE + 0x1F24;    // bits 20 to 27
constexpr uint64_t IIDC_VERSION = IIDC_BASE + 0x1F60;  // major 31:24, minor 23:16, revision 11:0

// What is written there
constexpr uint32_t IIDC_TRIGGER = 0x80000000;
constexpr uint32_t IIDC_FEATURE_ABSOLUTE = 0xC2000000;  // a feature is on, its value in its float register
constexpr uint32_t IIDC_FEATURE_OFF = 0xC0000000;
constexpr uint32_t IIDC_UP_TIME_FLAG = 1U << 28;

}  // namespace vornccd
