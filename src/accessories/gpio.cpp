// SPDX-License-Identifier: MIT
#include "accessories/gpio.h"

#include "camera_impl.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/device_lock.h"

using namespace vornccd;

bool VornCameraImpl::setGPIODirection(unsigned short directionMask)
{
    TRACE_ENTER("%s-> VornCameraImpl::setGPIODirection(0x%04x)\n", directionMask);
    if (!hasGPIO) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::setGPIODirection 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = factsOf(type).hasGpioPort && sendValue<CMD_SET_GPIO_DIRECTION>(*this, directionMask);
    }
    if (!ok)
        lastError = "Failed to set GPIO direction";
    TRACE_EXIT("%s<- VornCameraImpl::setGPIODirection %d\n", ok);
    return ok;
}

bool VornCameraImpl::setGPIO(unsigned short levels)
{
    TRACE_ENTER("%s-> VornCameraImpl::setGPIO(0x%04x)\n", levels);
    if (!hasGPIO) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::setGPIO 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = factsOf(type).hasGpioPort && sendValue<CMD_SET_GPIO>(*this, levels);
    }
    if (!ok)
        lastError = "Failed to set GPIO";
    TRACE_EXIT("%s<- VornCameraImpl::setGPIO %d\n", ok);
    return ok;
}

bool VornCameraImpl::getGPIO(unsigned short* levels)
{
    TRACE_ENTER("%s-> VornCameraImpl::getGPIO(...)\n");
    if (!hasGPIO) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::getGPIO 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        if (factsOf(type).hasGpioPort) {
            uint8_t reply[CMD_GET_GPIO.replyLength] = {};
            ok = ask<CMD_GET_GPIO>(*this, reply);
            // deliberate: stored after a failure too
            *levels = static_cast<unsigned short>(unpack(reply, gpioLevels(factsOf(type).payloadOrder)));
        }
    }
    if (!ok)
        lastError = "Failed to get GPIO";
    TRACE_EXIT("%s<- VornCameraImpl::getGPIO %d -> 0x%04x\n", ok, *levels);
    return ok;
}
