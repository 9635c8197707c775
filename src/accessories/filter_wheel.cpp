// SPDX-License-Identifier: MIT
#include "accessories/filter_status.h"
#include "camera_impl.h"
#include "family.h"
#include "trace/trace.h"
#include "transport/device_lock.h"

using namespace vornccd;

namespace {

/// Commands the wheel to position @p index. @return true when the camera acknowledged it.
bool turnFilterWheel(VornCameraImpl& camera, unsigned index)
{
    bool accepted = false;
    const bool sent = functionsOf(camera.type).turnFilterWheel(camera, index, accepted);
    if (sent && !accepted)
        TRACE_DETAIL("%s    failed to set filter\n");
    return sent && accepted;
}

}  // namespace

bool VornCameraImpl::getFilterWheelStatus(unsigned int* filterCount, bool* moving, unsigned int* current,
                                          unsigned int* target)
{
    TRACE_ENTER("%s-> VornCameraImpl::getFilterWheelStatus(...)\n");
    if (!hasFilterWheel) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::getFilterWheelStatus 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        FilterStatus status;
        ok = functionsOf(type).readFilterStatus(*this, status);
        if (ok && filterCount != nullptr) {
            *filterCount = status.count;
            TRACE_DETAIL("%s    filter count: %d\n", status.count);
        }
        if (ok && moving != nullptr) {
            *moving = status.moving;
            TRACE_DETAIL("%s    moving: %d\n", status.moving);
        }
        if (ok && current != nullptr) {
            *current = status.current;
            TRACE_DETAIL("%s    current: %d\n", status.current);
        }
        if (ok && target != nullptr) {
            *target = status.target;
            TRACE_DETAIL("%s    target: %d\n", status.target);
        }
    }
    if (!ok)
        lastError = "Failed to get filter wheel status";
    TRACE_EXIT("%s<- VornCameraImpl::getFilterWheelStatus %d\n", ok);
    return ok;
}

bool VornCameraImpl::setFilter(unsigned int index)
{
    TRACE_ENTER("%s-> VornCameraImpl::setFilter(%d)\n", index);
    if (!hasFilterWheel) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::setFilter 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = turnFilterWheel(*this, index);
    }
    if (!ok)
        lastError = "Failed to set filter";
    TRACE_EXIT("%s<- VornCameraImpl::setFilter %d\n", ok);
    return ok;
}
