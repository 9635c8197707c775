// SPDX-License-Identifier: MIT
#include "fits_file.h"

#include <fitsio.h>
#include <gtest/gtest.h>

#include <array>
#include <numeric>

namespace capturetest {

double FitsFile::mean() const
{
    return std::accumulate(pixels.begin(), pixels.end(), 0.0) / static_cast<double>(pixels.size());
}

/// @return a text that may go on in further cards.
static std::string readText(fitsfile* file, const char* key, int& status)
{
    char* value = nullptr;
    fits_read_key_longstr(file, key, &value, nullptr, &status);
    std::string text = value != nullptr ? value : "";
    fits_free_memory(value, &status);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

FitsFile readFits(const std::string& path)
{
    FitsFile contents;
    fitsfile* file = nullptr;
    int status = 0;
    std::array<long, 2> size = {};
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    int dimensions = 0;
    fits_get_img_dim(file, &dimensions, &status);
    if (dimensions == 0)  // a compressed picture comes after an empty one
        fits_movabs_hdu(file, 2, nullptr, &status);
    fits_get_img_size(file, 2, size.data(), &status);
    contents.width = size[0];
    contents.height = size[1];
    contents.pixels.resize(static_cast<size_t>(size[0] * size[1]));
    fits_read_img(file, TUSHORT, 1, size[0] * size[1], nullptr, contents.pixels.data(), nullptr, &status);
    int dataOk = 0;
    int cardsOk = 0;
    fits_verify_chksum(file, &dataOk, &cardsOk, &status);
    contents.intact = dataOk == 1 && cardsOk == 1;
    int count = 0;
    fits_get_hdrspace(file, &count, nullptr, &status);
    for (int i = 1; i <= count; ++i) {
        std::array<char, FLEN_KEYWORD> key = {};
        std::array<char, FLEN_VALUE> value = {};
        fits_read_keyn(file, i, key.data(), value.data(), nullptr, &status);
        std::string text = value.data();
        if (text.starts_with('\''))
            text = readText(file, key.data(), status);
        contents.keys[key.data()] = text;
    }
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0) << path << " cannot be read back";
    return contents;
}

}  // namespace capturetest
