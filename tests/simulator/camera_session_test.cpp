// SPDX-License-Identifier: MIT
// What a host brings about inside a camera, through the library and compared with the truth.
#include "../support/simulated_camera.h"

namespace {

using vorntest::bus;

/// An open camera that has nothing to complain about.
struct Opened : vorntest::SimulatedCamera {
    explicit Opened(const char* name) : SimulatedCamera(name) { EXPECT_TRUE(camera.open()) << camera.getLastError(); }
    ~Opened() { expectNoComplaints(); }

    vornsim::CameraTruth truth() const { return simulated->truth(); }
};

TEST(CameraSession, EveryModelOpensTwiceAsTheCatalogueDescribesIt)
{
    EXPECT_EQ(vornsim::models().size(), 33U);
    for (const vornsim::ModelInfo& model : vornsim::models()) {
        SCOPED_TRACE(model.name);
        Opened opened(model.name);
        opened.camera.close();
        ASSERT_TRUE(opened.camera.open());
        VornCapabilities capabilities;
        ASSERT_TRUE(opened.camera.getCapabilities(nullptr, nullptr, &capabilities));
        EXPECT_EQ(capabilities.pixelCountX, model.pixelCountX);
        EXPECT_EQ(capabilities.pixelCountY, model.pixelCountY);
        const bool told = model.colour && opened.type() != IIDC;  // which has no colour record
        EXPECT_EQ(capabilities.colour, told ? COLOUR_RGGB : COLOUR_NONE);
        EXPECT_NE(opened.camera.getSerialNumber(), 0U);
    }
}

TEST(CameraSession, LightFallsForTheTimeAskedFor)
{
    constexpr struct {
        const char* model;
        bool longExposure;
        double seconds;
        bool dark = false;
    } ROWS[] = {{"K12", true, 20.0},        {"K12", true, 5.0, true}, {"K12", false, 0.15},   {"K12", false, 150e-6},
                {"K12", false, 0.15, true}, {"K16", true, 1.0},       {"K16", false, 500e-6}, {"K16", false, 0.05},
                {"K30", true, 3.0},         {"K30", false, 0.001},    {"K30", false, 0.009},  {"K30", false, 0.01},
                {"K30", false, 2.46},       {"K01", true, 2.0},       {"K01", false, 0.1},    {"XRM", false, 0.1}};
    for (const auto& row : ROWS) {
        SCOPED_TRACE(std::string(row.model) + " " + std::to_string(row.seconds));
        Opened opened(row.model);
        VornCameraImpl& camera = opened.camera;
        ASSERT_TRUE(!row.dark || camera.setDarkFrameMode(true));
        const int64_t startUs = bus().nowUs();
        if (row.longExposure) {
            ASSERT_TRUE(camera.startExposure(false));
            bus().advanceUs(camera.delay(row.seconds));
            ASSERT_TRUE(camera.readCCD(0, 0, 8, 8, 1, 1));
        } else {
            ASSERT_TRUE(camera.readCCD(0, 0, 8, 8, 1, 1, row.seconds));
        }
        uint16_t image[65];  // one place more, which ADVANCED cameras want
        ASSERT_TRUE(camera.getImage(image, 64));
        const vornsim::CameraTruth truth = opened.truth();
        // A long exposure ends with a request of the host, which takes its time; QUICKER cameras count thirds of
        // milliseconds.
        const double tolerance = row.longExposure ? 0.01 : opened.type() == QUICKER ? 0.4e-3 : 1e-6;
        EXPECT_NEAR(truth.lightSeconds, row.dark ? 0.0 : row.seconds, tolerance);
        EXPECT_NEAR(truth.darkSeconds, row.seconds, row.longExposure ? 0.6 : tolerance) << "the shutter may open later";
        EXPECT_GE(bus().nowUs() - startUs, static_cast<int64_t>(row.seconds * 1e6)) << "no data before the end";
        EXPECT_FALSE(truth.integrating);
    }
}

TEST(CameraSession, CoolerRegulatesAndWarmsUp)
{
    // Holding 25 of 40 degrees takes 62.5 % of the power; rising by 5 a minute to 20 takes less than holding them.
    for (const char* model : {"K12", "K20", "K30"}) {
        SCOPED_TRACE(model);
        Opened opened(model);
        VornCameraImpl& camera = opened.camera;
        const auto expect = [&](double degrees, double percent, double tolerance) {
            COOLING_STATE state = COOLING_INACTIVE;
            float celsius = 0.0F, power = 0.0F;
            ASSERT_TRUE(camera.getTemperatureSensorStatus(1, &celsius));
            ASSERT_TRUE(camera.getCoolingStatus(&state, nullptr, &power));
            EXPECT_NEAR(celsius, degrees, 0.5);
            EXPECT_NEAR(celsius, opened.truth().sensorCelsius, 0.5);
            EXPECT_NEAR(power, percent, tolerance);
            EXPECT_NEAR(power, 100.0 * opened.truth().coolerPower, 1.0);
        };
        expect(15.0, 0.0, 0.0);
        ASSERT_TRUE(camera.setCooling(-10.0F));
        bus().advanceUs(3'600'000'000);
        expect(-10.0, 62.5, 1.0);
        ASSERT_TRUE(camera.initiateWarmUp());
        bus().advanceUs(60'000'000);
        expect(-5.0, 37.5, 1.0);
    }
}

TEST(CameraSession, WheelTurnsTheShorterWay)
{
    for (const char* model : {"K13", "K20"}) {
        SCOPED_TRACE(model);
        Opened opened(model);
        const auto expect = [&](const std::vector<unsigned>& status) {
            unsigned count = 0, current = 0, target = 0;
            bool moving = false;
            ASSERT_TRUE(opened.camera.getFilterWheelStatus(&count, &moving, &current, &target));
            EXPECT_EQ((std::vector{count, unsigned{moving}, current, target}), status);
            EXPECT_EQ(opened.truth().filterMoving, moving);
        };
        ASSERT_TRUE(opened.camera.setFilter(5));
        expect({5, 1, 1, 5});
        bus().advanceUs(900'000);
        expect({5, 0, 5, 5});
        EXPECT_FALSE(opened.camera.setFilter(6));
    }
}

TEST(CameraSession, GuideRelaysMoveTheStars)
{
    for (const char* model : {"K12", "K20", "K01"}) {
        Opened opened(model);
        for (const unsigned relays : {0x9U, 0x0U}) {
            ASSERT_TRUE(opened.camera.setGuideRelays(static_cast<unsigned short>(relays)));
            bus().advanceUs(500'000);
        }
        EXPECT_NEAR(opened.truth().driftX, 2.0, 0.05) << model;
        EXPECT_NEAR(opened.truth().driftY, -2.0, 0.05) << model;
    }
}

}  // namespace
