// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture/camera_info.h"
#include "capture/exposure_request.h"
#include "capture/result.h"

namespace vorncapture {

/// Longest exposure; more is a slip of the keyboard.
constexpr double LONGEST_EXPOSURE_SECONDS = 86400.0;

/// How an exposure is made so that the picture comes out as asked. Every camera family hands its image over in a way of
/// its own; the plan holds what to ask the library for and where in its answer the picture lies.
struct ExposurePlan {
    double seconds = 0.0;       ///< the request, raised to the camera's shortest exposure
    bool longExposure = false;  ///< startExposure() and the six-argument readCCD(), else the seven-argument one
    unsigned int binX = 1;      ///< of the picture
    unsigned int binY = 1;
    unsigned int readBinX = 1;  ///< of the readout: less than the picture's where the host bins the rest
    unsigned int readBinY = 1;
    Region region;           ///< sensor pixels that the picture shows; a whole number of binned pixels
    unsigned int width = 0;  ///< of the picture
    unsigned int height = 0;
    Region asked;                       ///< region given to readCCD()
    uint32_t transferCount = 0;         ///< number of values given to getImage()
    size_t bufferCount = 0;             ///< values that the buffer of getImage() must hold
    size_t rowStride = 0;               ///< values from one row to the next in that buffer
    size_t firstValue = 0;              ///< index of the picture's first value in it
    std::optional<BayerPhase> bayer;    ///< of the picture's sensor where the camera does not report it
    std::vector<std::string> warnings;  ///< those of the notes whose matter spoils the picture unless one acts
    std::vector<std::string> notes;     ///< what the caller should know: one line each, may be empty
};

/// Checks @p request against the camera and plans it. Touches no camera.
///
/// Binned pictures lie on the binning grid of the whole sensor: the region's origin is rounded down to it and the
/// extent loses what does not fill a binned pixel. So pictures of a region match those of the whole sensor, and all
/// families deliver the same pixels. ExposurePlan::region says what came of it.
/// @return the plan, or ErrorKind::BAD_REQUEST with a text that names the limit
Result<ExposurePlan> planExposure(const CameraInfo& camera, const ExposureRequest& request);

/// Moves the picture from where getImage() put it to the front of @p pixels and drops all else, in place. Sums what the
/// camera did not bin itself, up to 65535.
/// @param pixels the buffer filled by getImage(), ExposurePlan::bufferCount values
void cropToPlan(std::vector<uint16_t>& pixels, const ExposurePlan& plan);

}  // namespace vorncapture
