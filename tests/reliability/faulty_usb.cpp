// SPDX-License-Identifier: MIT
#include "faulty_usb.h"

#include <algorithm>

namespace vorntest {

namespace {

bool isBulk(const BusCall& call)
{
    return call.kind == BusCall::BULK_IN || call.kind == BusCall::BULK_OUT;
}

bool isReceiving(const BusCall& call)
{
    return call.kind == BusCall::BULK_IN || call.kind == BusCall::CONTROL_IN;
}

constexpr int RESULTS[] = {LIBUSB_ERROR_IO,   LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_TIMEOUT,
                           LIBUSB_ERROR_PIPE, LIBUSB_ERROR_OVERFLOW,  LIBUSB_ERROR_NO_MEM};

}  // namespace

const char* nameOf(Trouble trouble)
{
    constexpr const char* NAMES[] = {"IO",     "NO_DEVICE",      "TIMEOUT",       "PIPE",    "OVERFLOW",
                                     "NO_MEM", "one byte short", "nothing first", "garbage", "no memory"};
    return NAMES[static_cast<int>(trouble)];
}

void FaultyUsb::plan(Trouble trouble, uint64_t at, bool forEver)
{
    trouble_ = trouble;
    at_ = at;
    forEver_ = forEver;
    hadNothing_ = false;
    callCount = 0;
    hitCount = 0;
}

bool FaultyUsb::applies(Trouble trouble, const BusCall& call)
{
    switch (trouble) {
        case Trouble::ONE_SHORT:
            return call.length > 0 && (isBulk(call) || call.kind == BusCall::CONTROL_IN);
        case Trouble::NOTHING_FIRST:
            return isBulk(call);
        case Trouble::GARBAGE:
            return isReceiving(call);
        default:
            return true;
    }
}

int FaultyUsb::serve(const BusCall& call, std::span<uint8_t> data, int& transferred)
{
    if (!call.countable())
        return inner_.serve(call, data, transferred);
    callCount++;
    if (recorded != nullptr)
        recorded->push_back(call);
    const bool gone = hitCount >= patience && at_ != 0;
    const bool due = at_ != 0 && (callCount == at_ || (forEver_ && callCount > at_));
    const bool hit = gone || (due && applies(trouble_, call));
    if (!hit || (opens && !gone && call.kind == BusCall::OPEN))
        return inner_.serve(call, data, transferred);
    hitCount++;
    const auto stack = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    lowestStack = std::min(lowestStack, stack);
    highestStack = std::max(highestStack, stack);
    if (gone)
        return LIBUSB_ERROR_NO_DEVICE;
    return spoil(call, data, transferred);
}

int FaultyUsb::spoil(const BusCall& call, std::span<uint8_t> data, int& transferred)
{
    switch (trouble_) {
        case Trouble::ONE_SHORT: {
            if (!isReceiving(call)) {
                BusCall shorter = call;
                shorter.length--;
                return inner_.serve(shorter, data.first(data.size() - 1), transferred);
            }
            const int result = inner_.serve(call, data, transferred);
            transferred = std::max(0, transferred - 1);
            return call.kind == BusCall::CONTROL_IN ? std::max(0, result - 1) : result;
        }
        case Trouble::NOTHING_FIRST:
            hadNothing_ = !hadNothing_;
            return hadNothing_ ? 0 : inner_.serve(call, data, transferred);
        case Trouble::GARBAGE: {
            const int result = inner_.serve(call, data, transferred);
            const int received = call.kind == BusCall::CONTROL_IN ? result : transferred;
            for (int i = 0; i < received; i++) {
                random_ = random_ * 1664525 + 1013904223;
                data[static_cast<size_t>(i)] = static_cast<uint8_t>(random_ >> 24);
            }
            return result;
        }
        case Trouble::TIMEOUT:
            bus().advanceUs(int64_t{call.timeoutMs} * 1000);
            [[fallthrough]];
        default:
            return RESULTS[static_cast<int>(trouble_)];
    }
}

}  // namespace vorntest
