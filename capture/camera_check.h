// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "capture/camera_info.h"
#include "capture/result.h"
#include "capture/session.h"
#include "capture/usb_nodes.h"

namespace vorncapture {

/// What is known about an attached camera and the system around it.
struct CameraFacts {
    std::string name;
    std::vector<UsbNode> nodes;      ///< devices that may be the camera
    std::optional<CameraInfo> info;  ///< once it was opened
    std::optional<Error> openError;  ///< why it was not
    std::optional<Error> stall;      ///< as Session::findStall() gives it
    long usbMemoryMebibytes = -1;    ///< as usbMemoryMebibytes() gives it
    bool freeProgram = false;        ///< as freeBridgeProgram() gives it
};

/// One result of a check.
struct Finding {
    enum class Level { GOOD, HINT, PROBLEM };

    Level level = Level::GOOD;
    std::string text;                    ///< one line
    std::string cure;                    ///< what to do, with the command to type; empty where nothing is to be done
    ErrorKind kind = ErrorKind::FAILED;  ///< of a PROBLEM
};

/// Bytes of a full frame's longest single read when a program leaves the library's MAX_PACKET_SIZE alone.
uint64_t longestReadBytes(const CameraInfo& info);

/// @return what is good, worth knowing and wrong about a camera. Touches nothing.
std::vector<Finding> examine(const CameraFacts& facts);

/// Opens and closes each attached camera, and examines it. With none attached that is the finding.
/// @param options as for Session::open()
std::vector<Finding> checkCameras(const SessionOptions& options);

}  // namespace vorncapture
