// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <vector>

#include "image.h"

namespace firmware {

// A load record:                                    The table:
//
// | Offset | Size | Meaning                      |  | Offset | Size | Meaning                        |
// |--------|------|------------------------------|  |--------|------|--------------------------------|
// | 0      | 1    | data length L, 0 ends stream |  | 0      | 9071 | 766 records                    |
// | 1      | 2    | address, low byte first      |  | 9071   | 3    | end mark: 00 00 00             |
// | 3      | L    | data                         |  | 9074   | 9071 | the same records again         |
//                                                    | 18145  | 1    | end mark: 00                   |
constexpr size_t RECORD_COUNT = 766;
constexpr size_t STREAM_LENGTH = 9071;  ///< of the records, without an end mark
constexpr size_t END_MARK_LENGTH = 3;
constexpr size_t TABLE_LENGTH = 2 * STREAM_LENGTH + END_MARK_LENGTH + 1;
static_assert(TABLE_LENGTH == 18146);

/// The finished table; TABLE_LENGTH bytes when made by a function of this header.
using Table = std::vector<uint8_t>;

/// Kinds of input.
enum class Format {
    AUTO,       ///< find out from the content
    INTEL_HEX,  ///< text, lines that start with a colon
    BINARY,     ///< memory dump from address 0
    RECORDS,    ///< load records, once
    TABLE,      ///< the finished table
};

/// @return the format @p bytes seem to be in, or AUTO if none fits.
Format detectFormat(std::span<const uint8_t> bytes);

/// Reads load records up to an end mark or the end of the input; after an end mark only zeros may follow.
Result<Image> parseRecordStream(std::span<const uint8_t> bytes);

/// Lays the image out as the table demands: the six vectors first, then the upper half of the code, then the lower.
/// Fails when a vector is missing or wrong.
Result<Table> packImage(const Image& image);

/// Checks that a finished table has the right size and that its first stream ends inside it. @return its bytes as
/// they are.
Result<Table> acceptTable(std::span<const uint8_t> bytes);

/// Makes the table from input of any format. A record stream that already has the table's record count and length
/// keeps its own records; every other program is laid out by packImage().
Result<Table> pack(std::span<const uint8_t> bytes, Format format);

/// @return the C++ source that defines `FIRMWARE`. @p origin, a file's name, is mentioned in its first line.
std::string sourceText(const Table& table, const std::string& origin);

}  // namespace firmware
