// SPDX-License-Identifier: MIT
// The two forms of readCCD(): what the families share.
#include "exposure/readout.h"

#include "camera_impl.h"
#include "family.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/device_lock.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr unsigned READOUT_TIMEOUT_MS = 30000;

/// Sums wrap as 32-bit numbers do. deliberate: the vertical extent too is compared with the sensor's width.
bool regionIsValid(const VornCameraImpl& camera, const ReadoutRegion& region)
{
    return region.binX != 0 && region.binX <= camera.maxBinX && region.binY != 0 && region.binY <= camera.maxBinY &&
           region.x + region.width <= camera.pixelCountX && region.y + region.height <= camera.pixelCountX;
}

/// Readout takes longer than the bridge usually waits. A failure is only traced.
void raiseParTimeout(VornCameraImpl& camera)
{
    if (!factsOf(camera.type).raisesParTimeout)
        return;
    if (!camera.setParTimeout(READOUT_TIMEOUT_MS))
        TRACE_DETAIL("%s    set timeout 30000 failed\n");
}

/// Leaves the lock to getImage() after a success, and releases it after a failure.
bool finishReadout(VornCameraImpl& camera, DeviceLock& held, bool ok)
{
    if (ok) {
        camera.imageReady = true;
        held.handOverToImage();
    } else {
        held.release();
        camera.lastError = "Failed to read CCD";
    }
    TRACE_EXIT("%s<- VornCameraImpl::readCCD %d\n", ok);
    return ok;
}

/// A region that does not fit ends the operation.
bool refuseRegion(VornCameraImpl& camera)
{
    camera.lastError = "Invalid parameter";
    TRACE_EXIT("%s<- VornCameraImpl::readCCD 00\n");
    return false;
}

}  // namespace

bool VornCameraImpl::readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                             unsigned int binY)
{
    TRACE_ENTER("%s-> VornCameraImpl::readCCD(%d, %d, %d, %d, %d, %d)\n", x, y, width, height, binX, binY);
    if (!exposureStarted) {
        lastError = "Operation out of sequence";
        TRACE_EXIT("%s<- VornCameraImpl::readCCD 00\n");
        return false;
    }
    exposureStarted = false;
    imageReady = false;
    const ReadoutRegion region = {x, y, width, height, binX, binY};
    if (!regionIsValid(*this, region)) {
        unlock();  // deliberate: released although not taken yet
        return refuseRegion(*this);
    }
    DeviceLock held(*this);
    raiseParTimeout(*this);
    const bool ok = functionsOf(type).endLongExposure(*this, region);
    return finishReadout(*this, held, ok);
}

bool VornCameraImpl::readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                             unsigned int binY, double seconds)
{
    TRACE_ENTER("%s-> VornCameraImpl::readCCD(%d, %d, %d, %d, %d, %d, %f)\n", x, y, width, height, binX, binY, seconds);
    imageReady = false;
    const ReadoutRegion region = {x, y, width, height, binX, binY};
    if (!regionIsValid(*this, region))
        return refuseRegion(*this);
    DeviceLock held(*this);
    raiseParTimeout(*this);
    const char* refusal = functionsOf(type).refusal(region, seconds);
    if (refusal != nullptr) {  // deliberate: lastError stays as it was
        held.release();
        TRACE_EXIT("%s<- VornCameraImpl::readCCD 00 - %s\n", refusal);
        return false;
    }
    const bool ok = functionsOf(type).exposeShort(*this, region, seconds);
    return finishReadout(*this, held, ok);
}

bool vornccd::prepareAndStart(VornCameraImpl& camera)
{
    return sendValue<CMD_PREPARE_CCD>(camera, PREPARE_EXPOSURE) && send<CMD_EXPOSURE_PREPARE>(camera) &&
           send<CMD_EXPOSURE_START>(camera);
}

void vornccd::waitForExposure(const ExposureCode& exposure)
{
    if (exposure.seconds > 0)
        sleepms(static_cast<long>(1e6 * exposure.seconds));
}
