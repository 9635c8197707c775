// SPDX-License-Identifier: MIT
#pragma once

#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

namespace capturetest {

/// A PNG picture read back.
struct PngFile {
    unsigned channels = 0;  ///< 1 grey, 3 red, green and blue; 0 when the file is not there or broken
    std::vector<uint8_t> levels;
};

inline PngFile readPng(const std::string& path)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0)
        return {};
    PngFile file{PNG_IMAGE_SAMPLE_CHANNELS(image.format), std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
    return png_image_finish_read(&image, nullptr, file.levels.data(), 0, nullptr) != 0 ? file : PngFile{};
}

}  // namespace capturetest
