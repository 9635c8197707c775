// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "bus.h"

namespace vorntest {

/// What can go wrong with one libusb call, and at last what cannot.
enum class Trouble {
    IO,
    NO_DEVICE,
    TIMEOUT,
    PIPE,
    OVERFLOW,
    NO_MEM,
    ONE_SHORT,      ///< the last byte is missing
    NOTHING_FIRST,  ///< no bytes and no error; the call after it works
    GARBAGE,        ///< random bytes received
    NO_ALLOCATION,  ///< not of a call: the library gets no memory
};
inline constexpr struct {
    const char* name;
    int result = 0;
} TROUBLES[] = {{"IO", LIBUSB_ERROR_IO},
                {"NO_DEVICE", LIBUSB_ERROR_NO_DEVICE},
                {"TIMEOUT", LIBUSB_ERROR_TIMEOUT},
                {"PIPE", LIBUSB_ERROR_PIPE},
                {"OVERFLOW", LIBUSB_ERROR_OVERFLOW},
                {"NO_MEM", LIBUSB_ERROR_NO_MEM},
                {"one byte short"},
                {"nothing first"},
                {"garbage"},
                {"no memory"}};

/// @return whether a failure is noticed at once, as against wrong data.
constexpr bool isError(Trouble trouble)
{
    return trouble < Trouble::ONE_SHORT || trouble == Trouble::NO_ALLOCATION;
}

/// @return whether the trouble can befall a call of this kind.
inline bool canBefall(Trouble trouble, const BusCall& call)
{
    const bool bulk = call.kind == BusCall::BULK_IN || call.kind == BusCall::BULK_OUT;
    switch (trouble) {
        case Trouble::ONE_SHORT:
            return call.length > 0 && (bulk || call.kind == BusCall::CONTROL_IN);
        case Trouble::NOTHING_FIRST:
            return bulk;
        case Trouble::GARBAGE:
            return call.kind == BusCall::BULK_IN || call.kind == BusCall::CONTROL_IN;
        default:
            return true;
    }
}

/// A device whose calls go wrong from a chosen one on.
class FaultyUsb : public Backend {
public:
    explicit FaultyUsb(Backend& inner) : inner_(inner) {}

    /// The @p at-th call from here on goes wrong, or with @p forEver all from then on; 0 for none.
    void plan(Trouble trouble, uint64_t at, bool forEver)
    {
        trouble_ = trouble;
        at_ = at;
        forEver_ = forEver;
        callCount_ = 0;
    }

    uint64_t patience = 3000;  ///< after so many hits the device is gone: what only an error may stop is stopped
    bool opens = false;        ///< libusb_open always works
    std::vector<BusCall>* recorded = nullptr;  ///< when set, receives the calls
    uintptr_t lowestStack = UINTPTR_MAX;       ///< of calls that went wrong
    uintptr_t highestStack = 0;

    int serve(const BusCall& call, std::span<uint8_t> data, int& transferred) override
    {
        if (!call.countable())
            return inner_.serve(call, data, transferred);
        callCount_++;
        if (recorded != nullptr)
            recorded->push_back(call);
        const bool gone = hitCount_ >= patience && at_ != 0;
        const bool due = at_ != 0 && (callCount_ == at_ || (forEver_ && callCount_ > at_));
        const bool hit = gone || (due && canBefall(trouble_, call));
        if (!hit || (opens && !gone && call.kind == BusCall::OPEN))
            return inner_.serve(call, data, transferred);
        hitCount_++;
        const auto stack = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        lowestStack = std::min(lowestStack, stack);
        highestStack = std::max(highestStack, stack);
        if (gone)
            return LIBUSB_ERROR_NO_DEVICE;
        return spoil(call, data, transferred);
    }

private:
    int spoil(const BusCall& call, std::span<uint8_t> data, int& transferred)
    {
        switch (trouble_) {
            case Trouble::ONE_SHORT: {
                if (call.kind == BusCall::BULK_OUT) {
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
                return TROUBLES[static_cast<size_t>(trouble_)].result;
        }
    }

    Backend& inner_;
    Trouble trouble_ = Trouble::IO;
    uint64_t at_ = 0;
    bool forEver_ = false;
    uint64_t callCount_ = 0;  // countable ones since plan()
    uint64_t hitCount_ = 0;   // of these that went wrong
    bool hadNothing_ = false;
    uint32_t random_ = 1;
};

}  // namespace vorntest
