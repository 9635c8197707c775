// SPDX-License-Identifier: MIT
/// @file quicker_registers.h
/// Registers of QUICKER cameras, written over the bridge's SPI lines, 12 bits each; and the bridge's lines to them.
#pragma once

namespace vornccd {

/// Guide relays in the low four bits, which every write keeps as they are; exposure control above them.
constexpr unsigned QUICKER_CONTROL = 2;
constexpr unsigned QUICKER_DURATION = 5;  // exposure code, or what a long exposure writes to begin its readout
constexpr unsigned QUICKER_BINNING = 8;   // vertical - 1 in bits 8 and up, horizontal - 1 in bits 4 to 7

constexpr unsigned QUICKER_RELAYS = 0x00F;          // of QUICKER_CONTROL
constexpr unsigned QUICKER_EXPOSE = 0x200;          // the sensor collects light
constexpr unsigned QUICKER_CLEAR = 0x400;           // the sensor is cleared
constexpr unsigned QUICKER_CLEAR_AMP = 0x420;       // the same with the amplifier on
constexpr unsigned QUICKER_END_AND_READ = 0x4A0;    // ends a long exposure
constexpr unsigned QUICKER_TIMED_AND_READ = 0x7A0;  // an exposure that the camera times

constexpr unsigned QUICKER_DURATION_NONE = 0;     // a long exposure begins
constexpr unsigned QUICKER_DURATION_READ = 1000;  // a long exposure ends

// Lines of the bridge
constexpr unsigned LINE_RESET = 1;        // pulsed high, then low, once while the camera is opened
constexpr unsigned LINE_ADC_SELECT = 2;   // low while a word is sent to the converter
constexpr unsigned LINE_READING_OUT = 4;  // input: high while the sensor is read out
constexpr unsigned LINE_ADC_DATA = 5;
constexpr unsigned LINE_ADC_CLOCK = 6;  // high, then low, for each bit

}  // namespace vornccd
