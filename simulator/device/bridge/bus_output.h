// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bus_camera.h"

namespace vornsim {

/// What a camera is about to put on the parallel bus: one answer or one image, whose words become ready one after the
/// other. A new one replaces the old.
class BusOutput {
public:
    /// Offers @p bytes (an even count), the first word at @p firstAtUs and the others @p nsPerWord apart.
    void send(std::vector<uint8_t> bytes, int64_t firstAtUs, int64_t nsPerWord = 0);

    /// Drops what was not taken.
    void clear();

    /// @return how many bytes were offered and not taken.
    size_t left() const { return bytes_.size() - position_; }

    OfferedWords offered(int64_t nowUs) const;
    void taken(size_t byteCount);

private:
    int64_t readyAtUs(size_t bytePosition) const;

    std::vector<uint8_t> bytes_;
    size_t position_ = 0;
    int64_t firstAtUs_ = 0;
    int64_t nsPerWord_ = 0;
};

}  // namespace vornsim
