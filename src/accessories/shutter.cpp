// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"

using namespace vornccd;

bool VornCameraImpl::setShutter(bool open)
{
    TRACE_ENTER("%s-> VornCameraImpl::shutter(%d)\n", open);  // deliberate: the name
    if (!hasShutter) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::shutter 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        switch (type) {
            case STANDARD:
                ok = sendCommand(CMD_SET_SHUTTER, static_cast<uint16_t>(open ? 1 : 0));
                break;
            case CLASSIC:
            case QUICKER:
            case IIDC:
            case ADVANCED:
                break;
        }
    }
    if (!ok)
        lastError = "Failed to set shutter";
    TRACE_EXIT("%s<- VornCameraImpl::shutter %d\n", ok);
    return ok;
}
