// SPDX-License-Identifier: MIT
// Capture with IIDC cameras: registers only, no wait; the frame arrives when the camera has it.
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/iidc_registers.h"
#include "transport/saturate.h"

using namespace vornccd;

namespace {

// Longest shutter time in seconds at 15, 7.5, 3.75 and 1.875 frames per second.
constexpr double maxShutter[4] = {0.066657, 0.133282, 0.266282, 0.532782};
constexpr float FASTEST_RATE = 15.0F;

struct VideoMode {
    uint32_t format;
    uint32_t mode;
};
constexpr VideoMode MODE_BIN_1 = {0x40000000, 0x40000000};
constexpr VideoMode MODE_BIN_2 = {0x00000000, 0xA0000000};

}  // namespace

/// @return why this exposure is refused, or null.
const char* VornCameraImpl::refusalIidc(const ReadoutRegion& region, double seconds) const
{
    if (region.binX != region.binY)
        return "unsupported binning";
    if (seconds > maxShutter[3])
        return "too long exposure";
    return nullptr;
}

bool VornCameraImpl::exposeShortIidc(const ReadoutRegion& region, double seconds)
{
    // deliberate: a request of exactly the longest shutter time passes the check above but finds no rate here, so the
    // camera keeps the rate and shutter it had.
    float rate = FASTEST_RATE;
    for (const double longest : maxShutter) {
        if (longest > seconds) {
            writeAbsValue(IIDC_ABS_FRAME_RATE, rate);
            writeAbsValue(IIDC_ABS_SHUTTER, toSingle(seconds));
            break;
        }
        rate /= 2;
    }
    // At any other binning the video mode stays as it was.
    if (region.binX == 1 || region.binX == 2) {
        const VideoMode& video = region.binX == 1 ? MODE_BIN_1 : MODE_BIN_2;
        writeRegister(IIDC_VIDEO_FORMAT, video.format);
        writeRegister(IIDC_VIDEO_MODE, video.mode);
    }
    writeRegister(IIDC_ONE_SHOT, 0x80000000);
    if (tracing())
        traceIidcReadBack();
    readoutRegion = region;
    return true;
}

/// What the camera made of the settings, for the trace alone.
void VornCameraImpl::traceIidcReadBack()
{
    TRACE_DETAIL("%s    format:     %08x\n", readRegister(IIDC_VIDEO_FORMAT));
    TRACE_DETAIL("%s    mode:       %08x\n", readRegister(IIDC_VIDEO_MODE));
    TRACE_DETAIL("%s    error:      %08x\n", readRegister(IIDC_ERROR));
    TRACE_DETAIL("%s    framerate:  %g\n", static_cast<double>(readAbsValue(IIDC_ABS_FRAME_RATE)));
    TRACE_DETAIL("%s    shutter:    %g\n", static_cast<double>(readAbsValue(IIDC_ABS_SHUTTER)));
    TRACE_DETAIL("%s    gain:       %g\n", static_cast<double>(readAbsValue(IIDC_ABS_GAIN)));
    TRACE_DETAIL("%s    brightness: %g\n", static_cast<double>(readAbsValue(IIDC_ABS_BRIGHTNESS)));
    TRACE_DETAIL("%s    gama:       %g\n", static_cast<double>(readAbsValue(IIDC_ABS_GAMMA)));
}
