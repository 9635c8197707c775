// SPDX-License-Identifier: MIT
#include "device/classic_camera.h"

#include <gmock/gmock.h>

#include "bridge_host.h"

namespace vornsim::test {
namespace {

using ::testing::HasSubstr;

CameraModel smallModel()
{
    CameraModel model;
    model.info = {"T2", 0xDF28, "CLASSIC", 24, 16, false};
    model.describedX = 24;
    model.describedY = 16;
    model.pixelSizeX = 900;
    model.pixelSizeY = 830;
    model.maxBinX = model.maxBinY = 2;
    model.cooler = CoolerKind::SELECT_POWER;
    model.minCoolerPower = 10;
    model.maxCoolerPower = 100;
    model.sensorEncoding = 1;
    model.sensorCount = 1;
    model.versionMinor = 4;
    model.wellCapacity = 36450;
    return model;
}

class ClassicCameraTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        camera.portChanged(0, {.latch = 0x80, .direction = 0x9F});
        send("48 53 43 2C");
        clock.pass(100000);
        EXPECT_EQ(words(), "49 00");
    }

    /// One I2C write. @return what was complained about.
    std::string send(const std::string& frame)
    {
        EXPECT_TRUE(camera.i2cWrite(0x40, hex(frame)));
        return log.takeComplaints();
    }

    /// @return the words on the bus by now, which are taken.
    std::string words()
    {
        const OfferedWords offered = camera.offeredWords(clock.nowUs());
        const Bytes bytes(offered.bytes.begin(), offered.bytes.end());
        camera.wordsTaken(bytes.size());
        return toHex(bytes);
    }

    ManualClock clock;
    CollectingLog log;
    ClassicCamera camera{smallModel(), {.scene = SceneKind::RAMP}, clock, log};
};

