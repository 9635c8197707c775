// SPDX-License-Identifier: MIT
// What the examples share: one opened camera that is given back, and a picture of its whole sensor. Take it along.
#pragma once

#include <vornccd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

struct CloseCamera {
    void operator()(VornCamera* camera) const
    {
        camera->close();  // the object's end alone would leave the device open
        VornCamera_destroy(camera);
    }
};
using CameraPointer = std::unique_ptr<VornCamera, CloseCamera>;

/// Opens the first camera found. @return null after telling why on standard error.
inline CameraPointer openFirstCamera()
{
    VornCamera* found = nullptr;
    if (VornCamera::list(&found, 1) != 1) {
        std::cerr << "no camera found: is it plugged in and powered?\n";
        return nullptr;
    }
    CameraPointer camera(found);
    camera->setParam(MAX_PACKET_SIZE, 0x100000);  // Linux gives all USB programs 16 MiB together
    if (!camera->open()) {
        std::cerr << camera->getName() << ": " << camera->getLastError() << "\n";
        return nullptr;
    }
    return camera;
}

/// A picture: @p height rows of @p width values.
struct Picture {
    unsigned int width = 0;
    unsigned int height = 0;
    std::vector<unsigned short> pixels;
};

/// Exposes for @p seconds and reads the whole sensor, unbinned. @return nothing on failure; getLastError() tells why.
inline std::optional<Picture> takePicture(VornCamera& camera, double seconds)
{
    CAMERA_TYPE family{};
    VornCapabilities caps;
    if (!camera.getCapabilities(nullptr, &family, &caps))
        return std::nullopt;
    const unsigned int width = caps.pixelCountX;
    // QUICKER images come as a square: rows below the sensor mean nothing.
    const unsigned int rows = family == QUICKER ? width : caps.pixelCountY;

    bool reading = false;
    if (seconds <= caps.maxShortExposure) {  // the camera times it
        reading = camera.readCCD(0, 0, width, rows, 1, 1, std::max(seconds, caps.minShortExposure));
    } else if (camera.startExposure(false)) {  // we do
        std::this_thread::sleep_for(std::chrono::microseconds(camera.delay(seconds)));
        reading = camera.readCCD(0, 0, width, rows, 1, 1);
    }
    if (!reading)
        return std::nullopt;

    // ADVANCED cameras send two values ahead, which getImage() drops; it reads one beyond them.
    const unsigned int count = width * rows + (family == ADVANCED ? 2 : 0);
    Picture picture{width, caps.pixelCountY, std::vector<unsigned short>(size_t{count} + 1)};
    if (!camera.getImage(picture.pixels.data(), count))
        return std::nullopt;
    picture.pixels.resize(size_t{picture.width} * picture.height);
    return picture;
}

/// Writes a 16-bit PGM file, which image programs and converters read. @return whether it is complete.
inline bool writePgm(const Picture& picture, const std::string& path)
{
    std::ofstream file(path, std::ios::binary);
    file << "P5\n" << picture.width << " " << picture.height << "\n65535\n";
    for (const unsigned short value : picture.pixels)
        file.put(static_cast<char>(value >> 8)).put(static_cast<char>(value & 0xFF));
    file.flush();
    return file.good();
}
