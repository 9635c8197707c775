// SPDX-License-Identifier: MIT
// getImage(): what the families share.
#include "exposure/image_transfer.h"

#include "camera_impl.h"
#include "exposure/stopwatch.h"
#include "family.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/device_lock.h"
#include "transport/wire.h"

#include <limits>

using namespace vornccd;

namespace {

constexpr unsigned USUAL_TIMEOUT_MS = 1000;

/// The bridge waits as long as usual again. A failure is only traced.
void restoreParTimeout(VornCameraImpl& camera)
{
    if (!factsOf(camera.type).raisesParTimeout)
        return;
    if (!camera.setParTimeout(USUAL_TIMEOUT_MS))
        TRACE_DETAIL("%s    set timeout 1000 failed\n");
}

}  // namespace

bool VornCameraImpl::getImage(unsigned short* buffer, unsigned int pixels)
{
    TRACE_ENTER("%s-> VornCameraImpl::getImage(..., %u)\n", pixels);
    if (!imageReady) {
        lastError = "Operation out of sequence";
        TRACE_EXIT("%s<- VornCameraImpl::getImage 00\n");
        return false;
    }
    imageReady = false;
    DeviceLock held = DeviceLock::takeOverFromReadout(*this);
    const bool ok = functionsOf(type).receiveImage(*this, buffer, pixels);
    restoreParTimeout(*this);
    held.release();
    if (!ok)
        lastError = "Failed to get image";
    TRACE_EXIT("%s<- VornCameraImpl::getImage %d %s\n", ok, _d(buffer, pixels));
    return ok;
}

bool vornccd::transferable(uint64_t length)
{
    return length < std::numeric_limits<uint32_t>::max();
}

FrameWindow vornccd::transferredWindow(const VornCameraImpl& camera)
{
    const ReadoutRegion& region = camera.readoutRegion;
    return {camera.pixelCountX / region.binX, camera.pixelCountY / region.binY, region.x / region.binX,
            region.y / region.binY,           region.width / region.binX,       region.height / region.binY};
}

bool vornccd::receiveBytes(VornCameraImpl& camera, uint16_t* buffer, uint64_t length)
{
    const Stopwatch stopwatch;
    const bool ok =
        transferable(length) && camera.parIn(reinterpret_cast<uint8_t*>(buffer), static_cast<unsigned>(length));
    TRACE_DETAIL("%s    elapsed %g s\n", stopwatch.elapsedSeconds());
    return ok;
}

bool vornccd::receiveValues(VornCameraImpl& camera, uint16_t* buffer, uint32_t pixels)
{
    const uint64_t length = uint64_t{pixels} * sizeof *buffer;
    const bool ok = receiveBytes(camera, buffer, length);
    if (transferable(length))
        littleEndianToHost({buffer, pixels});
    return ok;
}
