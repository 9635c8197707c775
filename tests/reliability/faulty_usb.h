// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "bus.h"

namespace vorntest {

/// What can go wrong.
struct Trouble {
    enum Kind {
        ERROR,
        NO_ALLOCATION,  ///< not of a call: the library gets no memory
        ONE_SHORT,      ///< the last byte is missing
        NOTHING_FIRST,  ///< no bytes and no error; the call after it works
        GARBAGE,        ///< random bytes received
    };
    const char* name;
    Kind kind = ERROR;
    int result = 0;

    /// @return whether it is noticed at once, as against wrong data.
    bool isError() const { return kind <= NO_ALLOCATION; }
    /// @return whether it can befall a call of this kind.
    bool canBefall(const BusCall& call) const
    {
        const bool receiving = call.kind == BusCall::BULK_IN || call.kind == BusCall::CONTROL_IN;
        const bool bulk = call.kind == BusCall::BULK_IN || call.kind == BusCall::BULK_OUT;
        return kind == ERROR || (kind == GARBAGE && receiving) || (kind == NOTHING_FIRST && bulk) ||
               (kind == ONE_SHORT && call.length > 0 && (bulk || receiving));
    }
};
inline constexpr Trouble CALL_TROUBLES[] = {{"IO", Trouble::ERROR, LIBUSB_ERROR_IO},
                                            {"NO_DEVICE", Trouble::ERROR, LIBUSB_ERROR_NO_DEVICE},
                                            {"TIMEOUT", Trouble::ERROR, LIBUSB_ERROR_TIMEOUT},
                                            {"PIPE", Trouble::ERROR, LIBUSB_ERROR_PIPE},
                                            {"OVERFLOW", Trouble::ERROR, LIBUSB_ERROR_OVERFLOW},
                                            {"NO_MEM", Trouble::ERROR, LIBUSB_ERROR_NO_MEM},
                                            {"one byte short", Trouble::ONE_SHORT},
                                            {"nothing first", Trouble::NOTHING_FIRST},
                                            {"garbage", Trouble::GARBAGE}};

/// A device whose calls go wrong from a chosen one on.
class FaultyUsb : public Backend {
public:
    explicit FaultyUsb(Backend& inner) : inner_(inner) {}

    /// The @p at-th call from here on goes wrong, or with @p forEver all from then on; 0 for none.
    void plan(const Trouble& trouble, uint64_t at, bool forEver)
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
        const bool hit = gone || (due && trouble_.canBefall(call));
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
        switch (trouble_.kind) {
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
            default:
                if (trouble_.result == LIBUSB_ERROR_TIMEOUT)
                    bus().advanceUs(int64_t{call.timeoutMs} * 1000);
                return trouble_.result;
        }
    }

    Backend& inner_;
    Trouble trouble_ = {};
    uint64_t at_ = 0;
    bool forEver_ = false;
    uint64_t callCount_ = 0;  // countable ones since plan()
    uint64_t hitCount_ = 0;   // of these that went wrong
    bool hadNothing_ = false;
    uint32_t random_ = 1;
};

}  // namespace vorntest
