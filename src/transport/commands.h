// SPDX-License-Identifier: MIT
/// @file commands.h
/// Command codes of the camera's application.
#pragma once

namespace vornccd {

enum Command : unsigned {              // payload -> reply, bytes
    CMD_GET_DESCRIPTOR = 1,            // 0 -> 128 (ADVANCED) or streamed (STANDARD)
    CMD_PREPARE_CCD = 2,               // 2 -> 0; 0 before an exposure, 1 before a readout
    CMD_EXPOSURE_PREPARE = 4,          // 0 -> 0
    CMD_EXPOSURE_START = 5,            // 0 -> 0
    CMD_READ_CCD = 6,                  // 16, CLASSIC 13 -> 0
    CMD_SET_SHUTTER = 9,               // 2 -> 0; 1 open, 0 closed
    CMD_GET_DESCRIPTOR_CLASSIC = 10,   // 0 -> streamed
    CMD_PING_CLASSIC = 17,             // 1 -> 2, read apart
    CMD_GUIDE_RELAY_1 = 20,            // 0 -> 0
    CMD_GUIDE_RELAY_2 = 21,            // 0 -> 0
    CMD_GUIDE_RELAY_3 = 22,            // 0 -> 0
    CMD_GUIDE_RELAY_4 = 23,            // 0 -> 0
    CMD_GUIDE_RELAYS_OFF = 24,         // 0 -> 0
    CMD_APPINIT = 44,                  // 0 -> polled
    CMD_GET_COOLER_DETAILS = 52,       // 0 -> 6
    CMD_GET_COOLING_STATUS = 53,       // 0 -> 6, CLASSIC and ADVANCED 8
    CMD_GET_TEMP_SENSOR_DETAILS = 54,  // 0 -> 2
    CMD_GET_TEMPERATURE = 55,          // 2 -> 6; the camera needs 100 ms to answer
    CMD_SET_COOLING = 56,              // 2 -> 2
    CMD_WARM_UP = 57,                  // 0 -> 0
    CMD_GET_SERIAL = 62,               // 0 -> 6 (ADVANCED)
    CMD_READ_CCD_DEFAULT = 66,         // 0 -> 0 (CLASSIC)
    CMD_PING = 80,                     // 1, ADVANCED 2 -> 2
    CMD_GET_GPIO = 130,                // 0 -> 4
    CMD_SET_GPIO_DIRECTION = 131,      // 2 -> 0
    CMD_SET_GPIO = 132,                // 2 -> 0
    CMD_GET_FILTER_STATUS = 135,       // 0 -> 8
    CMD_SET_FILTER = 136,              // 2 -> 2
    CMD_SET_GAIN = 140,                // 18 -> 0
    CMD_GET_GAIN = 141,                // 0 -> 16
    CMD_GET_VREG_CLEAR_TIME = 145,     // 0 -> 2 (ADVANCED)
    CMD_KERNEL_PING = 253,             // 2 -> 2 (ADVANCED)
};

}  // namespace vornccd
