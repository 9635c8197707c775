// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

#include "image.h"

namespace firmware {

/// Reads an Intel HEX file: data records (00), the end record (01), extended segment (02) and linear (04) addresses;
/// start addresses (03, 05) are skipped, for the bridge always starts at 0. Lines may end in LF or CR LF. An error
/// names the line.
Result<Image> parseIntelHex(std::string_view text);

}  // namespace firmware
