// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace vornccd {

struct FreeBytes {
    void operator()(uint8_t* bytes) const { std::free(bytes); }
};

/// A temporary buffer on the heap. Null when there is no memory, or when the length does not fit this machine's
/// addresses: it may come from a camera, and is never cut. Nothing here throws.
using HeapBytes = std::unique_ptr<uint8_t[], FreeBytes>;

/// Bytes that the caller fills completely.
inline HeapBytes uninitialisedBytes(uint64_t length)
{
    if (!std::in_range<size_t>(length))
        return nullptr;
    return HeapBytes(static_cast<uint8_t*>(std::malloc(length == 0 ? 1 : static_cast<size_t>(length))));
}

/// Bytes that start as zeros, for what the camera may fill only in part. Large ones come zeroed from the system.
inline HeapBytes zeroedBytes(uint64_t length)
{
    if (!std::in_range<size_t>(length))
        return nullptr;
    return HeapBytes(static_cast<uint8_t*>(std::calloc(length == 0 ? 1 : static_cast<size_t>(length), 1)));
}

}  // namespace vornccd
