// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "family_facts.h"
#include "trace/trace.h"

using namespace vornccd;

namespace {

// deliberate: the longer minimum is tied to this sensor's width.
constexpr uint32_t SLOW_SENSOR_WIDTH = 3326;
constexpr double SLOW_SENSOR_MIN_SECONDS = 0.2;
constexpr double MIN_SECONDS = 0.001;

template <typename T, typename V>
void store(T* output, const V& value)
{
    if (output != nullptr)
        *output = value;
}

}  // namespace

void VornCameraImpl::close()
{
    TRACE_ENTER("%s-> VornCameraImpl::close()\n");
    if (handle != nullptr) {
        libusb_close(handle);
        handle = nullptr;
    }
    TRACE_EXIT("%s<- VornCameraImpl::close\n");
}

bool VornCameraImpl::getCapabilities(const char** outName, CAMERA_TYPE* outType, bool* outHasShutter,
                                     bool* outHasGuidePort, bool* outHas8BitMode, bool* outHasFilterWheel,
                                     unsigned int* outLineCount, unsigned int* outPixelCountX,
                                     unsigned int* outPixelCountY, double* outPixelSizeX, double* outPixelSizeY,
                                     unsigned int* outMaxBinX, unsigned int* outMaxBinY,
                                     unsigned int* outTempSensorCount, COOLER_TYPE* outCooler, COLOUR_TYPE* outColour,
                                     int* outOffsetX, int* outOffsetY, bool* outSupportsLongExposure,
                                     double* outMinShortExposure, double* outMaxShortExposure)
{
    TRACE_ENTER("%s-> VornCameraImpl::getCapabilities(...)\n");
    if (handle == nullptr) {
        lastError = "Device is not opened";
        TRACE_EXIT("%s<- VornCameraImpl::getCapabilities 00\n");
        return false;
    }
    store(outName, name);
    store(outType, type);
    store(outHasShutter, hasShutter);
    store(outHasGuidePort, hasGuidePort);
    store(outHas8BitMode, has8BitMode);
    store(outHasFilterWheel, hasFilterWheel);
    store(outLineCount, lineCount);
    store(outPixelCountX, pixelCountX);
    store(outPixelCountY, pixelCountY);
    store(outPixelSizeX, pixelSizeX);
    store(outPixelSizeY, pixelSizeY);
    store(outMaxBinX, maxBinX);
    store(outMaxBinY, maxBinY);
    store(outTempSensorCount, tempSensorCount);
    store(outCooler, cooler);
    store(outColour, colour);
    store(outOffsetX, offsetX);
    store(outOffsetY, offsetY);
    store(outSupportsLongExposure, factsOf(type).supportsLongExposure);
    store(outMinShortExposure, pixelCountX == SLOW_SENSOR_WIDTH ? SLOW_SENSOR_MIN_SECONDS : MIN_SECONDS);
    if (isFamily(type))  // else it is not known
        store(outMaxShortExposure, factsOf(type).maxShortSeconds);
    TRACE_EXIT("%s<- VornCameraImpl::getCapabilities 1\n");
    return true;
}

bool VornCameraImpl::getCapabilities(const char** outName, CAMERA_TYPE* outType, VornCapabilities* caps)
{
    return getCapabilities(outName, outType, &caps->hasShutter, &caps->hasGuidePort, &caps->has8BitMode,
                           &caps->hasFilterWheel, &caps->lineCount, &caps->pixelCountX, &caps->pixelCountY,
                           &caps->pixelSizeX, &caps->pixelSizeY, &caps->maxBinX, &caps->maxBinY, &caps->tempSensorCount,
                           &caps->cooler, &caps->colour, &caps->offsetX, &caps->offsetY, &caps->supportsLongExposure,
                           &caps->minShortExposure, &caps->maxShortExposure);
}
