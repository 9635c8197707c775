// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "capture/result.h"
#include "capture/trace_capture.h"
#include "capture/usb_nodes.h"

namespace vorncapture {

/// Why a camera does not open.
enum class OpenObstacle {
    PERMISSION,
    BUSY,
    NO_MEMORY,         ///< in the system, for the transfers
    GONE,              ///< no longer attached
    FIRMWARE_REFUSED,  ///< the bridge did not take its program
    SILENT_PROGRAM,    ///< the bridge took its program, and then nothing that runs on it answered
    NO_DESCRIPTION,    ///< the camera answers, but does not describe itself
    NO_ANSWER,
};

/// Finds the obstacle in what the library wrote while it tried to open a camera.
OpenObstacle findObstacle(const std::string& trace);

/// @return whether the library's bridge program is the free replacement, which has not run on a real camera yet.
bool freeBridgeProgram();

/// What decides about the permission to use a device.
struct PermissionFacts {
    std::vector<std::string> nodes;  ///< "/dev/bus/usb/001/002 belongs to root:root, mode 0600"
    std::string productId;           ///< four hexadecimal digits; empty when unknown
    bool ruleInstalled = false;
    UserAccess user;
};

/// @return what to do about it: only what is missing is advised.
std::string permissionAdvice(const PermissionFacts& facts);

/// @return how to give USB programs more memory than the @p mebibytes they have; at most 0: unknown.
std::string memoryAdvice(long mebibytes);

/// Tells why a camera could not be opened. The library's own texts are the same for every cause; the USB error names
/// in its trace are not, and the system's files say the rest.
/// @param trace what the library wrote while it tried
/// @param listIndex the camera's place in VornCamera::list(), -1 when unknown
Error explainOpenFailure(const std::string& trace, int listIndex);

/// Says that the endpoint of a register camera's images is halted, and how that is ended.
/// @param nodes devices that may be the camera
Error explainStall(const std::vector<UsbNode>& nodes);

/// Tells why an operation on an open camera failed.
/// @param complaint what the failure is called, "the exposure failed"
/// @param failure the library's text
/// @param reopenFailure the library's text when the camera was opened again afterwards; empty when that worked
Error explainFailure(const std::string& complaint, const std::string& failure, const std::string& reopenFailure);

}  // namespace vorncapture
