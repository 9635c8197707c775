// SPDX-License-Identifier: MIT
// IIDC cameras: no bridge and no commands, but registers that control transfers read and write. A register transfer
// that fails is not noticed; the frame arrives on an endpoint of its own when the camera has it.
#include "exposure/image_transfer.h"
#include "exposure/stopwatch.h"
#include "family.h"
#include "lifecycle/step_runner.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/heap_bytes.h"
#include "transport/iidc_registers.h"
#include "transport/pause.h"
#include "transport/saturate.h"

namespace vornccd {

namespace {

// ---- opening ------------------------------------------------------------------------------------------------------

constexpr long RESET_PAUSE_US = 1000;  // deliberate: one millisecond
constexpr float BRIGHTNESS = 2.0F;
constexpr float GAMMA = 1.0F;
constexpr float GAIN = 1.0F;

// The sensor, which no register describes
constexpr uint32_t SENSOR_WIDTH = 1280;
constexpr uint32_t SENSOR_HEIGHT = 960;
constexpr double PIXEL_SIZE_UM = 3.75;
constexpr uint32_t MAX_BINNING = 2;

void reset(VornCameraImpl& camera)
{
    camera.writeRegister(IIDC_RESET, IIDC_TRIGGER);
    sleepms(RESET_PAUSE_US);
}

void setFeatures(VornCameraImpl& camera)
{
    camera.writeRegister(IIDC_SHUTTER, IIDC_FEATURE_ABSOLUTE);
    camera.writeRegister(IIDC_FRAME_RATE, IIDC_FEATURE_ABSOLUTE);
    camera.writeRegister(IIDC_AUTO_EXPOSURE, IIDC_FEATURE_OFF);
    camera.writeRegister(IIDC_BRIGHTNESS, IIDC_FEATURE_ABSOLUTE);
    camera.writeAbsValue(IIDC_ABS_BRIGHTNESS, BRIGHTNESS);
    camera.writeRegister(IIDC_GAMMA, IIDC_FEATURE_ABSOLUTE);
    camera.writeAbsValue(IIDC_ABS_GAMMA, GAMMA);
    camera.writeRegister(IIDC_GAIN, IIDC_FEATURE_ABSOLUTE);
    camera.writeAbsValue(IIDC_ABS_GAIN, GAIN);
    TRACE_DETAIL("%s    initialized\n");
}

/// Read for the trace alone.
void traceBoard(VornCameraImpl& camera)
{
    if (!tracing())
        return;
    const uint32_t board = camera.readRegister(IIDC_BOARD);
    TRACE_DETAIL("%s    board:    0x%x (0x%08x)\n", board >> 20 & 0xFF, board);
}

void readVersion(VornCameraImpl& camera)
{
    const uint32_t version = camera.readRegister(IIDC_VERSION);
    camera.versionMajor = version >> 24;
    camera.versionMinor = version >> 16 & 0xFF;
    TRACE_DETAIL("%s    version:  %d.%d rev %d (0x%08x)\n", camera.versionMajor, camera.versionMinor, version & 0xFFF,
                 version);
}

void readSerialNumber(VornCameraImpl& camera)
{
    camera.serialNumber = camera.readRegister(IIDC_SERIAL);
    TRACE_DETAIL("%s    serial:   %d\n", camera.serialNumber);
}

/// Read for the trace alone.
void traceUpTime(VornCameraImpl& camera)
{
    if (!tracing())
        return;
    const uint32_t seconds = camera.readRegister(IIDC_UP_TIME) & ~IIDC_UP_TIME_FLAG;
    TRACE_DETAIL("%s    up time:  %d min %d s\n", seconds / 60, seconds % 60);
}

void storeSensor(VornCameraImpl& camera)
{
    camera.hasShutter = false;
    camera.hasGuidePort = false;
    camera.has8BitMode = false;
    camera.hasFilterWheel = false;
    camera.hasGPIO = false;
    camera.tempSensorCount = 0;
    camera.cooler = COOLER_NONE;
    camera.pixelCountX = SENSOR_WIDTH;
    camera.pixelCountY = SENSOR_HEIGHT;
    camera.pixelSizeX = PIXEL_SIZE_UM;
    camera.pixelSizeY = PIXEL_SIZE_UM;
    camera.maxBinX = MAX_BINNING;
    camera.maxBinY = MAX_BINNING;
}

/// Nothing here can fail; a camera whose interface is not ours is left alone.
void identify(StepRunner& steps, uint32_t /*productId*/)
{
    steps.run(reset);
    steps.run(setFeatures);
    steps.run(traceBoard);
    steps.run(readVersion);
    steps.run(readSerialNumber);
    steps.run(traceUpTime);
    steps.run(storeSensor);
}

/// Ends the process: asking this family is a fault of the caller's.
bool ping(VornCameraImpl& /*camera*/)
{
    assertionFailed("Assertion failed (%s, %d)\n", 842);
}

// ---- exposure -----------------------------------------------------------------------------------------------------

// Longest shutter time in seconds at 15, 7.5, 3.75 and 1.875 frames per second.
constexpr double MAX_SHUTTER_S[] = {0.066657, 0.133282, 0.266282, 0.532782};
constexpr double LONGEST_SHUTTER_S = MAX_SHUTTER_S[3];
constexpr float FASTEST_RATE = 15.0F;

struct VideoMode {
    uint32_t format;
    uint32_t mode;
};
constexpr VideoMode MODE_BIN_1 = {0x40000000, 0x40000000};
constexpr VideoMode MODE_BIN_2 = {0x00000000, 0xA0000000};

void traceNoLongExposures()
{
    TRACE_DETAIL("%s    long exposures are unsupported with VORN XR\n");
}

bool startExposure(VornCameraImpl& /*camera*/)
{
    traceNoLongExposures();
    return false;
}

bool endLongExposure(VornCameraImpl& /*camera*/, const ReadoutRegion& /*region*/)
{
    traceNoLongExposures();
    return false;
}

const char* refusal(const ReadoutRegion& region, double seconds)
{
    if (region.binX != region.binY)
        return "unsupported binning";
    if (seconds > LONGEST_SHUTTER_S)
        return "too long exposure";
    return nullptr;
}

void setShutterTime(VornCameraImpl& camera, double seconds)
{
    // deliberate: a request of exactly the longest shutter time is not refused but finds no rate here, so the camera
    // keeps the rate and shutter it had.
    float rate = FASTEST_RATE;
    for (const double longest : MAX_SHUTTER_S) {
        if (longest > seconds) {
            camera.writeAbsValue(IIDC_ABS_FRAME_RATE, rate);
            camera.writeAbsValue(IIDC_ABS_SHUTTER, toSingle(seconds));
            break;
        }
        rate /= 2;
    }
}

/// At any other binning the video mode stays as it was.
void setVideoMode(VornCameraImpl& camera, uint32_t binning)
{
    if (binning != 1 && binning != 2)
        return;
    const VideoMode& video = binning == 1 ? MODE_BIN_1 : MODE_BIN_2;
    camera.writeRegister(IIDC_VIDEO_FORMAT, video.format);
    camera.writeRegister(IIDC_VIDEO_MODE, video.mode);
}

/// What the camera made of the settings, read for the trace alone.
void traceReadBack(VornCameraImpl& camera)
{
    if (!tracing())
        return;
    TRACE_DETAIL("%s    format:     %08x\n", camera.readRegister(IIDC_VIDEO_FORMAT));
    TRACE_DETAIL("%s    mode:       %08x\n", camera.readRegister(IIDC_VIDEO_MODE));
    TRACE_DETAIL("%s    error:      %08x\n", camera.readRegister(IIDC_ERROR));
    TRACE_DETAIL("%s    framerate:  %g\n", static_cast<double>(camera.readAbsValue(IIDC_ABS_FRAME_RATE)));
    TRACE_DETAIL("%s    shutter:    %g\n", static_cast<double>(camera.readAbsValue(IIDC_ABS_SHUTTER)));
    TRACE_DETAIL("%s    gain:       %g\n", static_cast<double>(camera.readAbsValue(IIDC_ABS_GAIN)));
    TRACE_DETAIL("%s    brightness: %g\n", static_cast<double>(camera.readAbsValue(IIDC_ABS_BRIGHTNESS)));
    TRACE_DETAIL("%s    gama:       %g\n", static_cast<double>(camera.readAbsValue(IIDC_ABS_GAMMA)));
}

bool exposeShort(VornCameraImpl& camera, const ReadoutRegion& region, double seconds)
{
    setShutterTime(camera, seconds);
    setVideoMode(camera, region.binX);
    camera.writeRegister(IIDC_ONE_SHOT, IIDC_TRIGGER);
    traceReadBack(camera);
    camera.readoutRegion = region;
    return true;
}

/// Takes the whole frame of bytes and crops it; after a failure the caller's buffer stays as it was.
bool receiveImage(VornCameraImpl& camera, uint16_t* buffer, uint32_t /*pixels*/)
{
    const FrameWindow window = transferredWindow(camera);
    const uint64_t frameCount = window.frameWidth * window.frameHeight;
    if (!transferable(frameCount))
        return false;
    const HeapBytes frame = uninitialisedBytes(frameCount);
    if (!frame)
        return false;
    const Stopwatch stopwatch;
    const bool ok = camera.bulkRead(EP_IIDC_IN, static_cast<unsigned>(frameCount), frame.get());
    TRACE_DETAIL("%s    elapsed %g s\n", stopwatch.elapsedSeconds());
    if (ok)
        cropToHighBytes({frame.get(), static_cast<size_t>(frameCount)}, window, buffer);
    return ok;
}

// ---- accessories --------------------------------------------------------------------------------------------------

constexpr uint32_t TEMPERATURE_BITS = 0xFFF;

/// deliberate: a failed register read gives 0, hence -273.15 degrees and success.
bool readTemperature(VornCameraImpl& camera, unsigned /*sensor*/, float* celsius)
{
    const uint32_t tenthsKelvin = camera.readRegister(IIDC_TEMPERATURE) & TEMPERATURE_BITS;
    const auto current = static_cast<float>(tenthsKelvin / 10.0 - 273.15);
    if (celsius != nullptr)
        *celsius = current;
    TRACE_DETAIL("%s    current temperature: %4.1f\n", static_cast<double>(current));
    return true;
}

}  // namespace

constexpr FamilyFunctions IIDC_FUNCTIONS = {
    .identify = identify,
    .ping = ping,
    .startExposure = startExposure,
    .endLongExposure = endLongExposure,
    .refusal = refusal,
    .exposeShort = exposeShort,
    .receiveImage = receiveImage,
    .readTemperature = readTemperature,
};

}  // namespace vornccd
