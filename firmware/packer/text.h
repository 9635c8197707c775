// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace firmware {

/// Formats like printf into a string.
[[gnu::format(printf, 1, 2)]] std::string format(const char* text, ...);

}  // namespace firmware
