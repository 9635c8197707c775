// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace capturetest {

/// A FITS file read back by the FITS library.
struct FitsFile {
    long width = 0;
    long height = 0;
    std::vector<uint16_t> pixels;
    std::map<std::string, std::string> keys;  ///< values as the header spells them, text without quotes
    bool intact = false;                      ///< both check sums are there and right

    double mean() const;
};

/// Reads the picture in @p path; what cannot be read fails the test.
FitsFile readFits(const std::string& path);

}  // namespace capturetest
