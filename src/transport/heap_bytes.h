// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace vornccd {

struct FreeBytes {
    void operator()(uint8_t* bytes) const { std::free(bytes); }
};

/// A temporary buffer on the heap. Null when there is no memory: nothing here throws.
using HeapBytes = std::unique_ptr<uint8_t[], FreeBytes>;

/// Bytes that the caller fills completely.
inline HeapBytes uninitialisedBytes(uint64_t length)
{
    return HeapBytes(static_cast<uint8_t*>(std::malloc(length == 0 ? 1 : length)));
}

/// Bytes that start as zeros, for what the camera may fill only in part. Large ones come zeroed from the system.
inline HeapBytes zeroedBytes(uint64_t length)
{
    return HeapBytes(static_cast<uint8_t*>(std::calloc(length == 0 ? 1 : length, 1)));
}

}  // namespace vornccd
