// SPDX-License-Identifier: MIT
// The library and the simulated cameras, which know nothing of each other, in whole sessions on virtual time.
#include "simulated_camera.h"

#include "eight_bit.h"

namespace {

using vorntest::bus;
using vorntest::SimulatedCamera;

constexpr uint16_t UNTOUCHED = 0xCCCC;
constexpr unsigned LEADING_VALUES = 2;  // that ADVANCED cameras send ahead of an image

class FamilySession : public testing::Test {
protected:
    void SetUp() override { bus().reset(); }
    void TearDown() override { bus().reset(); }
};

TEST_F(FamilySession, EveryModelOpensTwiceAsTheCatalogueDescribesIt)
{
    int count = 0;
    for (const vornsim::ModelInfo& model : vornsim::models()) {
        SimulatedCamera simulated(model.name);
        SCOPED_TRACE(model.name);
        for (int time = 0; time < 2; time++) {
            ASSERT_TRUE(simulated.camera.open());
            VornCapabilities capabilities;
            ASSERT_TRUE(simulated.camera.getCapabilities(nullptr, nullptr, &capabilities));
            EXPECT_EQ(capabilities.pixelCountX, model.pixelCountX);
            EXPECT_EQ(capabilities.pixelCountY, model.pixelCountY);
            if (simulated.type() != IIDC) {  // which has no colour record
                EXPECT_EQ(capabilities.colour, model.colour ? COLOUR_RGGB : COLOUR_NONE);
            }
            EXPECT_NE(simulated.camera.getSerialNumber(), 0U);
            simulated.camera.close();
        }
        simulated.expectNoComplaints();
        count++;
    }
    EXPECT_EQ(count, 33);
}

/// One exposure of @p region into @p image. @return whether it worked.
bool expose(VornCameraImpl& camera, const ReadoutRegion& region, bool longExposure, uint16_t* image, unsigned pixels)
{
    const auto& [x, y, width, height, binX, binY] = region;
    bool ok = true;
    if (longExposure) {
        ok = camera.startExposure(false);
        bus().advanceUs(camera.delay(4.0));
        ok = camera.readCCD(x, y, width, height, binX, binY) && ok;
    } else {
        ok = camera.readCCD(x, y, width, height, binX, binY, 0.02);
    }
    return ok && camera.getImage(image, pixels);
}

/// Checks that the pixels are those of the ramp pattern: (y * 256 + x) of the top left sensor pixel of each binned one.
void expectRamp(SimulatedCamera& simulated, const ReadoutRegion& region, bool longExposure)
{
    VornCameraImpl& camera = simulated.camera;
    const unsigned columns = camera.imageWidth(region.width, region.binX);
    const unsigned rows = camera.imageHeight(region.height, region.binY);
    SCOPED_TRACE(testing::Message() << region.x << "," << region.y << " " << region.width << "x" << region.height
                                    << " binned " << region.binX << "x" << region.binY);
    const unsigned stride = camera.type == QUICKER && !camera.pcCds ? rows : columns;
    const unsigned pixels = columns * rows + (camera.type == ADVANCED ? LEADING_VALUES : 0);
    std::vector<uint16_t> image(size_t{std::max(stride, columns)} * rows + columns + LEADING_VALUES, UNTOUCHED);
    ASSERT_TRUE(expose(camera, region, longExposure, image.data(), pixels)) << camera.getLastError();
    for (unsigned row = 0; row < rows; row++) {
        // where rows overlap, the next one begins
        const unsigned shown = row + 1 < rows ? std::min(columns, stride) : columns;
        for (unsigned column = 0; column < shown; column++) {
            // whole frames are binned from their corner
            const unsigned binX = region.binX;
            const unsigned binY = region.binY;
            const bool frame = camera.type == QUICKER || camera.type == IIDC;
            const unsigned x = (frame ? region.x / binX * binX : region.x) + column * binX;
            const unsigned y = (frame ? region.y / binY * binY : region.y) + row * binY;
            auto expected = static_cast<uint16_t>(y * 256 + x);
            if (camera.type == IIDC)
                expected = static_cast<uint16_t>(vornsim::foldedRamp(expected) << 8);
            else if (camera.eightBitMode)
                expected = vornsim::foldedRamp(expected);
            ASSERT_EQ(image[size_t{row} * stride + column], expected) << "row " << row << ", column " << column;
        }
    }
    EXPECT_TRUE(simulated.lockFree());
}

TEST_F(FamilySession, ImagesShowEachPixelInItsPlace)
{
    // 8-bit ramps need an even width, or a row ends with a value of its own
    for (const char* name : {"Vorn K12", "Vorn K16", "Vorn K01", "Vorn K30", "Vorn XRC"}) {
        SCOPED_TRACE(name);
        SimulatedCamera simulated(name);
        VornCameraImpl& camera = simulated.camera;
        ASSERT_TRUE(camera.open());
        const unsigned width = camera.pixelCountX;
        const unsigned height = camera.pixelCountY;
        for (const bool eightBit : {false, true}) {
            if (eightBit && !camera.set8BitMode(true))
                continue;  // of ADVANCED cameras only
            for (unsigned bin = 1; bin <= camera.maxBinX; bin++) {
                const bool longExposure = bin % 2 == 0 && camera.type != IIDC;
                const unsigned other = camera.type == IIDC ? bin : camera.maxBinX + 1 - bin;
                const unsigned wide = 48;  // a multiple of most binnings
                expectRamp(simulated, {0, 0, wide, 24, bin, other}, longExposure);
                expectRamp(simulated, {width - wide, 0, wide, wide, bin, other}, longExposure);
                expectRamp(simulated, {0, height - wide, wide, wide, bin, other}, longExposure);
                expectRamp(simulated, {width - wide, height - wide, wide, wide, bin, other}, longExposure);
                if (camera.type != ADVANCED) {  // whose width rounds up
                    expectRamp(simulated, {7, 5, 33, 31, bin, other}, longExposure);
                }
            }
        }
        camera.close();
        simulated.expectNoComplaints();
    }
}

}  // namespace
