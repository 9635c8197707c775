// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include "camera_impl.h"
#include "script.h"

/// One operation as a value for tables: CALL(setFilter(3)).
#define CALL(operation) [](VornCameraImpl& camera) { return camera.operation; }

namespace vorntest {

using Operation = std::function<bool(VornCameraImpl&)>;

/// A camera object on a scripted bus, open as after a successful open() but without its traffic: for tests of single
/// operations. Tests set the fields that identification would have set.
struct OpenedCamera {
    explicit OpenedCamera(CAMERA_TYPE type = STANDARD, const char* name = "Vorn K12") : camera(&usb.device, name, type)
    {
        camera.handle = usb.device.openHandle();
    }

    /// @return whether nobody holds the camera's lock.
    bool lockFree() { return pthread_mutex_trylock(&camera.mutex) == 0 && pthread_mutex_unlock(&camera.mutex) == 0; }
    /// @return the text of the last failure.
    std::string error() { return camera.getLastError(); }

    /// Expects that the whole script was played, that the lock is free, and @p error as the text of the last failure.
    void expectSettled(const char* error = "No error", Place place = Place::here())
    {
        EXPECT_TRUE(usb.done(place));
        EXPECT_TRUE(lockFree()) << place.file << ":" << place.line;
        EXPECT_STREQ(camera.getLastError(), error) << place.file << ":" << place.line;
    }

    Script usb;
    VornCameraImpl camera;
};

}  // namespace vorntest
