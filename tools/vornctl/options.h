// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "capture/exposure_request.h"
#include "capture/result.h"

namespace vornctl {

/// What the user asked for, checked as far as that goes without a camera.
struct Options {
    std::string device;    ///< text of -d; empty: the only camera
    bool json = false;     ///< results as one JSON object on standard output
    bool quiet = false;    ///< no progress, no notes
    bool force = false;    ///< existing files may be replaced
    std::string fitsPath;  ///< empty: none given
    std::string pngPath;   ///< empty: none wanted
    vorncapture::ExposureRequest request;
};

/// Reads "2.5" or "1e-3" into @p request. Error: BAD_REQUEST, for anything that is not a time to expose.
vorncapture::Status parseSeconds(const std::string& text, vorncapture::ExposureRequest& request);

/// Reads "2x2" or, the same both ways, "2" into @p request. Error: BAD_REQUEST, also for 0.
vorncapture::Status parseBinning(const std::string& text, vorncapture::ExposureRequest& request);

/// Reads "X,Y,WIDTH,HEIGHT" in unbinned sensor pixels into @p request. Error: BAD_REQUEST.
vorncapture::Status parseRegion(const std::string& text, vorncapture::ExposureRequest& request);

}  // namespace vornctl
