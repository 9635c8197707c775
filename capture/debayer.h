// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "capture/frame.h"

namespace vorncapture {

/// Makes a colour picture of one that shows the sensor's RGGB pattern: what a pixel did not see is the mean of its
/// nearest neighbours that did. The picture's edges take the neighbours that there are.
/// @param frame a picture with Frame::bayer()
/// @return red, green and blue of each pixel, row after row; a colour of which the picture has no pixel is the
///     pixel's own value
std::vector<uint16_t> debayer(const Frame& frame);

}  // namespace vorncapture
