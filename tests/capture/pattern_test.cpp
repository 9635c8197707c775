// SPDX-License-Identifier: MIT
// Pictures whose every value tells row and column, through the library alone and through capture.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "device/parts/eight_bit.h"
#include "simulated_session.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

constexpr uint16_t UNTOUCHED = 0xCCCC;
constexpr unsigned LEADING_VALUES = 2;  // that ADVANCED cameras send ahead of an image; moving it reads one more

class Pattern : public ::testing::TestWithParam<const char*> {
protected:
    bool wholeFrames() const { return family == QUICKER || family == IIDC; }

    /// @return what the camera makes of a sensor pixel, which stands for all that are binned with it.
    uint16_t value(unsigned x, unsigned y, bool eightBit) const
    {
        const auto ramp = static_cast<uint16_t>(y * 256 + x);
        if (family == IIDC)
            return static_cast<uint16_t>(vornsim::foldedRamp(ramp) << 8);
        if (session.camera->model.prechargePairs)
            return ramp & 0xFFFE;
        return eightBit ? vornsim::foldedRamp(ramp) : ramp;
    }

    /// The whole sensor, all corners, and a high region in the middle that is off the binning grid.
    std::vector<Region> regions(unsigned binX, unsigned binY) const
    {
        const auto& info = session.camera->model.info;
        const unsigned wide = 4 * binX;
        const unsigned high = 3 * binY;
        const unsigned right = info.pixelCountX - wide;
        const unsigned bottom = info.pixelCountY - high;
        return {{0, 0, info.pixelCountX, info.pixelCountY},
                {0, 0, wide, high},
                {right, 0, wide, high},
                {0, bottom, wide, high},
                {right, bottom, wide, high},
                {info.pixelCountX / 2 - 1, info.pixelCountY / 2 - 23, 3 * binX - binX / 2, 5 * binY + binY / 2}};
    }

    void expectContract(const Region& region, unsigned binX, unsigned binY, bool longExposure, bool eightBit);
    void expectPicture(const Region& region, unsigned binX, unsigned binY, bool longExposure, bool eightBit);

    CameraSession session{GetParam()};
    const CAMERA_TYPE family = session->info().family;
};

/// readCCD() and getImage() as a host calls them: where each pixel of the region lies in the host's buffer.
void Pattern::expectContract(const Region& region, unsigned binX, unsigned binY, bool longExposure, bool eightBit)
{
    struct Image {
        unsigned columns, rows;
        std::vector<uint16_t> values;
    };
    const auto image = session->call([&](VornCamera& camera) {
        Image got{camera.imageWidth(region.width, binX), camera.imageHeight(region.height, binY), {}};
        const unsigned side = std::max(got.columns, got.rows);
        got.values.assign(size_t{side} * side + LEADING_VALUES + 1, UNTOUCHED);
        bool ok = camera.set8BitMode(eightBit) || !eightBit;
        if (longExposure) {
            ok = ok && camera.startExposure(false);
            vorntest::bus().advanceUs(camera.delay(4.0));
            ok = ok && camera.readCCD(region.x, region.y, region.width, region.height, binX, binY);
        } else {
            ok = ok && camera.readCCD(region.x, region.y, region.width, region.height, binX, binY, 0.02);
        }
        const unsigned pixels = got.columns * got.rows + (family == ADVANCED ? LEADING_VALUES : 0);
        EXPECT_TRUE(ok && camera.getImage(got.values.data(), pixels)) << camera.getLastError();
        return got;
    });
    // Without precharge pairs the rows of a whole frame's region are as far apart as the region is high: where they
    // overlap, the next one begins.
    const auto& [columns, rows, values] = image.value();
    const unsigned stride = family == QUICKER && !session.camera->model.prechargePairs ? rows : columns;
    for (unsigned row = 0; row < rows; row++) {
        const unsigned shown = std::min(row + 1 < rows ? std::min(columns, stride) : columns, region.width / binX);
        for (unsigned column = 0; column < shown; column++) {
            // Whole frames are binned from their corner.
            const unsigned x = (wholeFrames() ? region.x / binX * binX : region.x) + column * binX;
            const unsigned y = (wholeFrames() ? region.y / binY * binY : region.y) + row * binY;
            ASSERT_EQ(values[size_t{row} * stride + column], value(x, y, eightBit)) << column << "," << row;
        }
    }
}

