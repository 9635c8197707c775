// SPDX-License-Identifier: MIT
#include "simulated.h"

#include <algorithm>

namespace vorntest {

namespace {

int libusbResult(vornsim::TransferStatus status)
{
    constexpr int RESULTS[] = {LIBUSB_SUCCESS, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_OVERFLOW, LIBUSB_ERROR_IO,
                               LIBUSB_ERROR_NO_DEVICE};  // in the order of TransferStatus
    return RESULTS[static_cast<size_t>(status)];
}

}  // namespace

int SimulatedUsb::serve(const BusCall& call, std::span<uint8_t> data, int& transferred)
{
    switch (call.kind) {
        case BusCall::CLAIM:
            claimed_ = true;
            return 0;
        case BusCall::CLOSE:
            if (claimed_)
                (void)device_.setInterface(0, 0);  // the kernel does so when a program lets go of an interface
            claimed_ = false;
            return 0;
        case BusCall::ALT_SETTING:
            if (!claimed_ || !device_.setInterface(call.value, call.index))
                return LIBUSB_ERROR_NOT_FOUND;
            return 0;
        case BusCall::BULK_OUT:
        case BusCall::BULK_IN:
            return claimed_ ? serveBulk(call, data, transferred) : LIBUSB_ERROR_IO;
        case BusCall::CONTROL_OUT:
        case BusCall::CONTROL_IN: {
            const vornsim::SetupPacket setup{static_cast<uint8_t>(call.requestType), static_cast<uint8_t>(call.request),
                                             static_cast<uint16_t>(call.value), static_cast<uint16_t>(call.index),
                                             static_cast<uint16_t>(call.length)};
            const vornsim::ControlResult result = device_.control(setup, data);
            const int failure = libusbResult(result.status);
            return failure < 0 ? failure : static_cast<int>(result.length);
        }
        default:
            return 0;
    }
}

int SimulatedUsb::serveBulk(const BusCall& call, std::span<uint8_t> data, int& transferred)
{
    const int64_t deadline =
        call.timeoutMs == 0 ? vornsim::NEVER : bus().nowUs() + static_cast<int64_t>(call.timeoutMs) * 1000;
    const auto endpoint = static_cast<uint8_t>(call.endpoint);
    size_t moved = 0;
    for (;;) {
        const std::span<uint8_t> rest = data.subspan(moved);
        const vornsim::BulkResult step =
            call.kind == BusCall::BULK_OUT ? device_.bulkOut(endpoint, rest) : device_.bulkIn(endpoint, rest);
        moved += std::min(step.length, rest.size());
        transferred = static_cast<int>(moved);
        if (step.complete || step.status != vornsim::TransferStatus::OK)
            return libusbResult(step.status);
        const int64_t next = std::min(step.retryAtUs, deadline);
        if (next == vornsim::NEVER) {
            reportMisuse("waits for ever: " + call.text());
            return LIBUSB_ERROR_TIMEOUT;
        }
        bus().advanceTo(next);
        if (next == deadline)
            return LIBUSB_ERROR_TIMEOUT;
    }
}

}  // namespace vorntest
