// SPDX-License-Identifier: MIT
#pragma once

namespace vornsim {

/// `vornsim list`: prints the models that can be simulated, as a table or as JSON. @return the exit status.
int listCommand(bool asJson);

}  // namespace vornsim
