// SPDX-License-Identifier: MIT
#include "input_usb.h"

#include <dlfcn.h>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

namespace vornfuzz {

using vorntest::BusCall;

namespace {

constexpr int TRANSFER_BUDGET = 20000;
constexpr int OPENING_BUDGET = 16;   // CLASSIC cameras are tried again without end
constexpr int HANG_LIMIT = 1000000;  // calls to a device that is gone

constexpr int ERRORS[] = {LIBUSB_ERROR_IO,        LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_OVERFLOW,
                          LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NO_MEM,  LIBUSB_ERROR_BUSY, LIBUSB_ERROR_OTHER};

constexpr double INTERESTING[] = {0.0,
                                  0.001,
                                  0.01,
                                  0.05,
                                  0.266282,
                                  0.532782,
                                  3.0,
                                  -1.0,
                                  2147.5,
                                  4295,
                                  86400,
                                  1e300,
                                  -1e300,
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN()};

}  // namespace

jmp_buf exitPoint;
bool exitArmed = false;

void check(bool condition, const char* what)
{
    if (condition)
        return;
    (void)std::fprintf(stderr, "%s\n", what);
    std::abort();
}

double Input::real()
{
    const uint8_t choice = byte();
    return choice < std::size(INTERESTING) ? INTERESTING[choice] : number<double>();
}

int InputUsb::serve(const BusCall& call, std::span<uint8_t> data, int& transferred)
{
    gone_ = gone_ || ++callCount_ > TRANSFER_BUDGET;
    if (call.kind == BusCall::CLOSE)
        return 0;
    if (gone_) {
        check(++callCount_ < HANG_LIMIT, "the library goes on and on with a device that is gone");
        return LIBUSB_ERROR_NO_DEVICE;
    }
    switch (call.kind) {
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
        case BusCall::OPEN:
            gone_ = ++openingCount_ > OPENING_BUDGET;
            return gone_ ? LIBUSB_ERROR_NO_DEVICE : 0;
        case BusCall::CLOSE:
        case BusCall::DETACH_DRIVER:
        case BusCall::PAUSE:
            break;
    }
    return 0;
}

int InputUsb::receive(std::span<uint8_t> data, int& transferred)
{
    if (input_.exhausted()) {
        gone_ = true;
        return LIBUSB_ERROR_NO_DEVICE;
    }
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

}  // namespace vornfuzz

void vorntest::reportMisuse(const std::string& text)
{
    vornfuzz::check(false, text.c_str());
}

extern "C" {

void exit(int status) noexcept
{
    if (vornfuzz::exitArmed)
        longjmp(vornfuzz::exitPoint, 1);
    reinterpret_cast<void (*)(int)>(dlsym(RTLD_NEXT, "exit"))(status);
    std::abort();
}

/// More than any camera's frame needs is refused, as on a machine that has run out of memory.
const char* __asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=32:detect_leaks=1";
}
}
