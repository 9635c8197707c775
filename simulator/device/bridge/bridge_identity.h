// SPDX-License-Identifier: MIT
#pragma once

#include "device/usb/usb_function.h"

namespace vornsim {

/// @return how the bridge chip describes itself with its built-in USB personality, which the program that is loaded
/// into it keeps: four alternate settings, of which hosts use number 1, with six bulk endpoints.
UsbIdentity bridgeIdentity(uint16_t productId);

}  // namespace vornsim
