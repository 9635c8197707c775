// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "opened_camera.h"

/// The text that a failed identification leaves.
inline const char* const NOT_INITIALIZED = "Failed to initialize device";

/// A closed camera on a script that holds the conversation of open().
struct ClosedCamera {
    ClosedCamera(CAMERA_TYPE type, const vorntest::Steps& steps) : camera(&usb.device, "Vorn", type)
    {
        usb.append(steps);
    }
    vorntest::Script usb;
    VornCameraImpl camera;
};

/// Checks that the camera's description holds @p expected. It is one line: "version 2.5, 4000 x 3000 of 7.70 x 6.75 um,
/// binning 3 x 4, sensors 1 of type 2, cooler 4 from 32 to 255, colour 2 at 0 1, lines 8, serial 12345, clear 100000,
/// precharge 0: shutter guide 8bit wheel gpio cds."
void expectDescribed(const VornCameraImpl& camera, const std::string& expected);

/// Opens a camera that was open before, as something else, and checks that its description holds each of @p expected.
void expectOpens(CAMERA_TYPE type, const vorntest::Steps& steps, const std::vector<std::string>& expected);
/// Makes each transfer of open() fail in turn: result, handle, text and lock.
void expectEachFailureOfOpen(CAMERA_TYPE type, const vorntest::Steps& steps);
/// Opens in vain. @return the trace.
std::string tracedFailure(CAMERA_TYPE type, const vorntest::Steps& steps, const char* error = NOT_INITIALIZED);
/// @return what open() traces from the product id on, without the entry and exit lines of what is nested, and without
/// the lines about the lock.
std::string tracedOpening(CAMERA_TYPE type, const vorntest::Steps& steps);

/// What all families with a bridge begin open() with, from libusb_open to the colour record.
/// @param type decides on the bridge's set-up and on what is flushed
/// @param productId two bytes of the EEPROM
/// @param afterFailure what the family's identification does when it is reached after a failure, with the closing
/// @param error the text that a failure then leaves
vorntest::Steps bridgeOpening(CAMERA_TYPE type, const std::string& productId, const vorntest::Steps& afterFailure,
                              const char* error = NOT_INITIALIZED, const std::string& colour = "84 D9 01 01 00");
