// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace vorncapture {

/// Writes a text in the letters that FITS headers allow, from blank to tilde: Greek letters by their names ("Sigma"),
/// umlauts in two letters, accents and typographic signs without their ornament, all else as question marks.
/// @param text UTF-8; bytes that are not become question marks, too
std::string toAscii(std::string_view text);

}  // namespace vorncapture
