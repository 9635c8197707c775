// SPDX-License-Identifier: MIT
// QUICKER cameras: fast readout. They know no commands; exposures are made by writing registers over SPI.
#include "exposure/exposure_code.h"
#include "exposure/image_transfer.h"
#include "exposure/readout.h"
#include "exposure/stopwatch.h"
#include "family.h"
#include "lifecycle/bring_up.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/heap_bytes.h"
#include "transport/pause.h"
#include "transport/quicker_registers.h"
#include "transport/wire.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace vornccd {

namespace {

constexpr unsigned CONNECTED_PAR_TIMEOUT_MS = 2000;
constexpr long SETTLE_US = 200000;
constexpr long READING_OUT_PAUSE_US = 5000;

// The product ids of the cameras that answer a ping
constexpr uint32_t PINGED_PRODUCT_IDS[] = {0xDF2E, 0xDF2F};

// ---- opening ------------------------------------------------------------------------------------------------------

void connect(StepRunner& steps)
{
    setUpLines(steps);
    steps.run(&VornCameraImpl::setIOState, LINE_RESET, 1U);
    steps.run(&VornCameraImpl::setIOState, LINE_RESET, 0U);
    steps.run(&VornCameraImpl::setIOState, LINE_ADC_SELECT, 1U);
    steps.run(&VornCameraImpl::ping);
    steps.run(&VornCameraImpl::setParTimeout, CONNECTED_PAR_TIMEOUT_MS);
    sleepms(SETTLE_US);  // after a failure too
}

void storeDescription(VornCameraImpl& camera, const QuickerDescription& description)
{
    camera.versionMajor = description.versionMajor;
    camera.versionMinor = description.versionMinor;
    camera.hasGuidePort = (description.flags & QUICKER_HAS_GUIDE_PORT) != 0;
    camera.pcCds = (description.flags & QUICKER_PC_CDS) != 0;
    camera.hasShutter = false;
    camera.has8BitMode = false;
    camera.hasFilterWheel = false;
    camera.hasGPIO = false;
    camera.tempSensorCount = 0;
    camera.cooler = COOLER_NONE;
    camera.pixelCountX = description.pixelCountX;
    camera.pixelCountY = description.pixelCountY;
    camera.pixelSizeX = description.pixelWidth / 10.0;
    camera.pixelSizeY = description.pixelHeight / 10.0;
    camera.maxBinX = description.maxBinX;
    camera.maxBinY = description.maxBinY;
    camera.prechargeOffset = description.prechargeOffset;
}

void traceDescription(const VornCameraImpl& camera, const QuickerDescription& description)
{
    const unsigned flags = description.flags;
    TRACE_DETAIL("%s    version: %d.%d\n", camera.versionMajor, camera.versionMinor);
    TRACE_DETAIL("%s    model: %s\n", description.model.data());
    TRACE_DETAIL("%s    manufacturer: %s\n", description.manufacturer.data());
    TRACE_DETAIL("%s    flags: 0x%0x %s%s%s\n", flags, flagName(flags, QUICKER_HAS_GUIDE_PORT, " HAS_GUIDE_PORT"),
                 flagName(flags, QUICKER_NO_FAST_USB, " NO_FAST_USB"), flagName(flags, QUICKER_PC_CDS, " PC_CDS"));
    TRACE_DETAIL("%s    pixel count: %d x %d\n", camera.pixelCountX, camera.pixelCountY);
    TRACE_DETAIL("%s    pixel size: %3.1f x %3.1f\n", camera.pixelSizeX, camera.pixelSizeY);
    TRACE_DETAIL("%s    max bin: %d x %d\n", camera.maxBinX, camera.maxBinY);
    TRACE_DETAIL("%s    precharge offset: %d\n", camera.prechargeOffset);
}

bool readDescription(VornCameraImpl& camera)
{
    std::array<uint8_t, QUICKER_DESCRIPTION_LENGTH> bytes = {};
    if (!camera.eepRead(EEPROM_DESCRIPTION, bytes.data(), bytes.size()))
        return false;
    const QuickerDescription description = decodeQuickerDescription(bytes);
    storeDescription(camera, description);
    traceDescription(camera, description);
    return true;
}

void identify(StepRunner& steps, uint32_t /*productId*/)
{
    steps.run(readDescription);
    steps.run(readSerialNumber);
    traceSerialNumber(steps.camera);  // after a failure too
    steps.run(&VornCameraImpl::setADC);
}

bool ping(VornCameraImpl& camera)
{
    uint8_t bytes[EEPROM_NUMBER_LENGTH] = {};
    (void)camera.eepRead(EEPROM_PRODUCT_ID, bytes, sizeof bytes);  // deliberate: only the value counts
    const uint32_t productId = unpack(bytes, EEPROM_NUMBER);
    if (std::find(std::begin(PINGED_PRODUCT_IDS), std::end(PINGED_PRODUCT_IDS), productId) ==
        std::end(PINGED_PRODUCT_IDS))
        return false;
    TRACE_DETAIL("%s    ping ok\n");
    return true;
}

// ---- exposure -----------------------------------------------------------------------------------------------------

/// Writes what exposures do to the control register; the guide relays in it stay as they are.
bool writeControl(VornCameraImpl& camera, unsigned control)
{
    return camera.spiWrite(QUICKER_CONTROL, camera.guideRelayState | control);
}

/// Always written twice; the results do not count.
void writeBinning(VornCameraImpl& camera, const ReadoutRegion& region)
{
    const unsigned binning = (region.binY - 1) << 8 | (region.binX - 1) << 4;
    (void)camera.spiWrite(QUICKER_BINNING, binning);
    (void)camera.spiWrite(QUICKER_BINNING, binning);
}

/// Clears the sensor, then lets it collect light. Only the second pair of writes decides.
bool startExposure(VornCameraImpl& camera)
{
    if (writeControl(camera, camera.ampRequested ? QUICKER_CLEAR_AMP : QUICKER_CLEAR))
        (void)camera.spiWrite(QUICKER_DURATION, QUICKER_DURATION_NONE);
    sleepms(static_cast<long>(camera.quickerStartExposureDelay));
    return writeControl(camera, QUICKER_EXPOSE) && camera.spiWrite(QUICKER_DURATION, QUICKER_DURATION_NONE);
}

int64_t readoutLead(const VornCameraImpl& camera)
{
    return camera.quickerReadCCDDelay;
}

bool endLongExposure(VornCameraImpl& camera, const ReadoutRegion& region)
{
    const Stopwatch stopwatch;
    writeBinning(camera, region);
    const bool ended = writeControl(camera, QUICKER_END_AND_READ);
    if (!camera.ampRequested)
        sleepms(static_cast<long>(camera.quickerReadCCDDelay));
    const bool ok = ended && camera.spiWrite(QUICKER_DURATION, QUICKER_DURATION_READ);
    camera.readoutRegion = region;
    TRACE_DETAIL("%s    elapsed %g s\n", stopwatch.elapsedSeconds());
    return ok;
}

bool exposeShort(VornCameraImpl& camera, const ReadoutRegion& region, double seconds)
{
    writeBinning(camera, region);
    const ExposureCode exposure = quickerExposureCode(seconds);
    TRACE_DETAIL("%s    expCode %d\n", exposure.code);
    const bool ok = writeControl(camera, QUICKER_TIMED_AND_READ) &&
                    camera.spiWrite(QUICKER_DURATION, static_cast<unsigned>(exposure.code));
    camera.readoutRegion = region;
    waitForExposure(exposure);
    return ok;
}

// ---- image --------------------------------------------------------------------------------------------------------

/// Waits while the sensor is read out.
void waitForReadout(VornCameraImpl& camera)
{
    unsigned readingOut = 0;
    (void)camera.getIOState(LINE_READING_OUT, &readingOut);
    while (readingOut == 1) {
        readingOut = 0;  // a request that fails leaves it alone: an unplugged camera must end the wait
        (void)camera.getIOState(LINE_READING_OUT, &readingOut);
        sleepms(READING_OUT_PAUSE_US);
    }
}

void traceCopy(const FrameWindow& window)
{
    TRACE_DETAIL("%s    copying buffer with precharge substraction %d x %d to %d, %d - %d, %d\n",
                 static_cast<unsigned>(window.frameWidth), static_cast<unsigned>(window.frameHeight),
                 static_cast<unsigned>(window.x), static_cast<unsigned>(window.y), static_cast<unsigned>(window.width),
                 static_cast<unsigned>(window.height));
}

/// Reads the whole frame and copies the window. What was received is copied also after a failure.
bool receiveFrame(VornCameraImpl& camera, const FrameWindow& window, uint16_t* buffer)
{
    // The counts come from the camera: two 32-bit numbers, so their product fits, the bytes may not.
    const uint64_t frameCount = window.frameWidth * window.frameHeight;
    const uint64_t samplesPerPixel = camera.pcCds ? 2 : 1;
    if (!transferable(frameCount) || !transferable(frameCount * samplesPerPixel * sizeof(uint16_t)))
        return false;
    const uint64_t sampleCount = frameCount * samplesPerPixel;
    const HeapBytes bytes = zeroedBytes(sampleCount * sizeof(uint16_t));
    if (!bytes)
        return false;
    const bool ok = camera.parIn(bytes.get(), static_cast<unsigned>(sampleCount * sizeof(uint16_t)));
    const std::span samples(reinterpret_cast<uint16_t*>(bytes.get()), static_cast<size_t>(sampleCount));
    littleEndianToHost(samples);
    if (camera.pcCds)
        subtractPrecharge(samples, window, camera.prechargeOffset, buffer);
    else
        cropRows(samples, window, buffer, window.height);  // deliberate: rows are as far apart as the region is high
    return ok;
}

/// Takes the frame after one dummy word.
bool receiveImage(VornCameraImpl& camera, uint16_t* buffer, uint32_t /*pixels*/)
{
    waitForReadout(camera);
    uint8_t dummy[2];
    if (!camera.parIn(dummy, sizeof dummy)) {
        TRACE_DETAIL("%s    failed to read dummy word\n");
        return false;
    }
    const FrameWindow window = transferredWindow(camera);
    if (camera.pcCds)
        traceCopy(window);
    return receiveFrame(camera, window, buffer);
}

// ---- accessories --------------------------------------------------------------------------------------------------

/// The state is kept: exposures write the same register and must not end a pulse. deliberate: both bits of a pair pass.
bool setGuideRelays(VornCameraImpl& camera, unsigned relayMask)
{
    camera.guideRelayState = static_cast<uint16_t>(relayMask & QUICKER_RELAYS);
    return camera.spiWrite(QUICKER_CONTROL, camera.guideRelayState);
}

}  // namespace

constexpr FamilyFunctions QUICKER_FUNCTIONS = {
    .connect = connect,
    .identify = identify,
    .ping = ping,
    .startExposure = startExposure,
    .readoutLead = readoutLead,
    .endLongExposure = endLongExposure,
    .exposeShort = exposeShort,
    .receiveImage = receiveImage,
    .setGuideRelays = setGuideRelays,
};

}  // namespace vornccd
