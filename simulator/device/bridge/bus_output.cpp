// SPDX-License-Identifier: MIT
#include "bus_output.h"

#include <algorithm>
#include <utility>

namespace vornsim {
namespace {

// While words trickle in, the bridge tries again when this much more is ready: small enough for a smooth
// progress, large enough to keep a picture of millions of words cheap.
constexpr size_t STEP_BYTES = size_t{64} * 1024;

}  // namespace

void BusOutput::send(std::vector<uint8_t> bytes, int64_t firstAtUs, int64_t nsPerWord)
{
    bytes_ = std::move(bytes);
    position_ = 0;
    firstAtUs_ = firstAtUs;
    nsPerWord_ = nsPerWord;
}

void BusOutput::clear()
{
    bytes_.clear();
    position_ = 0;
}

int64_t BusOutput::readyAtUs(size_t bytePosition) const
{
    // The word before this position is the last one needed; round up to whole microseconds.
    const auto words = static_cast<int64_t>((bytePosition + 1) / 2);
    return firstAtUs_ + ((words - 1) * nsPerWord_ + 999) / 1000;
}

OfferedWords BusOutput::offered(int64_t nowUs) const
{
    if (left() == 0)
        return {};
    if (nowUs < firstAtUs_)
        return {{}, readyAtUs(std::min(position_ + STEP_BYTES, bytes_.size()))};
    size_t ready = bytes_.size();
    if (nsPerWord_ > 0) {
        const auto words = static_cast<uint64_t>((nowUs - firstAtUs_) * 1000 / nsPerWord_ + 1);
        ready = words < bytes_.size() / 2 ? static_cast<size_t>(words) * 2 : bytes_.size();
    }
    ready = std::max(ready, position_);
    OfferedWords words{std::span(bytes_).subspan(position_, ready - position_)};
    if (ready < bytes_.size())
        words.moreAtUs = readyAtUs(std::min(ready + STEP_BYTES, bytes_.size()));
    return words;
}

void BusOutput::taken(size_t byteCount)
{
    position_ = std::min(position_ + byteCount, bytes_.size());
    if (position_ == bytes_.size())
        clear();
}

}  // namespace vornsim
