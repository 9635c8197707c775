// SPDX-License-Identifier: MIT
// The library and the simulated cameras, which know nothing of each other, in whole sessions on virtual time.
#include "simulated_camera.h"

namespace {

using vorntest::bus;
using vorntest::Fault;
using vorntest::SimulatedCamera;

class SimulatedSession : public testing::Test {
protected:
    void SetUp() override
    {
        bus().reset();
        bus().logging = false;
    }
    void TearDown() override { bus().reset(); }
};

TEST_F(SimulatedSession, EveryStandardModelOpensTwiceAsTheCatalogueDescribesIt)
{
    int count = 0;
    for (const vornsim::ModelInfo& model : vornsim::models()) {
        if (std::string(model.family) != "STANDARD")
            continue;
        SCOPED_TRACE(model.name);
        SimulatedCamera simulated(model.name);
        for (int time = 0; time < 2; time++) {
            ASSERT_TRUE(simulated.camera.open());
            VornCapabilities capabilities;
            ASSERT_TRUE(simulated.camera.getCapabilities(nullptr, nullptr, &capabilities));
            EXPECT_EQ(capabilities.pixelCountX, model.pixelCountX);
            EXPECT_EQ(capabilities.pixelCountY, model.pixelCountY);
            EXPECT_EQ(capabilities.colour, model.colour ? COLOUR_RGGB : COLOUR_NONE);
            EXPECT_NE(simulated.camera.getSerialNumber(), 0U);
            simulated.camera.close();
        }
        simulated.expectNoComplaints();
        count++;
    }
    EXPECT_EQ(count, 20);
}

/// Pixels of the ramp pattern: (y * 256 + x) of the top left sensor pixel of each binned one.
void expectRamp(SimulatedCamera& simulated, unsigned x, unsigned y, unsigned width, unsigned height, unsigned bin,
                bool longExposure)
{
    SCOPED_TRACE(testing::Message() << x << "," << y << " " << width << "x" << height << " binned " << bin);
    VornCameraImpl& camera = simulated.camera;
    if (longExposure) {
        ASSERT_TRUE(camera.startExposure(false));
        bus().advanceUs(camera.delay(4.0));
        ASSERT_TRUE(camera.readCCD(x, y, width, height, bin, bin));
    } else {
        ASSERT_TRUE(camera.readCCD(x, y, width, height, bin, bin, 0.02));
    }
    const unsigned columns = camera.imageWidth(width, bin);
    const unsigned rows = camera.imageHeight(height, bin);
    std::vector<uint16_t> image(size_t{columns} * rows + 1, 0xCCCC);
    ASSERT_TRUE(camera.getImage(image.data(), columns * rows));
    for (unsigned row = 0; row < rows; row++) {
        for (unsigned column = 0; column < columns; column++) {
            ASSERT_EQ(image[row * columns + column], static_cast<uint16_t>((y + row * bin) * 256 + x + column * bin))
                << "row " << row << ", column " << column;
        }
    }
    EXPECT_EQ(image.back(), 0xCCCC);
    EXPECT_TRUE(simulated.lockFree());
}

TEST_F(SimulatedSession, StandardImagesShowEachPixelInItsPlace)
{
    SimulatedCamera simulated("Vorn K12");
    ASSERT_TRUE(simulated.camera.open());
    const unsigned width = simulated.camera.pixelCountX;
    const unsigned height = simulated.camera.pixelCountY;
    for (const bool longExposure : {true, false}) {
        for (unsigned bin = 1; bin <= simulated.camera.maxBinX; bin++) {
            expectRamp(simulated, 0, 0, 40, 30, bin, longExposure);
            expectRamp(simulated, width - 33, 0, 33, 17, bin, longExposure);
            expectRamp(simulated, 0, height - 29, 31, 29, bin, longExposure);
            expectRamp(simulated, width - 16, height - 48, 16, 48, bin, longExposure);
        }
        expectRamp(simulated, 0, 0, width, height, 2, longExposure);
    }
    simulated.camera.close();
    simulated.expectNoComplaints();
}

/// A night in short: open, cool, expose long and short, look after the accessories, close. Goes on after failures as a
/// stubborn host would. @return whether everything worked.
bool night(VornCameraImpl& camera)
{
    bool ok = camera.open();
    float celsius = 0;
    COOLING_STATE state = COOLING_INACTIVE;
    ok = camera.getTemperatureSensorStatus(1, &celsius) && ok;
    if (camera.tempSensorType != 0)
        ok = camera.setCooling(-10.0F) && ok;
    if (camera.tempSensorType != 0)
        ok = camera.getCoolingStatus(&state, nullptr, nullptr) && ok;
    uint16_t image[48] = {};
    ok = camera.startExposure(false) && ok;
    bus().advanceUs(camera.delay(1.0));
    if (camera.readCCD(2, 3, 8, 6, 1, 1))
        ok = camera.getImage(image, 48) && ok;
    else
        ok = false;
    if (camera.readCCD(2, 3, 8, 6, 1, 1, 0.1))
        ok = camera.getImage(image, 48) && ok;
    else
        ok = false;
    ok = camera.setGuideRelays(5) && ok;
    ok = camera.initiateWarmUp() && ok;
    ok = camera.abortExposure() && ok;
    camera.close();
    return ok;
}

// Whatever call fails, in whatever way: the object ends closed and unlocked, in bounded time, nothing reaches libusb
// that should not, and opened again it works, whatever was left in the camera.
TEST_F(SimulatedSession, NoFaultLeavesACameraLockedOrHanging)
{
    constexpr int64_t HOUR_US = 3'600'000'000;
    const Fault KINDS[] = {
        {.result = LIBUSB_ERROR_IO},
        {.result = LIBUSB_ERROR_TIMEOUT, .forEver = true},
        {.result = LIBUSB_ERROR_NO_DEVICE, .forEver = true},
        {.shortenTo = 1},
        {.delayUs = 31'000'000},
    };
    SimulatedCamera whole("Vorn K12");
    ASSERT_TRUE(night(whole.camera)) << whole.camera.getLastError();
    const int callCount = whole.device.callCount;
    ASSERT_GT(callCount, 900);
    for (const Fault& kind : KINDS) {
        // each call but those of the firmware upload, of which some will do
        for (int at = 1; at <= callCount; at += at > 5 && at < 760 ? 151 : 1) {
            SCOPED_TRACE(testing::Message() << "call " << at << ", result " << kind.result << ", for ever "
                                            << kind.forEver << ", shortened to " << kind.shortenTo);
            SimulatedCamera simulated("Vorn K12");
            simulated.device.fault = kind;
            simulated.device.fault.at = at;
            const int64_t startUs = bus().nowUs();
            const bool ok = night(simulated.camera);
            if (kind.forEver && at < callCount) {
                EXPECT_FALSE(ok);
            }
            EXPECT_LT(bus().nowUs() - startUs, HOUR_US);
            EXPECT_EQ(simulated.camera.handle, nullptr);
            EXPECT_EQ(simulated.device.openCount, 0);
            EXPECT_TRUE(simulated.lockFree());
            simulated.device.fault = {};
            EXPECT_TRUE(night(simulated.camera)) << simulated.camera.getLastError();
            if (HasFailure())
                return;
        }
    }
}

}  // namespace
