// SPDX-License-Identifier: MIT
#include "capture/png_writer.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <system_error>

#include "capture/debayer.h"
#include "capture/output_file.h"

namespace vorncapture {
namespace {

constexpr size_t VALUE_COUNT = 65536;
constexpr size_t COLOURS = 3;
constexpr double DEVIATIONS_TO_BLACK = 2.8;      // below the sky, in standard deviations of its noise
constexpr double DEVIATION_PER_MEDIAN = 1.4826;  // of a normal distribution
constexpr double SKY_LEVEL = 0.25;               // of full brightness

using Histogram = std::vector<uint64_t>;

/// @return the value that half of the entries do not exceed.
size_t medianOf(const Histogram& histogram, uint64_t count)
{
    uint64_t below = 0;
    for (size_t value = 0; value < histogram.size(); ++value) {
        below += histogram[value];
        if (below * 2 >= count)
            return value;
    }
    return 0;
}

/// Curve from 0 to 1 with f(0) = 0, f(1) = 1 and f(@p middle) = 1/2.
double midtones(double middle, double x)
{
    return (middle - 1.0) * x / ((2.0 * middle - 1.0) * x - middle);
}

/// How values become levels: below black nothing, the sky at its level, white at full brightness.
struct Levels {
    double sky;
    double black;
    double white;
};

/// The coarseness of 8-bit data: a camera that sends bytes hands them over as the high or as the low ones of its
/// values.
constexpr unsigned int LARGEST_BYTE = 255;
constexpr unsigned int LARGEST_STEP = 256;

/// @return the distance of which all differences of values are multiples; 1 where there is none.
unsigned int stepOf(const std::vector<uint16_t>& pixels)
{
    unsigned int step = 0;
    for (size_t i = 1; i < pixels.size() && step != 1; ++i)
        step = std::gcd(step, static_cast<unsigned int>(std::abs(pixels[i] - pixels[0])));
    return std::clamp(step, 1U, LARGEST_STEP);
}

Levels findLevels(const Histogram& histogram, uint64_t count, unsigned int step)
{
    const size_t median = medianOf(histogram, count);
    Histogram distances(VALUE_COUNT);
    for (size_t value = 0; value < VALUE_COUNT; ++value)
        distances[value > median ? value - median : median - value] += histogram[value];
    const double deviation = DEVIATION_PER_MEDIAN * static_cast<double>(medianOf(distances, count));

    const auto lastUsed = std::find_if(histogram.rbegin(), histogram.rend(), [](uint64_t n) { return n > 0; });
    const double brightest = static_cast<double>(std::distance(lastUsed, histogram.rend())) - 1.0;
    // At least one step of noise, so that an even picture has a sky as well, and one whose noise is finer than its
    // values does not become salt and pepper. Coarse values may have their sky within a few steps of 0.
    const double sky = static_cast<double>(median);
    const double black = sky - DEVIATIONS_TO_BLACK * std::max(deviation, static_cast<double>(step));
    const bool coarse = step > 1 || brightest <= LARGEST_BYTE;
    return {sky, coarse ? black : std::max(0.0, black), std::max(brightest, sky + step)};
}

StretchTable stretchOf(const Levels& levels)
{
    // The curve that lifts the sky to its level is the one whose middle is the same curve's value with the two roles
    // exchanged.
    const double range = levels.white - levels.black;
    const double skyPart = (levels.sky - levels.black) / range;
    const double middle = skyPart > 0.0 ? midtones(SKY_LEVEL, skyPart) : 0.5;
    StretchTable table(VALUE_COUNT);
    for (size_t value = 0; value < VALUE_COUNT; ++value) {
        const double part = std::clamp((static_cast<double>(value) - levels.black) / range, 0.0, 1.0);
        table[value] = static_cast<uint8_t>(std::lround(255.0 * midtones(middle, part)));
    }
    return table;
}

/// Finds the levels of every @p stride-th value of @p pixels from @p first on: of one colour among several.
/// @param step the one of the data; values between are means of neighbours
Levels levelsOf(const std::vector<uint16_t>& pixels, size_t first, size_t stride, unsigned int step)
{
    Histogram histogram(VALUE_COUNT);
    uint64_t count = 0;
    for (size_t i = first; i < pixels.size(); i += stride, ++count)
        ++histogram[pixels[i]];
    return findLevels(histogram, count, step);
}

/// Stretches a colour picture: the sky becomes grey, because each colour's own sky is moved to the same level, and one
/// curve serves all three colours, so that stars keep theirs.
std::vector<uint8_t> colourLevels(const Frame& frame)
{
    const std::vector<uint16_t> colours = debayer(frame);
    const unsigned int step = stepOf(frame.pixels);
    std::array<Levels, COLOURS> own = {};
    Levels common = {0.0, 0.0, 1.0};  // above each colour's black
    for (size_t colour = 0; colour < COLOURS; ++colour) {
        own[colour] = levelsOf(colours, colour, COLOURS, step);
        common.sky = std::max(common.sky, own[colour].sky - own[colour].black);
        common.white = std::max(common.white, own[colour].white - own[colour].black);
    }
    std::array<StretchTable, COLOURS> tables;
    for (size_t colour = 0; colour < COLOURS; ++colour) {
        const double black = own[colour].sky - common.sky;
        tables[colour] = stretchOf({own[colour].sky, black, black + common.white});
    }
    std::vector<uint8_t> levels(colours.size());
    for (size_t i = 0; i < colours.size(); ++i)
        levels[i] = tables[i % COLOURS][colours[i]];
    return levels;
}

std::vector<uint8_t> greyLevels(const Frame& frame)
{
    const StretchTable table = automaticStretch(frame.pixels);
    std::vector<uint8_t> levels(frame.pixels.size());
    std::transform(frame.pixels.begin(), frame.pixels.end(), levels.begin(),
                   [&table](uint16_t value) { return table[value]; });
    return levels;
}

}  // namespace

StretchTable automaticStretch(const std::vector<uint16_t>& pixels)
{
    return stretchOf(levelsOf(pixels, 0, 1, stepOf(pixels)));
}

std::vector<uint8_t> stretchedLevels(const Frame& frame)
{
    return frame.bayer() ? colourLevels(frame) : greyLevels(frame);
}

std::vector<uint8_t> encodePng(const std::vector<uint8_t>& levels, unsigned int width, unsigned int height, bool colour)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = colour ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);  // an upper limit, known at once
    std::vector<uint8_t> file(size);
    if (png_image_write_to_memory(&image, file.data(), &size, 0, levels.data(), 0, nullptr) == 0)
        size = 0;
    file.resize(size);
    return file;
}

Status writePng(const Frame& frame, const std::string& path, bool overwrite)
{
    const OutputFile output(path, overwrite);
    Status possible = output.check();
    if (!possible.ok())
        return possible;
    const std::vector<uint8_t> file = encodePng(stretchedLevels(frame), frame.width, frame.height, frame.bayer());
    if (file.empty())
        return Error{ErrorKind::FILE_ERROR, "the PNG file cannot be made: its picture is empty or too large", ""};
    return output.write(file);
}

}  // namespace vorncapture
