// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/wire.h"

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
        ok = sendGpioMask(CMD_SET_GPIO_DIRECTION, directionMask);
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
        ok = sendGpioMask(CMD_SET_GPIO, levels);
    }
    if (!ok)
        lastError = "Failed to set GPIO";
    TRACE_EXIT("%s<- VornCameraImpl::setGPIO %d\n", ok);
    return ok;
}

/// Low byte first on STANDARD, high byte first on ADVANCED: the 16-bit form knows both.
bool VornCameraImpl::sendGpioMask(unsigned cmd, unsigned mask)
{
    switch (type) {
        case STANDARD:
        case ADVANCED:
            return sendCommand(cmd, static_cast<uint16_t>(mask));
        case CLASSIC:
        case QUICKER:
        case IIDC:
            break;
    }
    return false;
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
        uint8_t reply[4] = {};  // line count (2), levels (2)
        switch (type) {
            case STANDARD:
                ok = sendCommand(CMD_GET_GPIO, nullptr, reply, 0, sizeof reply);
                *levels = getLe16(reply, 2);  // deliberate: stored after a failure too
                break;
            case ADVANCED:
                ok = sendCommand(CMD_GET_GPIO, nullptr, reply, 0, sizeof reply);
                *levels = getBe16(reply, 2);
                break;
            case CLASSIC:
            case QUICKER:
            case IIDC:
                break;
        }
    }
    if (!ok)
        lastError = "Failed to get GPIO";
    TRACE_EXIT("%s<- VornCameraImpl::getGPIO %d -> 0x%04x\n", ok, *levels);
    return ok;
}
