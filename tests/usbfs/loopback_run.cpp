// SPDX-License-Identifier: MIT
// Runs a host program with two loopback devices in place of cameras: usbfs_loopback_run PROGRAM ARGS...
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "bus/real_clock.h"
#include "device/usb_device.h"
#include "usbfs/child_process.h"
#include "usbfs/mock_bus.h"
#include "usbfs/preload.h"

namespace vornsim {
namespace {

/// A device whose behaviour a host program sets by vendor requests. Alternate setting 1 has three bulk endpoints:
/// 0x04 takes bytes, 0x86 gives them back, 0x88 gives a pattern.
///
/// | Request | value, index         | Effect                                                            |
/// |---------|----------------------|-------------------------------------------------------------------|
/// | 0xB0    | milliseconds, -      | 0x86 gives nothing before that time has passed                    |
/// | 0xB1    | TransferStatus, -    | the next step of any bulk transfer ends with it                   |
/// | 0xB2    | length low, high     | 0x88 has so many more bytes to give: 0, 1, ... 250, 0, 1, ...     |
/// | others  | -                    | stall                                                             |
class LoopbackDevice : public UsbDevice {
public:
    LoopbackDevice(const Clock& clock, uint16_t productId) : clock_(clock), productId_(productId) {}

    std::vector<uint8_t> descriptors() const override
    {
        const auto low = static_cast<uint8_t>(productId_ & 0xFF);
        const auto high = static_cast<uint8_t>(productId_ >> 8);
        return {18, 1, 0,    2, 0xFF, 0xFF, 0xFF, 64,   0x34, 0x12, low, high, 0, 0, 0, 0, 0,    1,  // device
                9,  2, 48,   0, 1,    1,    0,    0x80, 50,                                          // configuration
                9,  4, 0,    0, 0,    0xFF, 0xFF, 0xFF, 0,  // alternate 0: empty
                9,  4, 0,    1, 3,    0xFF, 0xFF, 0xFF, 0,  // alternate 1
                7,  5, 0x04, 2, 0,    2,    0,    7,    5,    0x86, 2,   0,    2, 0, 7, 5, 0x88, 2, 0, 2, 0};
    }

    ControlResult control(const SetupPacket& setup, std::span<uint8_t> /*data*/) override
    {
        switch (setup.request) {
            case 0x01:  // CLEAR_FEATURE
                return {};
            case 0xB0:
                notBeforeUs_ = clock_.nowUs() + int64_t{1000} * setup.value;
                return {};
            case 0xB1:
                nextStatus_ = static_cast<TransferStatus>(setup.value);
                return {};
            case 0xB2:
                patternLength_ += setup.value + (size_t{setup.index} << 16);
                return {};
            default:
                return {TransferStatus::STALL, 0};
        }
    }

    bool setInterface(unsigned interface, unsigned alternate) override { return interface == 0 && alternate <= 1; }

    BulkResult bulkOut(uint8_t /*endpoint*/, std::span<const uint8_t> data) override
    {
        if (nextStatus_ != TransferStatus::OK)
            return {std::exchange(nextStatus_, TransferStatus::OK), 0, true};
        echo_.insert(echo_.end(), data.begin(), data.end());
        return {TransferStatus::OK, data.size(), true};
    }

    BulkResult bulkIn(uint8_t endpoint, std::span<uint8_t> buffer) override
    {
        if (nextStatus_ != TransferStatus::OK)
            return {std::exchange(nextStatus_, TransferStatus::OK), 0, true};
        if (endpoint == 0x88) {
            const size_t count = std::min(patternLength_, buffer.size());
            for (size_t i = 0; i < count; ++i)
                buffer[i] = static_cast<uint8_t>(patternPosition_++ % 251);
            patternLength_ -= count;
            return {TransferStatus::OK, count, count == buffer.size(), NEVER};
        }
        if (clock_.nowUs() < notBeforeUs_)
            return {TransferStatus::OK, 0, false, notBeforeUs_};
        const size_t count = std::min(echo_.size(), buffer.size());
        std::copy_n(echo_.begin(), count, buffer.begin());
        echo_.erase(echo_.begin(), echo_.begin() + static_cast<std::ptrdiff_t>(count));
        return {TransferStatus::OK, count, count > 0, NEVER};  // whatever there is ends in a short packet
    }

private:
    const Clock& clock_;
    uint16_t productId_;
    std::deque<uint8_t> echo_;
    size_t patternLength_ = 0;
    size_t patternPosition_ = 0;
    int64_t notBeforeUs_ = 0;
    TransferStatus nextStatus_ = TransferStatus::OK;
};

class QuietLog : public DeviceLog {
public:
    void note(const std::string& /*text*/) override {}
    void complain(const std::string& text) override { std::fprintf(stderr, "complaint: %s\n", text.c_str()); }
};

}  // namespace
}  // namespace vornsim

int main(int argc, char** argv)
{
    std::string problem = vornsim::ensurePreload(argv);
    vornsim::ChildProcess child;
    const vornsim::RealClock clock;
    vornsim::QuietLog log;
    vornsim::LoopbackDevice first(clock, 0x1001);
    vornsim::LoopbackDevice second(clock, 0x1002);
    vornsim::MockBus bus(clock);
    for (vornsim::UsbDevice* device : {&first, &second})
        problem = problem.empty() ? bus.attach(*device, log) : problem;
    if (!problem.empty()) {
        std::fprintf(stderr, "%s\n", problem.c_str());
        return 99;
    }
    const vornsim::ChildResult result = child.run({argv + 1, argv + argc}, bus.environment());
    if (result.startError)
        std::fprintf(stderr, "%s: %s\n", argv[1], std::strerror(result.startError));
    return result.startError ? 98 : result.exitStatus;
}
