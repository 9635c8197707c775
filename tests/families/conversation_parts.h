// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "opened_camera.h"

/// A stretch of a conversation whose transfers have the same consequence when they fail.
struct Part {
    enum Consequence {
        FATAL,     ///< only `afterwards` follows, and the operation fails
        HARMLESS,  ///< the operation goes on with the next part
        UNTRIED,   ///< not failed here
    };
    Consequence consequence = FATAL;
    vorntest::Steps steps = {};
    vorntest::Steps afterwards = {};  ///< what still happens after a failure
    const char* error = "";           ///< the text it then leaves
};
using Parts = std::vector<Part>;

/// @return a part of @p consequence; steps are added to it.
inline Part part(Part::Consequence consequence = Part::FATAL)
{
    return {.consequence = consequence};
}
/// Writes the whole conversation to @p usb.
void append(vorntest::Steps& usb, const Parts& parts);

/// Makes each transfer of the conversation fail in turn. Of parts that repeat one thing hundreds of times only samples
/// fail.
/// @param run is called for each case with the script, whether the operation is to succeed, and the text it leaves
void forEachFailure(const Parts& parts, const std::function<void(vorntest::Script&, bool ok, const char* error)>& run);

/// A closed camera on a script that holds the whole conversation of open().
struct ClosedCamera {
    ClosedCamera(CAMERA_TYPE type, const Parts& parts) : camera(&usb.device, "Vorn", type) { append(usb, parts); }
    vorntest::Script usb;
    VornCameraImpl camera;
};

/// @return what identification found, as one line: "version 2.5, 4000 x 3000 of 7.70 x 6.75 um, binning 3 x 4,
/// sensors 1 of type 2, cooler 4 from 32 to 255, colour 2 at 0 1, lines 8, serial 12345, clear 100000, precharge 0:
/// shutter guide 8bit wheel gpio cds."
std::string describe(const VornCameraImpl& camera);
/// Checks that the description holds @p expected.
void expectDescribed(const VornCameraImpl& camera, const std::string& expected);

/// Opens a camera that was open before, as something else, and checks that its description holds each of @p expected.
void expectOpens(CAMERA_TYPE type, const Parts& parts, const std::vector<std::string>& expected);
/// @return what open() traces from the product id on, without the entry and exit lines of what is nested, and without
/// the lines about the lock.
std::string tracedOpening(CAMERA_TYPE type, const Parts& parts);

/// The parts that all families with a bridge begin open() with, from libusb_open to the colour record.
/// @param type decides on the bridge's set-up and on what is flushed
/// @param productId two bytes of the EEPROM
/// @param afterFailure what the family's identification does when it is reached after a failure, with the closing
/// @param error the text that a failure then leaves
Parts bridgeParts(CAMERA_TYPE type, const std::string& productId, const vorntest::Steps& afterFailure,
                  const char* error = "Failed to initialize device");

/// forEachFailure() for open(): result, handle, text and lock.
void expectEachFailureOfOpen(CAMERA_TYPE type, const Parts& parts);
