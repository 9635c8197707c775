// SPDX-License-Identifier: MIT
#pragma once

#include "camera_impl.h"

namespace vornccd {

/// Holds a camera's lock for a scope, unless it is handed over.
class DeviceLock {
public:
    explicit DeviceLock(VornCameraImpl& camera) : camera_(&camera) { camera.lock(); }
    ~DeviceLock() { release(); }
    DeviceLock(const DeviceLock&) = delete;
    DeviceLock& operator=(const DeviceLock&) = delete;

    /// Releases the lock before the end of the scope.
    void release()
    {
        if (camera_ != nullptr)
            camera_->unlock();
        camera_ = nullptr;
    }

    /// The lock stays held after this scope: readCCD() leaves it to getImage(), so that nothing comes between the
    /// readout and its image.
    void handOverToImage() { camera_ = nullptr; }

    /// @return the lock that readCCD() handed over.
    static DeviceLock takeOverFromReadout(VornCameraImpl& camera) { return DeviceLock(&camera); }

private:
    explicit DeviceLock(VornCameraImpl* held) : camera_(held) {}

    VornCameraImpl* camera_;
};

}  // namespace vornccd
