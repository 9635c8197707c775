// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"

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

/// Stores the longest short exposure in seconds; a type outside the enumeration leaves @p output as it was.
void storeMaxShortExposure(CAMERA_TYPE type, double* output)
{
    switch (type) {
        case CLASSIC:
            store(output, 2.46);
            return;
        case STANDARD:
        case ADVANCED:
            store(output, 3.0);
            return;
        case QUICKER:
            store(output, 1.398);
            return;
        case IIDC:
            store(output, 0.5);
            return;
    }
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
    store(outSupportsLongExposure, type != IIDC);
    store(outMinShortExposure, pixelCountX == SLOW_SENSOR_WIDTH ? SLOW_SENSOR_MIN_SECONDS : MIN_SECONDS);
    storeMaxShortExposure(type, outMaxShortExposure);
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
