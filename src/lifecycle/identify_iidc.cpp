// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/iidc_registers.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr long RESET_PAUSE_US = 1000;  // deliberate: one millisecond
constexpr uint32_t FEATURE_ABSOLUTE = 0xC2000000;
constexpr uint32_t FEATURE_OFF = 0xC0000000;
constexpr uint32_t UP_TIME_FLAG = 1U << 28;

}  // namespace

/// Registers give no results, so nothing here can fail; a camera whose interface is not ours is left alone.
bool VornCameraImpl::identifyIidc(bool ok)
{
    if (!ok)
        return false;
    writeRegister(IIDC_RESET, 0x80000000);
    sleepms(RESET_PAUSE_US);
    writeRegister(IIDC_SHUTTER, FEATURE_ABSOLUTE);
    writeRegister(IIDC_FRAME_RATE, FEATURE_ABSOLUTE);
    writeRegister(IIDC_AUTO_EXPOSURE, FEATURE_OFF);
    writeRegister(IIDC_BRIGHTNESS, FEATURE_ABSOLUTE);
    writeAbsValue(IIDC_ABS_BRIGHTNESS, 2.0F);
    writeRegister(IIDC_GAMMA, FEATURE_ABSOLUTE);
    writeAbsValue(IIDC_ABS_GAMMA, 1.0F);
    writeRegister(IIDC_GAIN, FEATURE_ABSOLUTE);
    writeAbsValue(IIDC_ABS_GAIN, 1.0F);
    TRACE_DETAIL("%s    initialized\n");

    if (tracing()) {
        const uint32_t board = readRegister(IIDC_BOARD);
        TRACE_DETAIL("%s    board:    0x%x (0x%08x)\n", board >> 20 & 0xFF, board);
    }
    const uint32_t version = readRegister(IIDC_VERSION);
    versionMajor = version >> 24;
    versionMinor = version >> 16 & 0xFF;
    TRACE_DETAIL("%s    version:  %d.%d rev %d (0x%08x)\n", versionMajor, versionMinor, version & 0xFFF, version);
    serialNumber = readRegister(IIDC_SERIAL);
    TRACE_DETAIL("%s    serial:   %d\n", serialNumber);
    if (tracing()) {
        const uint32_t seconds = readRegister(IIDC_UP_TIME) & ~UP_TIME_FLAG;
        TRACE_DETAIL("%s    up time:  %d min %d s\n", seconds / 60, seconds % 60);
    }

    hasShutter = false;
    hasGuidePort = false;
    has8BitMode = false;
    hasFilterWheel = false;
    hasGPIO = false;
    tempSensorCount = 0;
    cooler = COOLER_NONE;
    pixelCountX = 1280;
    pixelCountY = 960;
    pixelSizeX = 3.75;
    pixelSizeY = 3.75;
    maxBinX = 2;
    maxBinY = 2;
    return true;
}
