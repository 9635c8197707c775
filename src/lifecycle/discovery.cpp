// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "lifecycle/model_table.h"
#include "trace/trace.h"

#include <new>

using namespace vornccd;

namespace {

// Made by the first successful list() and kept for the life of the process.
libusb_context* context = nullptr;

/// @return the first row with this product id, or the end row.
const CameraModel& findModel(uint16_t productId)
{
    const CameraModel* model = CAMERAS;
    while (model->type != 0 && model->productId != productId)
        ++model;
    return *model;
}

/// @return whether there is a libusb context; the next call tries again after a failure.
bool haveContext()
{
    if (context != nullptr)
        return true;
    const int result = libusb_init(&context);
    if (result >= 0)
        return true;
    context = nullptr;
    TRACE_DETAIL("%s    libusb_init -> %s\n", libusb_error_name(result));
    return false;
}

/// @return a new camera object, or null when @p device is no camera of ours or there is no memory for it.
VornCamera* cameraOn(libusb_device* device)
{
    libusb_device_descriptor descriptor = {};
    if (libusb_get_device_descriptor(device, &descriptor) < 0)
        return nullptr;
    const CameraModel& model = findModel(descriptor.idProduct);
    if (model.type == 0)
        return nullptr;
    TRACE_DETAIL("%s    '%s' [0x%x, 0x%x] found...\n", model.name, descriptor.idVendor, descriptor.idProduct);
    return new (std::nothrow) VornCameraImpl(device, model.name, static_cast<CAMERA_TYPE>(model.type));
}

}  // namespace

VornCamera::~VornCamera() = default;

int VornCamera::list(VornCamera** cameras, int max)
{
    if (max < 1)
        assertionFailed("Assertion \"max>0\" failed (%s, %d)\n", 283);
    TRACE_ENTER("%s-> VornCamera::list(...)\n");
    if (!haveContext()) {
        TRACE_EXIT("%s<- VornCamera::list 00\n");
        return 0;
    }
    // deliberate: the list is never freed, nor are the references taken below ever dropped; a host's cameras stay
    // valid whatever it does.
    libusb_device** devices = nullptr;
    const ssize_t deviceCount = libusb_get_device_list(context, &devices);
    if (deviceCount < 0) {
        TRACE_DETAIL("%s    Can't get device list");  // deliberate: the one line without an end
        TRACE_EXIT("%s<- VornCamera::list 00\n");
        return 0;
    }
    int count = 0;
    for (ssize_t i = 0; i < deviceCount && count < max; ++i) {
        VornCamera* camera = cameraOn(devices[i]);
        if (camera == nullptr)
            continue;
        cameras[count++] = camera;
        (void)libusb_ref_device(devices[i]);
    }
    TRACE_EXIT("%s<- VornCamera::list %d\n", count);
    return count;
}

int VornCamera_list(VornCamera** cameras, int max)
{
    return VornCamera::list(cameras, max);
}

void VornCamera_destroy(VornCamera* camera)
{
    delete camera;
}
