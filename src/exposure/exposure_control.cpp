// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/pause.h"
#include "transport/saturate.h"

using namespace vornccd;

namespace {

constexpr long SHUTTER_SETTLE_US = 500000;
constexpr unsigned ADVANCED_PING_RETRIES = 400;
constexpr long ADVANCED_PING_PAUSE_US = 25000;
constexpr int64_t CLASSIC_READOUT_LEAD_US = 2000000;

// SPI registers of QUICKER cameras and what a long exposure writes there, besides the guide relays
constexpr unsigned REGISTER_CONTROL = 2;
constexpr unsigned REGISTER_DURATION = 5;
constexpr unsigned CONTROL_CLEAR = 0x400;
constexpr unsigned CONTROL_CLEAR_AMP = 0x420;
constexpr unsigned CONTROL_EXPOSE = 0x200;

}  // namespace

bool VornCameraImpl::startExposure(bool amp)
{
    TRACE_ENTER("%s-> VornCameraImpl::startExposure()\n");
    exposureStarted = false;
    ampRequested = amp;
    bool ok = false;
    {
        DeviceLock held(*this);
        switch (type) {
            case QUICKER:
                ok = startQuicker();
                break;
            case STANDARD:
                ok = startStandard();
                break;
            case CLASSIC:
                ok = prepareAndStart();
                break;
            case ADVANCED:
                ok = startAdvanced();
                break;
            case IIDC:
                TRACE_DETAIL("%s    long exposures are unsupported with VORN XR\n");
                break;
        }
    }
    if (ok)
        exposureStarted = true;
    else
        lastError = "Failed to start exposure";
    imageReady = false;
    TRACE_EXIT("%s<- VornCameraImpl::startExposure %d\n", ok);
    return ok;
}

/// Clears the sensor, then lets it collect. Only the second pair of writes decides.
bool VornCameraImpl::startQuicker()
{
    const unsigned clear = ampRequested ? CONTROL_CLEAR_AMP : CONTROL_CLEAR;
    if (spiWrite(REGISTER_CONTROL, guideRelayState | clear))
        (void)spiWrite(REGISTER_DURATION, 0);
    sleepms(static_cast<long>(quickerStartExposureDelay));
    return spiWrite(REGISTER_CONTROL, guideRelayState | CONTROL_EXPOSE) && spiWrite(REGISTER_DURATION, 0);
}

bool VornCameraImpl::prepareAndStart()
{
    return sendCommand(CMD_PREPARE_CCD, uint16_t{0}) && sendCommand(CMD_EXPOSURE_PREPARE) &&
           sendCommand(CMD_EXPOSURE_START);
}

bool VornCameraImpl::startStandard()
{
    if (!prepareAndStart())
        return false;
    if (!hasShutter)
        return true;
    sleepms(SHUTTER_SETTLE_US);
    return sendCommand(CMD_SET_SHUTTER, static_cast<uint16_t>(darkFrameMode ? 0 : 1));
}

/// The camera is busy clearing its sensor until it answers pings again, at most ten seconds.
bool VornCameraImpl::startAdvanced()
{
    if (!sendCommand(CMD_PREPARE_CCD, uint16_t{0}) || !sendCommand(CMD_EXPOSURE_PREPARE))
        return false;
    unsigned retries = 0;
    while (!ping()) {
        if (retries == ADVANCED_PING_RETRIES) {
            TRACE_DETAIL("%s    Waited too long for ping\n");
            return false;
        }
        sleepms(ADVANCED_PING_PAUSE_US);
        ++retries;
    }
    return sendCommand(CMD_EXPOSURE_START);
}

bool VornCameraImpl::abortExposure()
{
    TRACE_ENTER("%s-> VornCameraImpl::abortExposure()\n");
    bool ok = false;
    bool supported = true;
    {
        DeviceLock held(*this);
        switch (type) {
            case CLASSIC:
            case QUICKER:
            case IIDC:
            case ADVANCED:
                ok = true;
                break;
            case STANDARD:
                // deliberate: a failure here leaves lastError as it was.
                ok = !hasShutter || sendCommand(CMD_SET_SHUTTER, uint16_t{0});
                break;
            default:  // a type outside the enumeration
                supported = false;
                break;
        }
    }
    if (!supported)
        lastError = "Unsupported operation";
    exposureStarted = false;
    imageReady = false;
    TRACE_EXIT("%s<- VornCameraImpl::abortExposure %d\n", ok);
    return ok;
}

unsigned int VornCameraImpl::delay(double seconds)
{
    // Negative times travel as their 32-bit pattern; what is longer than 32 bits of microseconds gives the longest.
    const double us = 1e6 * seconds;
    const uint32_t requested =
        us < 0 ? static_cast<uint32_t>(saturatingTrunc<int32_t>(us)) : saturatingTrunc<uint32_t>(us);
    int64_t lead = 0;  // time that readCCD itself spends before the exposure ends
    switch (type) {
        case QUICKER:
            lead = quickerReadCCDDelay;
            break;
        case CLASSIC:
            lead = CLASSIC_READOUT_LEAD_US;
            break;
        case ADVANCED:
            lead = vregClearTime;
            break;
        case STANDARD:
        case IIDC:
            break;
    }
    return requested > lead ? static_cast<uint32_t>(requested - lead) : 0;
}

unsigned int VornCameraImpl::imageWidth(unsigned int width, unsigned int binX)
{
    if (type != ADVANCED)
        return width / binX;
    // deliberate: this family rounds the width up, but never the height; in 8-bit mode up to an even count.
    const unsigned binned = (width + binX - 1) / binX;
    return eightBitMode ? (binned + 1) & ~1U : binned;
}

unsigned int VornCameraImpl::imageHeight(unsigned int height, unsigned int binY)
{
    return height / binY;
}
