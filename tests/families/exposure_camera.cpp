// SPDX-License-Identifier: MIT
#include "exposure_camera.h"

void expectEachFailureOfStep(ExposureStep step, CAMERA_TYPE type, const Parts& parts,
                             const std::function<bool(VornCameraImpl&)>& act)
{
    const char* const failed = step == START  ? "Failed to start exposure"
                               : step == READ ? "Failed to read CCD"
                                              : "Failed to get image";
    forEachFailure(parts, [&](vorntest::Script& usb, bool ok, const char* /*error*/) {
        VornCameraImpl camera(&usb.device, "Vorn", type);
        camera.handle = usb.device.openHandle();
        setSensor(camera, 100, 60);
        camera.exposureStarted = step == READ;
        camera.imageReady = step != READ;
        if (step == IMAGE)
            camera.lock();  // from the readout before
        EXPECT_EQ(act(camera), ok);
        EXPECT_STREQ(camera.getLastError(), ok ? "No error" : failed);
        EXPECT_EQ(camera.exposureStarted, step == START && ok);
        EXPECT_EQ(camera.imageReady, step == READ && ok);
        const bool free = pthread_mutex_trylock(&camera.mutex) == 0;
        EXPECT_EQ(free, step != READ || !ok);
        if (free)
            (void)pthread_mutex_unlock(&camera.mutex);
        else
            camera.unlock();
    });
}