TEST_F(ClassicCameraTest, AnswersWithOneByteAWord)
{
    const struct {
        const char* label;
        const char* frame;
        const char* words;
    } rows[] = {
        {"ping", "48 53 43 11 64", "64 00"},
        {"one sensor", "48 53 43 36", "01 00"},
        {"15 degrees in 10 bits: 233", "48 53 43 37 01 00", "01 00 E9 00 00 00"},
        {"cooler: power 10 to 100", "48 53 43 34", "08 00 64 00 0A 00"},
        {"off", "48 53 43 35", "0A 00 00 00 E9 00 00 00"},
        {"cool to -10 degrees", "48 53 43 38 9B 00", "01 00"},
        {"62.5 % power, not regulating", "48 53 43 35", "42 00 40 00 9B 00 00 00"},
        {"warm up", "48 53 43 39", ""},
        {"description", "48 53 43 0A",
         "04 00 01 00 54 00 32 00 00 00 56 00 6F 00 72 00 6E 00 00 00 19 00 00 00 19 00 00 00 11 00 00 00 "
         "84 00 03 00 3E 00 03 00 02 00 00 00 02 00 00 00 62 00 8E 00"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(send(row.frame), "") << row.label;
        clock.pass(80000);
        EXPECT_EQ(words(), row.words) << row.label;
    }
}

TEST_F(ClassicCameraTest, ApplicationTakesTimeToStart)
{
    EXPECT_EQ(send("48 53 43 2C"), "");
    EXPECT_EQ(words(), "42 00");
    EXPECT_THAT(send("48 53 43 36"), HasSubstr("while the application starts"));
    clock.pass(50000);
    EXPECT_EQ(words(), "49 00");
    EXPECT_EQ(send("48 53 43 36"), "");
}

TEST_F(ClassicCameraTest, RunningExposureSettlesForTwoSeconds)
{
    EXPECT_EQ(send("48 53 43 02 00 00"), "");
    EXPECT_EQ(send("48 53 43 04"), "");
    EXPECT_EQ(send("48 53 43 05"), "");
    EXPECT_TRUE(camera.truth().integrating);
    clock.pass(1000000);
    EXPECT_EQ(send("48 53 43 42"), "");
    clock.pass(2000000);
    EXPECT_EQ(send("48 53 43 02 01 00"), "");
    // Columns 4 to 7 and rows 3 to 6, counted from 1, binned 2 x 2.
    EXPECT_EQ(send("48 53 43 06 00 02 02 04 00 03 00 08 00 07 00 00 03"), "");
    EXPECT_NEAR(camera.truth().darkSeconds, 3.0, 1e-9);
    clock.pass(21000);
    EXPECT_EQ(words(), "03 02 05 02 03 04 05 04");
    EXPECT_FALSE(camera.truth().integrating);
}

TEST_F(ClassicCameraTest, TimedExposures)
{
    const struct {
        const char* frame;
        int64_t ms;
    } rows[] = {
        {"48 53 43 06 01 01 01 18 00 10 00 19 00 11 00 00 03", 1},
        {"48 53 43 06 09 01 01 18 00 10 00 19 00 11 00 00 03", 9},
        {"48 53 43 06 0A 01 01 18 00 10 00 19 00 11 00 00 03", 10},
        {"48 53 43 06 3B 01 01 18 00 10 00 19 00 11 00 01 03", 500},
        {"48 53 43 06 FF 01 01 18 00 10 00 19 00 11 00 00 03", 2460},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(send(row.frame), "") << row.ms;
        EXPECT_NEAR(camera.truth().lightSeconds, static_cast<double>(row.ms) * 1e-3, 1e-9);
        clock.pass(row.ms * 1000);
        EXPECT_EQ(words(), "") << row.ms;
        clock.pass(21000);
        EXPECT_EQ(words(), "17 0F") << row.ms << ": the last pixel of the last row";
    }
}

TEST_F(ClassicCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    const struct {
        const char* frame;
        const char* complaint;
    } rows[] = {
        {"48 53", "no command"},
        {"43 4D 44 11 64", "no command"},
        {"48 53 43 50 64", "command 80 is unknown"},
        {"48 53 43 11", "with 0 bytes of payload"},
        {"48 53 43 04", "before the sensor was"},
        {"48 53 43 05", "without preparation"},
        {"48 53 43 42", "without an exposure"},
        {"48 53 43 02 01 00", "out of sequence"},
        {"48 53 43 02 02 00", "preparation 2"},
        {"48 53 43 06 00 01 01 01 00 01 00 19 00 11 00 00 03", "without exposure"},
        {"48 53 43 06 01 03 01 01 00 01 00 19 00 11 00 00 03", "binning 3 x 1"},
        {"48 53 43 06 01 01 01 01 00 01 00 1A 00 11 00 00 03", "leaves the sensor"},
        {"48 53 43 06 01 01 01 01 00 01 00 FF FF FF FF 00 03", "leaves the sensor"},
        {"48 53 43 06 01 01 01 00 00 01 00 19 00 11 00 00 03", "no sense"},
        {"48 53 43 06 01 01 01 05 00 01 00 04 00 11 00 00 03", "no sense"},
        {"48 53 43 06 01 01 01 01 00 01 00 19 00 11 00 00 02", "no sense"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(send(row.frame), HasSubstr(row.complaint)) << row.frame;

    for (const char* frame : {"48 53 43 02 00 00", "48 53 43 04", "48 53 43 05", "48 53 43 42"})
        EXPECT_EQ(send(frame), "");
    clock.pass(1999000);
    EXPECT_THAT(send("48 53 43 02 01 00"), HasSubstr("before the electronics have settled"));

    send("48 53 43 11 64");
    clock.pass(10000);
    EXPECT_THAT(send("48 53 43 11 65"), HasSubstr("2 bytes of the answer to command 17 were not fetched"));
    EXPECT_FALSE(camera.i2cWrite(0x41, hex("48 53 43 11 64")));
    camera.portChanged(0, {.latch = 0x00, .direction = 0x9F});
    EXPECT_THAT(send("48 53 43 36"), HasSubstr("do not enable the bus"));
}

TEST_F(ClassicCameraTest, BusNeedsTheLateWaveform)
{
    const auto table = [](const std::string& wave) {
        Bytes bytes = hex("01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 ") + hex(wave);
        bytes.resize(152);
        return bytes;
    };
    EXPECT_TRUE(camera.understandsWaveform(
        table("0E 01 01 3F 01 01 00 07 01 00 00 03 00 00 01 00 FB F9 FB FB FB FB FB FB 00 00 00 80 00 00 80 3F")));
    EXPECT_FALSE(camera.understandsWaveform(
        table("0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F")));
}

}  // namespace
}  // namespace vornsim::test
