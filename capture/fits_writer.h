// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "capture/frame.h"
#include "capture/result.h"

namespace vorncapture {

/// One line of a FITS header.
struct FitsCard {
    std::string key;
    std::variant<std::string, long long, double> value;  ///< texts in plain ASCII
    std::string comment;
    int digits = 0;  ///< after the point that the file has, of a double
};

/// @return what is known about a picture, as writeFits() puts it into the header: all but what says how the file is
/// laid out, and its date and check sums.
/// @param creator name and version of the program, for the keyword SWCREATE
std::vector<FitsCard> fitsCards(const Frame& frame, const std::string& creator);

/// Writes a picture as a FITS file: unsigned 16-bit values, rows in readout order, with the keywords that astronomical
/// programs look for. What is not known about the picture is left out.
/// @param creator name and version of the program, for the keyword SWCREATE
/// @param path a name that ends in .fz gives a file whose picture is compressed without loss
/// @param overwrite whether an existing file may be replaced
/// Error: FILE_ERROR; then there is no new file and no piece of one.
Status writeFits(const Frame& frame, const std::string& path, const std::string& creator, bool overwrite);

/// Writes the same to standard output. Error: FILE_ERROR.
Status streamFits(const Frame& frame, const std::string& creator);

/// @return a moment as FITS writes it, "2024-02-29T23:59:59.123", in UTC.
std::string fitsDate(Clock::Utc moment);

}  // namespace vorncapture
