// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "trace/trace.h"
#include "transport/control_requests.h"
#include "transport/layout.h"

#include <bit>

using namespace vornccd;

namespace {

constexpr Field REGISTER_VALUE = le32At(0);

/// One register over endpoint 0. Only the low 32 bits of the address travel.
int transferRegister(libusb_device_handle* handle, uint8_t requestType, uint64_t address, uint8_t* bytes)
{
    if (handle == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    return libusb_control_transfer(handle, requestType, REGISTER_REQUEST, static_cast<uint16_t>(address),
                                   static_cast<uint16_t>(address >> 16), bytes, REGISTER_LENGTH, CONTROL_TIMEOUT_MS);
}

}  // namespace

uint32_t VornCameraImpl::readRegister(uint64_t address)
{
    uint8_t bytes[REGISTER_LENGTH] = {};  // a short transfer reads as zeros
    return transferRegister(handle, VENDOR_IN, address, bytes) < 0 ? 0 : unpack(bytes, REGISTER_VALUE);
}

void VornCameraImpl::writeRegister(uint64_t address, uint32_t value)
{
    uint8_t bytes[REGISTER_LENGTH];
    pack(bytes, REGISTER_VALUE, value);
    (void)transferRegister(handle, VENDOR_OUT, address, bytes);  // deliberate: callers do not learn of a failure
}

float VornCameraImpl::readAbsValue(uint64_t address)
{
    return std::bit_cast<float>(readRegister(address));
}

void VornCameraImpl::writeAbsValue(uint64_t address, float value)
{
    TRACE_ENTER("%s-> VornCameraImpl::writeAbsValue(%llx, %g)\n", static_cast<unsigned long long>(address),
                static_cast<double>(value));
    writeRegister(address, std::bit_cast<uint32_t>(value));
    TRACE_EXIT("%s<- VornCameraImpl::writeAbsValue\n");
}
