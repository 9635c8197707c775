// SPDX-License-Identifier: MIT
#include "bus.h"

#include <sys/time.h>
#include <unistd.h>
#include <cstdarg>
#include <cstdio>

namespace vorntest {

namespace {

__attribute__((format(printf, 1, 2))) std::string format(const char* text, ...)
{
    char line[256];
    va_list arguments;
    va_start(arguments, text);
    (void)vsnprintf(line, sizeof line, text, arguments);
    va_end(arguments);
    return line;
}

}  // namespace

std::string BusCall::text() const
{
    const char* const NAMES[] = {"open",  "close",        "kernel driver active?", "detach kernel driver",
                                 "claim", "set interface"};
    if (kind < BULK_OUT)
        return format("%s, interface %u, alternate setting %u", NAMES[kind], value, index);
    if (kind == PAUSE)
        return format("pause of %ld us", pauseUs);
    std::string line;
    if (kind == BULK_OUT || kind == BULK_IN)
        line = format("%s 0x%02X, %d bytes, %u ms:", kind == BULK_OUT ? "out" : "in", endpoint, length, timeoutMs);
    else
        line = format("control 0x%02X 0x%02X, value 0x%04X, index 0x%04X, %d bytes, %u ms:", requestType, request,
                      value, index, length, timeoutMs);
    constexpr size_t SHOWN_BYTES = 64;
    for (size_t i = 0; i < bytes.size() && i < SHOWN_BYTES; i++)
        line += format(" %02X", bytes[i]);
    if (bytes.size() > SHOWN_BYTES)
        line += format(" and %zu more", bytes.size() - SHOWN_BYTES);
    return line;
}

Bus& bus()
{
    static Bus theBus;
    return theBus;
}

int Bus::call(libusb_device& device, BusCall call, uint8_t* data, int* transferred)
{
    const std::lock_guard held(device.mutex);
    if (call.length < 0) {
        reportMisuse("negative length: " + call.text());
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const bool out = call.kind == BusCall::BULK_OUT || call.kind == BusCall::CONTROL_OUT;
    if (call.countable() && ++device.callCount == device.fault.at)
        now_ += device.fault.delayUs;
    if (out && data != nullptr)
        call.bytes.assign(data, data + call.length);
    int moved = 0;
    const int result = device.backend->serve(call, {data, static_cast<size_t>(call.length)}, moved);
    if (transferred != nullptr)
        *transferred = moved;
    return result;
}

void Bus::pause(long us)
{
    now_ += us;
    if (pauseListener != nullptr)
        pauseListener(us);
}

ssize_t Bus::deviceList(libusb_device*** list)
{
    const std::lock_guard held(mutex_);
    listCalls++;
    if (listResult < 0)
        return listResult;
    lists_.push_back(devices_);
    lists_.back().push_back(nullptr);
    *list = lists_.back().data();
    return static_cast<ssize_t>(devices_.size());
}

}  // namespace vorntest

// ---- the functions of the seam -------------------------------------------------------------------------------------

using vorntest::bus;
using vorntest::BusCall;

struct libusb_context {};

namespace {

/// Makes a call on an open handle; a null or closed handle is a fault of the code under test.
int onHandle(libusb_device_handle* handle, BusCall call, uint8_t* data = nullptr, int* transferred = nullptr)
{
    if (handle == nullptr || handle->device->openCount == 0) {
        vorntest::reportMisuse((handle == nullptr ? "null handle: " : "closed handle: ") + call.text());
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return bus().call(*handle->device, std::move(call), data, transferred);
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the names of the C headers are not ours
extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** context)
{
    static libusb_context theContext;
    bus().initCalls++;
    if (bus().initResult >= 0)
        *context = &theContext;
    return bus().initResult;
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    if (context == nullptr)
        vorntest::reportMisuse("libusb_get_device_list without a context");
    return bus().deviceList(list);
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device, struct libusb_device_descriptor* descriptor)
{
    if (device->descriptorUnreadable)
        return LIBUSB_ERROR_IO;
    *descriptor = {};
    descriptor->idVendor = device->vendorId;
    descriptor->idProduct = device->productId;
    return 0;
}

libusb_device* LIBUSB_CALL libusb_ref_device(libusb_device* device)
{
    device->references++;
    return device;
}

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    const int result = bus().call(*device, {.kind = BusCall::OPEN}, nullptr, nullptr);
    if (result >= 0) {
        device->openCount++;
        *handle = &device->handle;
    }
    return result;
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle)
{
    (void)onHandle(handle, {.kind = BusCall::CLOSE});
    if (handle != nullptr)
        handle->device->openCount--;
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interface)
{
    return onHandle(handle, {.kind = BusCall::DRIVER_ACTIVE, .value = static_cast<unsigned>(interface)});
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int interface)
{
    return onHandle(handle, {.kind = BusCall::DETACH_DRIVER, .value = static_cast<unsigned>(interface)});
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface)
{
    return onHandle(handle, {.kind = BusCall::CLAIM, .value = static_cast<unsigned>(interface)});
}

int LIBUSB_CALL libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface, int setting)
{
    return onHandle(handle, {.kind = BusCall::ALT_SETTING,
                             .value = static_cast<unsigned>(interface),
                             .index = static_cast<unsigned>(setting)});
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                                     int length, int* transferred, unsigned int timeout)
{
    const auto kind = (endpoint & LIBUSB_ENDPOINT_IN) != 0 ? BusCall::BULK_IN : BusCall::BULK_OUT;
    return onHandle(handle, {.kind = kind, .endpoint = endpoint, .length = length, .timeoutMs = timeout}, data,
                    transferred);
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t requestType, uint8_t request,
                                        uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                                        unsigned int timeout)
{
    const auto kind = (requestType & LIBUSB_ENDPOINT_IN) != 0 ? BusCall::CONTROL_IN : BusCall::CONTROL_OUT;
    return onHandle(handle, {kind, 0, requestType, request, value, index, length, timeout}, data);
}

// the names of the real one differ from version to version
const char* LIBUSB_CALL libusb_error_name(int code)
{
    static const char* const NAMES[] = {
        "LIBUSB_SUCCESS",      "LIBUSB_ERROR_IO",          "LIBUSB_ERROR_INVALID_PARAM",
        "LIBUSB_ERROR_ACCESS", "LIBUSB_ERROR_NO_DEVICE",   "LIBUSB_ERROR_NOT_FOUND",
        "LIBUSB_ERROR_BUSY",   "LIBUSB_ERROR_TIMEOUT",     "LIBUSB_ERROR_OVERFLOW",
        "LIBUSB_ERROR_PIPE",   "LIBUSB_ERROR_INTERRUPTED", "LIBUSB_ERROR_NO_MEM"};  // from 0 downwards
    return code <= 0 && code >= LIBUSB_ERROR_NO_MEM ? NAMES[-code] : "**UNKNOWN**";
}

int usleep(useconds_t us)
{
    bus().pause(static_cast<long>(us));
    return 0;
}

int gettimeofday(struct timeval* time, void* /*zone*/) noexcept
{
    constexpr int64_t START_S = 1'700'000'000;
    const int64_t now = bus().nowUs();
    time->tv_sec = static_cast<time_t>(START_S + now / 1'000'000);
    time->tv_usec = static_cast<suseconds_t>(now % 1'000'000);
    return 0;
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
