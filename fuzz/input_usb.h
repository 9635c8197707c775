// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include "bus.h"
#include "input.h"

namespace vornfuzz {

/// A device that sends whatever the input says and takes whatever it gets.
///
/// A read takes a status byte from the input, for some a length, and up to 256 bytes of data; zeros follow. Everything
/// sent is taken without a look, so that all of the input goes into answers. A used up input, or too many transfers,
/// unplug the device.
class InputUsb : public vorntest::Backend {
public:
    explicit InputUsb(Input& input) : input_(input) {}

    int driverActive = 0;  ///< answers of the calls before the first transfer
    int claimResult = 0;
    int altSettingResult = 0;

    int serve(const vorntest::BusCall& call, std::span<uint8_t> data, int& transferred) override
    {
        using vorntest::BusCall;
        gone_ = gone_ || ++callCount_ > TRANSFER_BUDGET;
        if (call.kind == BusCall::CLOSE)
            return 0;
        if (gone_) {
            check(++callCount_ < HANG_LIMIT, "the library goes on and on with a device that is gone");
            return LIBUSB_ERROR_NO_DEVICE;
        }
        switch (call.kind) {
            case BusCall::OPEN:
                gone_ = ++openingCount_ > OPENING_BUDGET;
                return gone_ ? LIBUSB_ERROR_NO_DEVICE : 0;
            case BusCall::DRIVER_ACTIVE:
                return driverActive;
            case BusCall::CLAIM:
                return claimResult;
            case BusCall::ALT_SETTING:
                return altSettingResult;
            case BusCall::BULK_OUT:
            case BusCall::CONTROL_OUT:
                transferred = call.length;
                if (nextSent_ != 0)
                    return std::exchange(nextSent_, 0);
                return call.kind == BusCall::CONTROL_OUT ? call.length : 0;
            case BusCall::BULK_IN:
                return receive(data, transferred);
            case BusCall::CONTROL_IN: {
                const int result = receive(data, transferred);
                return result < 0 ? result : transferred;
            }
            default:
                return 0;
        }
    }

private:
    static constexpr int TRANSFER_BUDGET = 20000;
    static constexpr int OPENING_BUDGET = 16;   // CLASSIC cameras are tried again without end
    static constexpr int HANG_LIMIT = 1000000;  // calls to a device that is gone
    static constexpr uint8_t FAILED = 0xE0;     // status bytes from here on fail
    static constexpr size_t LARGEST_DATA_LENGTH = 256;
    static constexpr int ERRORS[] = {LIBUSB_ERROR_IO,       LIBUSB_ERROR_TIMEOUT,   LIBUSB_ERROR_PIPE,
                                     LIBUSB_ERROR_OVERFLOW, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NO_MEM,
                                     LIBUSB_ERROR_BUSY,     LIBUSB_ERROR_OTHER};

    int receive(std::span<uint8_t> data, int& transferred)
    {
        gone_ = input_.exhausted();
        if (gone_)
            return LIBUSB_ERROR_NO_DEVICE;
        const uint8_t status = input_.byte();
        const int error = ERRORS[status % std::size(ERRORS)];
        const bool failed = status >= FAILED;
        if (status >= 0xC0 && !failed)
            nextSent_ = error;
        if (status >= 0x80 && (status < 0xC0 || failed))  // also a failed read may have brought something
            data = data.first(std::min<size_t>(data.size(), input_.byte()));
        const std::span<const uint8_t> bytes = input_.take(std::min(data.size(), LARGEST_DATA_LENGTH));
        std::copy(bytes.begin(), bytes.end(), data.begin());
        std::fill(data.begin() + static_cast<std::ptrdiff_t>(bytes.size()), data.end(), uint8_t{0});
        transferred = static_cast<int>(data.size());
        gone_ = failed && error == LIBUSB_ERROR_NO_DEVICE;
        return failed ? error : 0;
    }

    Input& input_;
    bool gone_ = false;
    int callCount_ = 0;
    int openingCount_ = 0;
    int nextSent_ = 0;  // error of the next transfer to the device, 0 for none
};

}  // namespace vornfuzz
