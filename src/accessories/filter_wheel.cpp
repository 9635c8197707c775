// SPDX-License-Identifier: MIT
#include "accessories/filter_status.h"
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/wire.h"

using namespace vornccd;

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
        ok = readFilterStatus(status);
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

/// Count, moving, current, target: on STANDARD the low byte of each word counts, on ADVANCED each is big-endian.
bool VornCameraImpl::readFilterStatus(FilterStatus& status)
{
    uint8_t reply[8] = {};
    switch (type) {
        case STANDARD:
            if (!sendCommand(CMD_GET_FILTER_STATUS, nullptr, reply, 0, sizeof reply))
                return false;
            status = {reply[0], reply[2] != 0, reply[4], reply[6]};
            return true;
        case ADVANCED:
            if (!sendCommand(CMD_GET_FILTER_STATUS, nullptr, reply, 0, sizeof reply))
                return false;
            status = {getBe16(reply, 0), getBe16(reply, 2) != 0, getBe16(reply, 4), getBe16(reply, 6)};
            return true;
        case CLASSIC:
        case QUICKER:
        case IIDC:  // no wheel in these families
            break;
    }
    return false;
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
        ok = moveFilterWheel(index);
    }
    if (!ok)
        lastError = "Failed to set filter";
    TRACE_EXIT("%s<- VornCameraImpl::setFilter %d\n", ok);
    return ok;
}

/// Commands the wheel to position @p index. @return true when the camera acknowledged it.
bool VornCameraImpl::moveFilterWheel(unsigned int index)
{
    uint8_t reply[2] = {};
    bool sent = false;
    bool accepted = false;
    switch (type) {
        case STANDARD:
            sent = sendCommand(CMD_SET_FILTER, static_cast<uint16_t>(index), reply, sizeof reply);
            accepted = reply[0] != 0;
            break;
        case ADVANCED: {
            const uint8_t payload[2] = {0, static_cast<uint8_t>(index)};  // deliberate: low 8 bits only
            sent = sendCommand(CMD_SET_FILTER, payload, reply, sizeof payload, sizeof reply);
            accepted = getBe16(reply, 0) != 0;
            break;
        }
        case CLASSIC:
        case QUICKER:
        case IIDC:  // no wheel in these families
            break;
    }
    if (sent && !accepted)
        TRACE_DETAIL("%s    failed to set filter\n");
    return sent && accepted;
}
