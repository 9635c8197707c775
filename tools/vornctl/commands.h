// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"

namespace vornctl {

/// Each command does its work and tells its outcome.
/// @return the exit status of the process
int listCommand(const Options& options);
int infoCommand(const Options& options);
int exposeCommand(Options options);

}  // namespace vornctl