/// The same through capture, which lays regions on the binning grid, and sums what a camera cannot bin.
void Pattern::expectPicture(const Region& region, unsigned binX, unsigned binY, bool longExposure, bool eightBit)
{
    const double seconds = longExposure ? 4.0 : 0.02;
    const bool whole = region.width == session.camera->model.info.pixelCountX;
    const auto result = session->expose({.seconds = seconds,
                                         .region = whole ? std::nullopt : std::optional(region),
                                         .binX = binX,
                                         .binY = binY,
                                         .eightBit = eightBit});
    ASSERT_TRUE(result.ok()) << result.error().text;
    const Frame& frame = result.value();
    const Region shown = {region.x / binX * binX, region.y / binY * binY, region.width / binX * binX,
                          region.height / binY * binY};
    ASSERT_TRUE(frame.region == shown) << frame.region.x << "," << frame.region.y;
    ASSERT_EQ(frame.width, shown.width / binX);
    ASSERT_EQ(frame.height, shown.height / binY);
    ASSERT_EQ(frame.pixels.size(), size_t{frame.width} * frame.height);
    const bool summed = std::any_of(frame.notes.begin(), frame.notes.end(),
                                    [](const auto& note) { return note.find("summed") != note.npos; });
    const bool colourless = frame.camera.name == "Vorn XRC" && binX == 1 && binY == 1;
    EXPECT_EQ(frame.notes.size(), (summed ? 1U : 0U) + (whole || shown == region ? 0U : 1U) + (colourless ? 1U : 0U));
    if (family != QUICKER) {  // of which it depends on the region's shape
        EXPECT_EQ(summed, family == IIDC && binX != binY);
    }
    const unsigned cell = std::gcd(binX, binY);
    for (unsigned i = 0; i < frame.pixels.size(); i++) {
        const unsigned left = shown.x + i % frame.width * binX;
        const unsigned top = shown.y + i / frame.width * binY;
        unsigned expected = 0;
        for (unsigned y = 0; y < (summed ? binY : 1); y += cell)
            for (unsigned x = 0; x < (summed ? binX : 1); x += cell)
                expected += value(left + x, top + y, eightBit);
        ASSERT_EQ(frame.pixels[i], std::min(expected, 65535U)) << i % frame.width << "," << i / frame.width;
    }
}

TEST_P(Pattern, EachPixelIsInItsPlace)
{
    const VornCapabilities& caps = session->info().caps;
    ASSERT_EQ(caps.colour == COLOUR_RGGB && family != IIDC, session.camera->model.info.colour && family != IIDC);
    bool longExposure = false;
    for (const bool eightBit : {false, true}) {
        for (unsigned bin = 0; bin < caps.maxBinX * caps.maxBinY && eightBit <= caps.has8BitMode; bin++) {
            const unsigned binX = bin % caps.maxBinX + 1;
            const unsigned binY = bin / caps.maxBinX + 1;
            for (const Region& region : regions(binX, binY)) {
                SCOPED_TRACE(::testing::Message()
                             << region.x << "," << region.y << " " << region.width << "x" << region.height << " binned "
                             << binX << "x" << binY << (eightBit ? ", 8 bits" : ""));
                longExposure = !longExposure && caps.supportsLongExposure;
                if (family != IIDC || binX == binY)  // which the library refuses
                    expectContract(region, binX, binY, longExposure, eightBit);
                expectPicture(region, binX, binY, longExposure, eightBit);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

// A model of each kind, and one of the same kind with a colour sensor.
INSTANTIATE_TEST_SUITE_P(EveryFamily, Pattern,
                         ::testing::Values("K12", "K07", "K16", "K27", "K01", "K03", "K04", "K05", "K30", "K32", "XRM",
                                           "XRC"),
                         [](const auto& row) { return std::string(row.param); });

}  // namespace
