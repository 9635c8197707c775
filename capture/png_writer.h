// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "capture/frame.h"
#include "capture/result.h"

namespace vorncapture {

/// Level of each pixel value.
using StretchTable = std::vector<uint8_t>;

/// Finds the levels that make a star field visible: black a little below the sky, the sky at a quarter of full
/// brightness, stars above. Sky and noise are taken from median and median deviation, which stars do not disturb; noise
/// finer than the step from one value of the data to the next counts as one step.
/// @return 65536 levels, never falling
StretchTable automaticStretch(const std::vector<uint16_t>& pixels);

/// Stretches a picture automatically: in colour where it keeps a colour sensor's pattern, else in grey.
/// @return levels row after row, three a pixel (red, green, blue) with Frame::bayer(), else one
std::vector<uint8_t> stretchedLevels(const Frame& frame);

/// @param levels width x height, or three times as many with @p colour
/// @return the bytes of a PNG file; none when there is no memory for it
std::vector<uint8_t> encodePng(const std::vector<uint8_t>& levels, unsigned int width, unsigned int height,
                               bool colour);

/// Writes a picture as an 8-bit PNG, automatically stretched, for people to look at: in colour where the picture keeps
/// a colour sensor's pattern, else in grey.
/// @param overwrite whether an existing file may be replaced
/// Error: FILE_ERROR; then there is no new file and no piece of one.
Status writePng(const Frame& frame, const std::string& path, bool overwrite);

}  // namespace vorncapture
