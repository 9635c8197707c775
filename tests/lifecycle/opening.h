// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "family_steps.h"
#include "opened_camera.h"
#include "trace_capture.h"

using vorntest::Steps;

inline constexpr const char* NOT_INITIALIZED = "Failed to initialize device";

/// All that an opening finds out, in one line: "version 2.5, 4000 x 3000 of 7.70 x 6.75 um, ... gpio cds."
std::string describe(const VornCameraImpl& camera);

/// Opens a camera that was open before, as something else: result, handle, text, lock, modes, and that its description
/// holds each of @p described. @return the trace.
std::string expectOpening(CAMERA_TYPE type, const Steps& steps, const std::vector<std::string>& described = {},
                          const char* error = "No error", bool traced = true);

/// Makes each transfer of open() fail in turn, untraced.
void expectEachFailureOfOpen(CAMERA_TYPE type, const Steps& steps);

/// @return what open() traces after the flush, without the entry and exit lines of what is nested and those of locks.
std::string tracedOpening(CAMERA_TYPE type, const Steps& steps);

// ---- what several families do ----

extern const char* const GPIF_MODE_1;
extern const char* const PAR_INIT;
extern const char* const PAR_INIT_Q_SLOW;
extern const char* const GPIF_MODE_9;

Steps& loadTable(Steps& usb, const char* table);

/// @p port is {mask, value} of port 0.
Steps& setPort(Steps& usb, const std::string& port);
Steps& setDirections(Steps& usb, const std::string& port);

/// The line directions, and the SPI set-up with @p state for port 0, that QUICKER and ADVANCED cameras share.
Steps& lineSetUp(Steps& usb, const std::string& state);

/// What closes the opening of STANDARD, QUICKER and ADVANCED cameras: timeouts of 200 ms and 2000 ms.
Steps& finalTimeouts(Steps& usb);

/// What all families with a bridge begin open() with, from libusb_open to the colour record.
/// @param productId two bytes of the EEPROM
/// @param afterFailure what the family's identification does when it is reached after a failure, with the closing
/// @param error the text that a failure then leaves
Steps bridgeOpening(CAMERA_TYPE type, const std::string& productId, const Steps& afterFailure,
                    const char* error = NOT_INITIALIZED, const std::string& colour = "84 D9 01 01 00");
