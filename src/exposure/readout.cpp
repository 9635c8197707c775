// SPDX-License-Identifier: MIT
#include "exposure/exposure_code.h"
#include "exposure/readout_payload.h"
#include "exposure/stopwatch.h"
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr unsigned READOUT_TIMEOUT_MS = 30000;
constexpr long CLASSIC_SETTLE_US = 2000000;

// SPI registers of QUICKER cameras; register 2 carries the guide relays in its low bits
constexpr unsigned REGISTER_CONTROL = 2;
constexpr unsigned REGISTER_DURATION = 5;
constexpr unsigned REGISTER_BINNING = 8;
constexpr unsigned CONTROL_END_AND_READ = 0x4A0;
constexpr unsigned CONTROL_TIMED_AND_READ = 0x7A0;
constexpr unsigned DURATION_READ = 1000;

/// The host is held until the exposure is over, whether or not the camera took the command.
void waitForExposure(const ExposureCode& exposure)
{
    if (exposure.seconds > 0)
        sleepms(static_cast<long>(1e6 * exposure.seconds));
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
    const ReadoutRegion region = {x, y, width, height, binX, binY};
    if (!beginReadout(region, true))
        return false;
    bool ok = false;
    switch (type) {
        case QUICKER:
            ok = endLongExposureQuicker(region);
            break;
        case STANDARD:
            ok = endLongExposureStandard(region);
            break;
        case CLASSIC:
            ok = endLongExposureClassic(region);
            break;
        case ADVANCED:
            ok = endLongExposureAdvanced(region);
            break;
        case IIDC:
            TRACE_DETAIL("%s    long exposures are unsupported with VORN XR\n");
            break;
    }
    return finishReadout(ok);
}

bool VornCameraImpl::readCCD(unsigned int x, unsigned int y, unsigned int width, unsigned int height, unsigned int binX,
                             unsigned int binY, double seconds)
{
    TRACE_ENTER("%s-> VornCameraImpl::readCCD(%d, %d, %d, %d, %d, %d, %f)\n", x, y, width, height, binX, binY, seconds);
    const ReadoutRegion region = {x, y, width, height, binX, binY};
    if (!beginReadout(region, false))
        return false;
    bool ok = false;
    switch (type) {
        case QUICKER:
            ok = exposeShortQuicker(region, seconds);
            break;
        case STANDARD:
            ok = exposeShortStandard(region, seconds);
            break;
        case CLASSIC:
            ok = exposeShortClassic(region, seconds);
            break;
        case ADVANCED:
            ok = exposeShortAdvanced(region, seconds);
            break;
        case IIDC: {
            const char* refusal = refusalIidc(region, seconds);
            if (refusal != nullptr) {  // deliberate: lastError stays as it was
                unlock();
                TRACE_EXIT("%s<- VornCameraImpl::readCCD 00 - %s\n", refusal);
                return false;
            }
            ok = exposeShortIidc(region, seconds);
            break;
        }
    }
    return finishReadout(ok);
}

/// Sums wrap as 32-bit numbers do. deliberate: the vertical extent too is compared with the sensor's width.
bool VornCameraImpl::regionIsValid(const ReadoutRegion& region) const
{
    return region.binX != 0 && region.binX <= maxBinX && region.binY != 0 && region.binY <= maxBinY &&
           region.x + region.width <= pixelCountX && region.y + region.height <= pixelCountX;
}

/// What both forms do before their families differ. A region that does not fit is refused; otherwise the lock is held
/// from here on, and given back by finishReadout() or, after a success, by getImage().
bool VornCameraImpl::beginReadout(const ReadoutRegion& region, bool longExposure)
{
    imageReady = false;
    if (!regionIsValid(region)) {
        if (longExposure)
            unlock();  // deliberate: released although not taken yet
        lastError = "Invalid parameter";
        TRACE_EXIT("%s<- VornCameraImpl::readCCD 00\n");
        return false;
    }
    lock();
    raiseParTimeout();
    return true;
}

/// Readout takes longer than the bridge usually waits. A failure is only mentioned.
void VornCameraImpl::raiseParTimeout()
{
    if (type != QUICKER && type != STANDARD)
        return;
    if (!setParTimeout(READOUT_TIMEOUT_MS))
        TRACE_DETAIL("%s    set timeout 30000 failed\n");
}

/// On success the lock stays held for getImage().
bool VornCameraImpl::finishReadout(bool ok)
{
    if (ok) {
        imageReady = true;
    } else {
        unlock();
        lastError = "Failed to read CCD";
    }
    TRACE_EXIT("%s<- VornCameraImpl::readCCD %d\n", ok);
    return ok;
}

