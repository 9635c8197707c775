// SPDX-License-Identifier: MIT
#include "accessory_models.h"

#include <algorithm>

namespace vornsim {

FilterWheel::FilterWheel(unsigned count, int64_t nowUs) : count_(count)
{
    if (count_ == 0)
        start_ = target_ = 0;
    else
        arrivesAtUs_ = nowUs + HOMING_US;
}

bool FilterWheel::moveTo(unsigned position, int64_t nowUs)
{
    if (position < 1 || position > count_)
        return false;
    const unsigned from = current(nowUs);
    const unsigned forward = (position + count_ - from) % count_;
    const unsigned steps = std::min(forward, count_ - forward);
    // A wheel that still turns finishes that move first.
    const int64_t begins = std::max(nowUs, arrivesAtUs_);
    start_ = from;
    target_ = position;
    arrivesAtUs_ = begins + static_cast<int64_t>(steps) * US_PER_POSITION;
    return true;
}

void GuidedMount::setRelays(uint8_t closed, int64_t nowUs)
{
    x_ = driftX(nowUs);
    y_ = driftY(nowUs);
    sinceUs_ = nowUs;
    closed_ = closed;
}

double GuidedMount::axis(unsigned firstRelay) const
{
    const int forward = (closed_ >> firstRelay) & 1;
    const int backward = (closed_ >> (firstRelay + 1)) & 1;
    return PIXELS_PER_S * (forward - backward);
}

void Shutter::set(bool open, int64_t nowUs)
{
    if (!present_)
        return;
    seconds_ = lightSeconds(nowUs);
    sinceUs_ = nowUs;
    open_ = open;
}

void Shutter::beginIntegration(int64_t nowUs)
{
    seconds_ = 0.0;
    sinceUs_ = nowUs;
}

double Shutter::lightSeconds(int64_t nowUs) const
{
    return seconds_ + (open_ ? static_cast<double>(nowUs - sinceUs_) * 1e-6 : 0.0);
}

}  // namespace vornsim
