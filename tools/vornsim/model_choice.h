// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace vornsim {

/// @return a message for a model name that does not exist: what was probably meant, and which names there are.
std::string unknownModelMessage(std::string_view name);

}  // namespace vornsim
