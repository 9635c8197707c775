// SPDX-License-Identifier: MIT
/// @file image_transfer.h
/// Pieces of the image transfer that several families share. The lock is held.
#pragma once

#include "camera_impl.h"
#include "exposure/pixel_kernels.h"

#include <cstdint>

namespace vornccd {

/// @return whether the bridge and libusb can name @p length bytes in 32 bits, trailing byte included.
bool transferable(uint64_t length);

/// The remembered region against the whole binned frame, which QUICKER and IIDC cameras always transfer.
FrameWindow transferredWindow(const VornCameraImpl& camera);

/// Reads @p length bytes straight into the caller's buffer.
bool receiveBytes(VornCameraImpl& camera, uint16_t* buffer, uint64_t length);

/// Reads @p pixels values into the caller's buffer. After a request for more than a transfer can name the buffer stays
/// as it was.
bool receiveValues(VornCameraImpl& camera, uint16_t* buffer, uint32_t pixels);

}  // namespace vornccd
