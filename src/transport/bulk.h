// SPDX-License-Identifier: MIT
/// @file bulk.h
/// Single bulk reads, for what the primitives of VornCameraImpl put together from them.
#pragma once

#include "camera_impl.h"

#include <cstdint>

namespace vornccd {

/// Largest chunk of one libusb call, bytes. A host may have set any maxPacketSize: below one byte one packet is asked
/// for, and what does not fit libusb's signed length is cut to whole packets.
int64_t chunkLimit(const VornCameraImpl& camera);

/// One libusb call on the open camera, which may bring less than @p length bytes. @p transferred is set also after a
/// failure.
bool bulkReadOnce(VornCameraImpl& camera, unsigned endpoint, int length, uint8_t* buffer, int& transferred);

}  // namespace vornccd