bool VornCameraImpl::sendReadout(const uint8_t* payload, unsigned length)
{
    return sendCommand(CMD_READ_CCD, payload, nullptr, length, 0);
}

/// Always written twice; the results do not count.
void VornCameraImpl::writeQuickerBinning(const ReadoutRegion& region)
{
    const unsigned binning = (region.binY - 1) << 8 | (region.binX - 1) << 4;
    (void)spiWrite(REGISTER_BINNING, binning);
    (void)spiWrite(REGISTER_BINNING, binning);
}

bool VornCameraImpl::endLongExposureQuicker(const ReadoutRegion& region)
{
    const Stopwatch stopwatch;
    writeQuickerBinning(region);
    const bool ended = spiWrite(REGISTER_CONTROL, guideRelayState | CONTROL_END_AND_READ);
    if (!ampRequested)
        sleepms(static_cast<long>(quickerReadCCDDelay));
    const bool ok = ended && spiWrite(REGISTER_DURATION, DURATION_READ);
    readoutRegion = region;
    TRACE_DETAIL("%s    elapsed %g s\n", stopwatch.elapsedSeconds());
    return ok;
}

bool VornCameraImpl::endLongExposureStandard(const ReadoutRegion& region)
{
    bool ok = sendCommand(CMD_PREPARE_CCD, uint16_t{1});
    if (ok && hasShutter)
        ok = sendCommand(CMD_SET_SHUTTER, uint16_t{0});
    if (!ok)
        return false;
    // The shutter has already kept the light out of a dark frame.
    const auto payload = standardReadoutPayload(region, {}, previewMode, false);
    return sendReadout(payload.data(), payload.size());
}

bool VornCameraImpl::endLongExposureClassic(const ReadoutRegion& region)
{
    if (!sendCommand(CMD_READ_CCD_DEFAULT))
        return false;
    sleepms(CLASSIC_SETTLE_US);
    if (!sendCommand(CMD_PREPARE_CCD, uint16_t{1}))
        return false;
    const auto payload = classicReadoutPayload(region, {}, previewMode);
    return sendReadout(payload.data(), payload.size());
}

bool VornCameraImpl::endLongExposureAdvanced(const ReadoutRegion& region)
{
    const auto payload = advancedReadoutPayload(region, {}, previewMode, eightBitMode, ADVANCED_MODE_LONG);
    return sendReadout(payload.data(), payload.size());
}

bool VornCameraImpl::exposeShortQuicker(const ReadoutRegion& region, double seconds)
{
    writeQuickerBinning(region);
    const ExposureCode exposure = quickerExposureCode(seconds);
    TRACE_DETAIL("%s    expCode %d\n", exposure.code);
    const bool ok = spiWrite(REGISTER_CONTROL, guideRelayState | CONTROL_TIMED_AND_READ) &&
                    spiWrite(REGISTER_DURATION, static_cast<unsigned>(exposure.code));
    readoutRegion = region;
    waitForExposure(exposure);
    return ok;
}

bool VornCameraImpl::exposeShortStandard(const ReadoutRegion& region, double seconds)
{
    if (!prepareAndStart())
        return false;
    const ExposureCode exposure = standardExposureCode(seconds);
    const auto payload = standardReadoutPayload(region, exposure, previewMode, darkFrameMode);
    const bool ok = sendReadout(payload.data(), payload.size());
    waitForExposure(exposure);
    return ok;
}

bool VornCameraImpl::exposeShortClassic(const ReadoutRegion& region, double seconds)
{
    const ExposureCode exposure = classicExposureCode(seconds);
    const auto payload = classicReadoutPayload(region, exposure, previewMode);
    const bool ok = sendReadout(payload.data(), payload.size());
    waitForExposure(exposure);
    return ok;
}

bool VornCameraImpl::exposeShortAdvanced(const ReadoutRegion& region, double seconds)
{
    const ExposureCode exposure = standardExposureCode(seconds);
    TRACE_DETAIL("%s    exp code, ms, delay: %d, %d, %g\n", exposure.code, exposure.microseconds, exposure.seconds);
    const auto payload = advancedReadoutPayload(region, exposure, previewMode, eightBitMode, ADVANCED_MODE_SHORT);
    const bool ok = sendReadout(payload.data(), payload.size());
    waitForExposure(exposure);
    return ok;
}
