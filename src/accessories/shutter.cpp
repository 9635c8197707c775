// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/device_lock.h"

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
        ok = factsOf(type).hasShutterCommand && sendValue<CMD_SET_SHUTTER>(*this, open ? SHUTTER_OPEN : SHUTTER_CLOSED);
    }
    if (!ok)
        lastError = "Failed to set shutter";
    TRACE_EXIT("%s<- VornCameraImpl::shutter %d\n", ok);
    return ok;
}
