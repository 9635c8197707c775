// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "family_facts.h"
#include "trace/trace.h"

#include <atomic>
#include <cinttypes>

using namespace vornccd;

int VornHostBulkTimeout = 30000;

VornCameraImpl::VornCameraImpl(libusb_device* usbDevice, const char* displayName, CAMERA_TYPE family)
    : name(displayName),
      type(family),
      device(usbDevice),
      timeout(static_cast<uint32_t>(std::atomic_ref<int>(VornHostBulkTimeout).load(std::memory_order_relaxed)))
{
    TRACE_ENTER("%s-> VornCameraImpl::VornCameraImpl(..., %s, %d)\n", name, type);
    (void)pthread_mutex_init(&mutex, nullptr);
    if (factsOf(type).hasQuickerDelays) {
        TRACE_DETAIL("%s    quickerStartExposureDelay = %" PRId64 "\n", quickerStartExposureDelay);
        TRACE_DETAIL("%s    quickerReadCCDDelay = %" PRId64 "\n", quickerReadCCDDelay);
    }
    TRACE_DETAIL("%s    maxPacketSize = %" PRId64 "\n", maxPacketSize);
    TRACE_EXIT("%s<- VornCameraImpl::VornCameraImpl\n");
}

// deliberate: neither closes the handle nor destroys the mutex nor drops the device reference; the host closes first.
VornCameraImpl::~VornCameraImpl() = default;

const char* VornCameraImpl::getName()
{
    return name;
}

bool VornCameraImpl::setParam(PARAM_TYPE param, long value)
{
    TRACE_ENTER("%s-> VornCameraImpl::setParam(%d, %ld)\n", param, value);
    if (param == MAX_PACKET_SIZE) {
        maxPacketSize = value;
        TRACE_DETAIL("%s    maxPacketSize = %" PRId64 "\n", maxPacketSize);
    } else if (param == QUICKER_START_EXPOSURE_DELAY && factsOf(type).hasQuickerDelays) {
        quickerStartExposureDelay = value;
        TRACE_DETAIL("%s    quickerStartExposureDelay = %" PRId64 "\n", quickerStartExposureDelay);
    } else if (param == QUICKER_READ_CCD_DELAY && factsOf(type).hasQuickerDelays) {
        quickerReadCCDDelay = value;
        TRACE_DETAIL("%s    quickerReadCCDDelay = %" PRId64 "\n", quickerReadCCDDelay);
    } else {
        lastError = "Invalid parameter";
        TRACE_EXIT("%s<- VornCameraImpl::setParam -> 00\n");
        return false;
    }
    TRACE_EXIT("%s<- VornCameraImpl::setParam -> 1\n");
    return true;
}

long VornCameraImpl::getParam(PARAM_TYPE param)
{
    TRACE_ENTER("%s-> VornCameraImpl::getParam(%d)\n", param);
    long value = 0;  // each parameter was once given as a long, or begins as a small number
    if (param == MAX_PACKET_SIZE) {
        value = static_cast<long>(maxPacketSize);
        TRACE_DETAIL("%s    maxPacketSize = %ld\n", value);
    } else if (param == QUICKER_START_EXPOSURE_DELAY && factsOf(type).hasQuickerDelays) {
        value = static_cast<long>(quickerStartExposureDelay);
        TRACE_DETAIL("%s    quickerStartExposureDelay = %ld\n", value);
    } else if (param == QUICKER_READ_CCD_DELAY && factsOf(type).hasQuickerDelays) {
        value = static_cast<long>(quickerReadCCDDelay);
        TRACE_DETAIL("%s    quickerReadCCDDelay = %ld\n", value);
    } else {
        lastError = "Invalid parameter";
        TRACE_EXIT("%s<- VornCameraImpl::getParam -> 00\n");
        return 0;
    }
    TRACE_EXIT("%s<- VornCameraImpl::getParam -> %ld\n", value);
    return value;
}

unsigned int VornCameraImpl::getSerialNumber()
{
    return serialNumber;
}

unsigned int VornCameraImpl::getVersionMajor()
{
    return versionMajor;
}

unsigned int VornCameraImpl::getVersionMinor()
{
    return versionMinor;
}

const char* VornCameraImpl::getLastError()
{
    return lastError;
}
