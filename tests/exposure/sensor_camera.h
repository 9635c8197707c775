// SPDX-License-Identifier: MIT
#pragma once

#include "opened_camera.h"

/// Requests that raise and lower the timeout of STANDARD and QUICKER cameras around a readout, to 30000 and 1000 ms.
inline const char* const RAISE_TIMEOUT = "0C ?? 00 00 30 75 ...";
inline const char* const LOWER_TIMEOUT = "0C ?? 00 00 E8 03 ...";

using Image = std::vector<uint16_t>;

/// An open camera with a sensor that bins 4 x 4.
struct SensorCamera : vorntest::OpenedCamera {
    explicit SensorCamera(CAMERA_TYPE type = STANDARD, unsigned width = 100, unsigned height = 60) : OpenedCamera(type)
    {
        camera.pixelCountX = width;
        camera.pixelCountY = height;
        camera.maxBinX = camera.maxBinY = 4;
    }

    bool readLong(const ReadoutRegion& region)
    {
        camera.exposureStarted = true;
        return camera.readCCD(region.x, region.y, region.width, region.height, region.binX, region.binY);
    }
    bool readShort(const ReadoutRegion& region, double seconds)
    {
        return camera.readCCD(region.x, region.y, region.width, region.height, region.binX, region.binY, seconds);
    }
    /// Expects a camera after a successful readout, and gives its lock back.
    void expectReadOut(vorntest::Place place = vorntest::Place::here())
    {
        EXPECT_TRUE(camera.imageReady) << place.line;
        EXPECT_FALSE(lockFree()) << place.line;
        camera.unlock();
        expectSettled("No error", place);
    }
};

/// Such a camera as after the readout of @p region.
struct ReadOutCamera : SensorCamera {
    explicit ReadOutCamera(CAMERA_TYPE type, unsigned width = 100, unsigned height = 60,
                           const ReadoutRegion& region = {0, 0, 1, 1, 1, 1})
        : SensorCamera(type, width, height)
    {
        camera.readoutRegion = region;
        camera.imageReady = true;
        camera.lock();
    }
    /// @return the buffer of @p values values after getImage(), CCCC where nothing was written.
    Image image(size_t values, unsigned pixels, bool expected = true)
    {
        Image image(values, 0xCCCC);
        EXPECT_EQ(camera.getImage(image.data(), pixels), expected);
        expectSettled(expected ? "No error" : "Failed to get image");
        return image;
    }
};
