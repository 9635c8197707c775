// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace vornsim {

/// Makes sure that this process runs with umockdev's preload library, which a MockBus needs to announce that a device
/// was plugged in or out: starts the same program with the same arguments again when it does not. Call it first thing.
/// @return an empty text, or why it cannot be.
std::string ensurePreload(char** argv);

/// @return "NAME=value" for each variable that makes a program load umockdev's preload library.
std::vector<std::string> preloadEnvironment();

}  // namespace vornsim
