// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <vornccd.h>

namespace vorncapture {

/// Destroys a camera object the way the library wants it.
struct CameraDeleter {
    void operator()(VornCamera* camera) const { VornCamera_destroy(camera); }
};

using CameraHandle = std::unique_ptr<VornCamera, CameraDeleter>;

}  // namespace vorncapture
