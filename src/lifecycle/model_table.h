// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace vornccd {

/// One supported model. Only the product id identifies it: the vendor id is never compared.
struct CameraModel {
    const char* name;
    uint32_t productId;
    uint32_t type;  ///< a CAMERA_TYPE; 0 in the row that ends the table
};

extern const CameraModel CAMERAS[];

}  // namespace vornccd
