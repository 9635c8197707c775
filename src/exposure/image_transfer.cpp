// SPDX-License-Identifier: MIT
#include "exposure/pixel_kernels.h"
#include "exposure/stopwatch.h"
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/heap_bytes.h"
#include "transport/pause.h"
#include "transport/wire.h"

#include <limits>

using namespace vornccd;

namespace {

constexpr unsigned USUAL_TIMEOUT_MS = 1000;
constexpr unsigned LINE_READING_OUT = 4;  // QUICKER: 1 while the sensor is read out
constexpr long READING_OUT_PAUSE_US = 5000;

/// The remembered region against the whole binned frame, which these families always transfer.
FrameWindow windowOf(const ReadoutRegion& region, uint32_t pixelCountX, uint32_t pixelCountY)
{
    return {pixelCountX / region.binX, pixelCountY / region.binY,  region.x / region.binX,
            region.y / region.binY,    region.width / region.binX, region.height / region.binY};
}

/// What the bridge and libusb can name in 32 bits, trailing byte included.
bool transferable(uint64_t length)
{
    return length < std::numeric_limits<uint32_t>::max();
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
    bool ok = false;
    switch (type) {
        case QUICKER:
            ok = transferQuicker(buffer);
            break;
        case CLASSIC:
        case STANDARD:
            ok = transferWords(buffer, pixels);
            break;
        case ADVANCED:
            ok = transferAdvanced(buffer, pixels);
            break;
        case IIDC:
            ok = transferIidc(buffer);
            break;
    }
    if (type == QUICKER || type == STANDARD) {
        if (!setParTimeout(USUAL_TIMEOUT_MS))
            TRACE_DETAIL("%s    set timeout 1000 failed\n");
    }
    unlock();  // taken by readCCD
    if (!ok)
        lastError = "Failed to get image";
    TRACE_EXIT("%s<- VornCameraImpl::getImage %d %s\n", ok, _d(buffer, pixels));
    return ok;
}

/// Reads @p length bytes straight into the caller's buffer.
bool VornCameraImpl::transferPlain(uint16_t* buffer, uint64_t length)
{
    const Stopwatch stopwatch;
    const bool ok = transferable(length) && parIn(reinterpret_cast<uint8_t*>(buffer), static_cast<unsigned>(length));
    TRACE_DETAIL("%s    elapsed %g s\n", stopwatch.elapsedSeconds());
    return ok;
}

/// Reads @p pixels values into the caller's buffer. More than a transfer can name are not even looked at.
bool VornCameraImpl::transferWords(uint16_t* buffer, uint32_t pixels)
{
    const uint64_t length = uint64_t{pixels} * sizeof *buffer;
    const bool ok = transferPlain(buffer, length);
    if (transferable(length))
        littleEndianToHost({buffer, pixels});
    return ok;
}

/// The camera sends two values before the image. What was received is moved also after a failure.
bool VornCameraImpl::transferAdvanced(uint16_t* buffer, uint32_t pixels)
{
    if (pixels == 0)
        return false;
    bool ok = false;
    if (eightBitMode) {
        ok = transferPlain(buffer, pixels);
        widenInPlace(buffer, pixels);
    } else {
        ok = transferWords(buffer, pixels);
    }
    dropLeadingValues(buffer, pixels);
    return ok;
}

/// Waits for the end of the readout, then takes the whole frame behind one dummy word. What was received is copied also
/// after a failure.
bool VornCameraImpl::transferQuicker(uint16_t* buffer)
{
    unsigned readingOut = 0;
    (void)getIOState(LINE_READING_OUT, &readingOut);
    while (readingOut == 1) {
        readingOut = 0;  // a request that fails leaves it alone: an unplugged camera must end the wait
        (void)getIOState(LINE_READING_OUT, &readingOut);
        sleepms(READING_OUT_PAUSE_US);
    }
    uint8_t dummy[2];
    if (!parIn(dummy, sizeof dummy)) {
        TRACE_DETAIL("%s    failed to read dummy word\n");
        return false;
    }

    const FrameWindow window = windowOf(readoutRegion, pixelCountX, pixelCountY);
    if (pcCds)
        TRACE_DETAIL("%s    copying buffer with precharge substraction %d x %d to %d, %d - %d, %d\n",
                     static_cast<unsigned>(window.frameWidth), static_cast<unsigned>(window.frameHeight),
                     static_cast<unsigned>(window.x), static_cast<unsigned>(window.y),
                     static_cast<unsigned>(window.width), static_cast<unsigned>(window.height));
    // The counts come from the camera: two 32-bit numbers, so their product fits, the bytes may not.
    const uint64_t frameCount = window.frameWidth * window.frameHeight;
    const uint64_t samplesPerPixel = pcCds ? 2 : 1;
    if (!transferable(frameCount) || !transferable(frameCount * samplesPerPixel * sizeof(uint16_t)))
        return false;
    const uint64_t sampleCount = frameCount * samplesPerPixel;
    HeapBytes bytes = zeroedBytes(sampleCount * sizeof(uint16_t));
    if (!bytes)
        return false;
    const bool ok = parIn(bytes.get(), static_cast<unsigned>(sampleCount * sizeof(uint16_t)));
    const std::span samples(reinterpret_cast<uint16_t*>(bytes.get()), static_cast<size_t>(sampleCount));
    littleEndianToHost(samples);
    if (pcCds)
        subtractPrecharge(samples, window, prechargeOffset, buffer);
    else
        cropRows(samples, window, buffer, window.height);  // deliberate: rows are as far apart as the region is high
    return ok;
}

/// Takes the whole frame of bytes and crops it; after a failure the caller's buffer stays as it was.
bool VornCameraImpl::transferIidc(uint16_t* buffer)
{
    const FrameWindow window = windowOf(readoutRegion, pixelCountX, pixelCountY);
    const uint64_t frameCount = window.frameWidth * window.frameHeight;
    if (!transferable(frameCount))
        return false;
    HeapBytes frame = uninitialisedBytes(frameCount);
    if (!frame)
        return false;
    const Stopwatch stopwatch;
    const bool ok = bulkRead(EP_IIDC_IN, static_cast<unsigned>(frameCount), frame.get());
    TRACE_DETAIL("%s    elapsed %g s\n", stopwatch.elapsedSeconds());
    if (ok)
        cropToHighBytes({frame.get(), static_cast<size_t>(frameCount)}, window, buffer);
    return ok;
}
