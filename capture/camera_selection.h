// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "capture/camera_list.h"
#include "capture/session.h"

namespace vorncapture {

/// Which camera is meant.
struct CameraSelector {
    enum class By { ONLY, INDEX, MODEL, SERIAL, PORT };

    By by = By::ONLY;         ///< ONLY: the one that is attached
    unsigned int number = 0;  ///< list index or serial number
    std::string model;        ///< case, blanks and the word "Vorn" do not matter; or a place on the bus

    /// Reads "0" (an index of one or two digits), "123456" (longer: a serial number), "serial:7", "index:0", a
    /// place on the bus ("1:2" its bus and device number as lsusb has them, "1-2.3" its bus and ports) or a model,
    /// "Vorn K12" or "k12". An empty text selects the only camera.
    static Result<CameraSelector> parse(const std::string& text);
};

/// Opens the camera that @p selector means. Other cameras are touched only in the search for a serial number.
/// @param cameras from listCameras(); the one opened is moved out
/// Errors: NO_SUCH_CAMERA, BAD_REQUEST (several fit), and those of Session::open().
Result<std::unique_ptr<Session>> openSelected(std::vector<CameraHandle> cameras, const CameraSelector& selector,
                                              const SessionOptions& options = {});

}  // namespace vorncapture
