// SPDX-License-Identifier: MIT
#include "device/advanced_camera.h"

#include <gmock/gmock.h>

#include <memory>

#include "bridge_host.h"

namespace vornsim::test {
namespace {

using ::testing::HasSubstr;

CameraModel smallModel()
{
    CameraModel model;
    model.info = {"T1", 0xDF3B, "ADVANCED", 24, 16, false};
    model.describedX = 24;
    model.describedY = 16;
    model.pixelSizeX = model.pixelSizeY = 645;
    model.maxBinX = model.maxBinY = 4;
    model.cooler = CoolerKind::SET_POINT;
    model.minCoolerPower = 10;
    model.maxCoolerPower = 200;
    model.sensorEncoding = 2;
    model.sensorCount = 2;
    model.guidePort = model.gpio = model.eightBit = true;
    model.filterCount = 5;
    model.versionMajor = 2;
    model.versionMinor = 7;
    model.wellCapacity = 18000;
    return model;
}

class AdvancedCameraTest : public ::testing::Test {
protected:
    void SetUp() override { power(smallModel()); }
    void power(const CameraModel& model)
    {
        camera = std::make_unique<AdvancedCamera>(
            model, CameraOptions{.serialNumber = 0x0001ABCD, .scene = SceneKind::RAMP}, clock, log);
        camera->portChanged(0, {.latch = 0x80, .direction = 0xE7});
        send("43 4D 44 2C");
        clock.pass(200000);
    }

    /// One SPI exchange. @return the answer, or what was complained about.
    std::string send(const std::string& frame, size_t replyLength = 0)
    {
        Bytes out = hex(frame);
        const size_t head = out.size();
        out.resize(head + replyLength, 0x00);
        Bytes in(out.size(), 0xFF);
        (void)camera->spiExchange({2, 3, 1}, out, in);
        const std::string complaints = log.takeComplaints();
        return complaints.empty() ? toHex(Bytes(in.begin() + static_cast<std::ptrdiff_t>(head), in.end())) : complaints;
    }

    /// @return the words on the bus by now, which are taken.
    std::string words()
    {
        const OfferedWords offered = camera->offeredWords(clock.nowUs());
        const Bytes bytes(offered.bytes.begin(), offered.bytes.end());
        camera->wordsTaken(bytes.size());
        return toHex(bytes);
    }

    /// Several commands without answers. @return what was complained about.
    std::string sendAll(std::initializer_list<const char*> frames)
    {
        std::string complaints;
        for (const char* frame : frames)
            complaints += send(frame);
        return complaints;
    }

    ManualClock clock;
    CollectingLog log;
    std::unique_ptr<AdvancedCamera> camera;
};

TEST_F(AdvancedCameraTest, AnswersBehindThePayload)
{
    const struct {
        const char* label;
        const char* frame;
        size_t replyLength;
        const char* answer;
    } rows[] = {
        {"kernel ping", "43 4D 44 FD 00 7B", 2, "00 7B"},
        {"ping", "43 4D 44 50 00 7B", 2, "00 7C"},
        {"clear time 120 ms", "43 4D 44 91", 2, "00 78"},
        {"two sensors", "43 4D 44 36", 2, "00 02"},
        {"15 degrees, 12 bits", "43 4D 44 37 00 01", 6, "00 02 03 A3 00 00"},
        {"cooler: set point or switched; 200, 10", "43 4D 44 34", 6, "00 14 00 C8 00 0A"},
        {"not cooling", "43 4D 44 35", 8, "00 0A 00 00 03 A3 00 00"},
        {"cool to -10 degrees", "43 4D 44 38 02 6C", 2, "00 01"},
        {"full power, regulating", "43 4D 44 35", 8, "00 C8 00 C0 02 6C 00 00"},
        {"warm up", "43 4D 44 39", 0, ""},
        {"serial number, low half", "43 4D 44 3E", 6, "00 00 00 00 AB CD"},
        {"wheel looks for position 1", "43 4D 44 87", 8, "00 05 00 01 00 01 00 01"},
        {"no filter 6", "43 4D 44 88 00 06", 2, "00 00"},
        {"filter 2", "43 4D 44 88 00 02", 2, "00 01"},
        {"lines 0 to 3 are outputs", "43 4D 44 83 00 0F", 0, ""},
        {"drive lines 0, 2 and 4", "43 4D 44 84 00 15", 0, ""},
        {"lines 5 and 0 are high outside", "43 4D 44 82", 4, "00 08 00 25"},
    };
    camera->setGpioInputs(0x21);
    for (const auto& row : rows)
        EXPECT_EQ(send(row.frame, row.replyLength), row.answer) << row.label;
    EXPECT_EQ(camera->gpioOutputs(), 0x05);
    EXPECT_THAT(send("43 4D 44 01", 128),
                testing::StartsWith("00 07 00 02 00 54 00 31 00 00 00 56 00 6F 00 72 00 6E 00 00 "
                                    "1A 18 00 18 00 10 02 85 02 85 00 04 00 04 46 50 00"));
    clock.pass(6000000);
    EXPECT_EQ(send("43 4D 44 87", 8), "00 05 00 01 00 01 00 02");
    clock.pass(1000000);
    EXPECT_EQ(send("43 4D 44 87", 8), "00 05 00 00 00 02 00 02");
    CameraModel bare = smallModel();
    bare.guidePort = bare.eightBit = false;
    bare.filterCount = 0;
    power(bare);
    EXPECT_EQ(send("43 4D 44 01", 128).substr(60, 5), "03 18") << "GPIO, but no guide port";
}

TEST_F(AdvancedCameraTest, ApplicationTakesTimeToStart)
{
    const auto status = [&] {
        Bytes in{0xFF};
        (void)camera->spiExchange({2, 3, 1}, Bytes{0x42}, in);
        return in[0];
    };
    send("43 4D 44 2C");
    EXPECT_NE(status(), 'I');
    EXPECT_THAT(send("43 4D 44 36", 2), HasSubstr("before the application is up"));
    EXPECT_EQ(send("43 4D 44 50 00 7B", 2), "00 7C") << "pings are answered at any time";
    clock.pass(160000);
    EXPECT_EQ(status(), 'I');
    EXPECT_EQ(log.takeComplaints(), "");
}

TEST_F(AdvancedCameraTest, RunningExposureEndsAfterTheClearTime)
{
    EXPECT_EQ(sendAll({"43 4D 44 02 00 00", "43 4D 44 04"}), "");
    EXPECT_EQ(send("43 4D 44 FD 00 7B", 2), "00 7B");
    EXPECT_EQ(send("43 4D 44 50 00 7B", 2), "FF FF") << "deaf while it clears the sensor";
    clock.pass(100000);
    EXPECT_EQ(send("43 4D 44 50 00 7B", 2), "00 7C");
    EXPECT_EQ(send("43 4D 44 05"), "");
    EXPECT_TRUE(camera->truth().integrating);
    clock.pass(880000);
    // Region 5 x 4 at 3, 2, binned 2 x 2: three columns, the last one half beside the region, and two rows.
    EXPECT_EQ(send("43 4D 44 06 00 00 00 02 00 02 00 03 00 02 00 05 00 04 00 43"), "");
    EXPECT_NEAR(camera->truth().lightSeconds, 1.0, 1e-9);
    clock.pass(119000);
    EXPECT_EQ(words(), "");
    clock.pass(2000);
    EXPECT_EQ(words(), "FF FF FF FF 03 02 05 02 07 02 03 04 05 04 07 04");
    EXPECT_THAT(camera->truth().lastImage, testing::ElementsAre(0x203, 0x205, 0x207, 0x403, 0x405, 0x407));
}

TEST_F(AdvancedCameraTest, TimedExposures)
{
    // The same region as above; 8-bit rows have an even number of columns and two samples a word.
    const std::string region = "00 02 00 02 00 03 00 02 00 05 00 04 ";
    const struct {
        const char* label;
        std::string command;
        int64_t us;
        const char* words;
    } rows[] = {
        {"500 us", "43 4D 44 06 01 F4 " + region + "04 03", 500, "FF FF FF FF 03 02 05 02 07 02 03 04 05 04 07 04"},
        {"50 ms", "43 4D 44 06 00 32 " + region + "00 03", 50000, "FF FF FF FF 03 02 05 02 07 02 03 04 05 04 07 04"},
        {"8 bits", "43 4D 44 06 00 32 " + region + "20 03", 50000, "FF FF 01 07 05 0B 07 01 03 0D"},
        {"preview", "43 4D 44 06 00 32 " + region + "01 03", 50000, "FF FF FF FF 03 02 05 02 07 02 03 04 05 04 07 04"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(send(row.command), "") << row.label;
        EXPECT_NEAR(camera->truth().lightSeconds, static_cast<double>(row.us) * 1e-6, 1e-9) << row.label;
        clock.pass(row.us - 1);
        EXPECT_EQ(words(), "") << row.label;
        clock.pass(10);
        EXPECT_EQ(words(), row.words) << row.label;
    }
}

TEST_F(AdvancedCameraTest, GainRecordIsBusyAfterEachChange)
{
    const auto readGain = [&] {
        std::string record = "01";
        int reads = 0;
        for (; record.starts_with("01") && reads < 10; ++reads)
            record = send("43 4D 44 8D", 16);
        EXPECT_GT(reads, 1);
        return record;
    };
    EXPECT_EQ(readGain(), "00 58 12 07 00 00 01 00 00 58 0B 31 00 00 01 00");
    EXPECT_EQ(send("43 4D 44 8C 00 19 00 58 12 07 00 0A 00 2B 00 58 0B 31 00 3F 02 00"), "");
    EXPECT_EQ(camera->converter().setting(false).gain, 10U);
    EXPECT_EQ(camera->converter().setting(false).offset, 300U) << "code 0x2B stands for 257 + 43";
    EXPECT_EQ(camera->converter().setting(true).offset, 0U) << "code 0x200";
    EXPECT_EQ(readGain(), "00 58 12 07 00 0A 00 2B 00 58 0B 31 00 3F 02 00");
    int busy = 0;
    for (int i = 0; i < 50; ++i)
        busy += send("43 4D 44 8D", 16).starts_with("01") ? 1 : 0;
    EXPECT_THAT(busy, testing::AllOf(testing::Gt(0), testing::Lt(10))) << "now and then besides";
}

TEST_F(AdvancedCameraTest, RelaysMoveTheStars)
{
    EXPECT_EQ(sendAll({"43 4D 44 18", "43 4D 44 14", "43 4D 44 17"}), "");
    clock.pass(500000);
    EXPECT_EQ(send("43 4D 44 18"), "");
    clock.pass(500000);
    EXPECT_NEAR(camera->truth().driftX, 2.0, 1e-9);
    EXPECT_NEAR(camera->truth().driftY, -2.0, 1e-9);
    send("43 4D 44 14");
    EXPECT_THAT(send("43 4D 44 15"), HasSubstr("opposite directions"));
}

TEST_F(AdvancedCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    const std::string region = "00 02 00 02 00 03 00 02 00 05 00 04 ";
    const struct {
        const char* frame;
        size_t replyLength;
        const char* complaint;
    } rows[] = {
        {"43 4D 45 50 00 7B", 2, "no command"},
        {"43 4D", 0, "no command"},
        {"43 4D 44 63", 0, "command 99 is unknown"},
        {"43 4D 44 50 00 7B", 3, "exchange of 9 bytes, not 8"},
        {"43 4D 44 36", 0, "exchange of 4 bytes, not 6"},
        {"43 4D 44 37 00 03", 6, "no temperature sensor 3"},
        {"43 4D 44 05", 0, "without preparation"},
        {"43 4D 44 04", 0, "before the sensor"},
        {"43 4D 44 06 00 00 00 02 00 02 00 03 00 02 00 05 00 04 00 43", 0, "without an exposure"},
        {"43 4D 44 06 00 32 00 02 00 02 00 03 00 02 00 05 00 04 00 44", 0, "mode 68"},
        {"43 4D 44 06 00 32 00 02 00 02 00 03 00 02 00 05 00 04 10 03", 0, "flags 16"},
        {"43 4D 44 06 00 00 00 02 00 02 00 03 00 02 00 05 00 04 00 03", 0, "exposure of 0 ms"},
        {"43 4D 44 06 0B B9 00 02 00 02 00 03 00 02 00 05 00 04 00 03", 0, "exposure of 3001 ms"},
        {"43 4D 44 06 00 32 00 05 00 01 00 00 00 00 00 08 00 08 00 03", 0, "binning 5 x 1"},
        {"43 4D 44 06 00 32 00 01 00 01 00 14 00 00 00 05 00 08 00 03", 0, "leaves the sensor"},
        {"43 4D 44 06 00 32 00 01 00 01 00 00 00 00 FF FF FF FF 00 03", 0, "leaves the sensor"},
        {"43 4D 44 8C 00 18 00 58 12 07 00 0A 00 2B 00 58 0B 31 00 3F 02 00", 0, "leading 25"},
        {"43 4D 44 8C 00 19 01 58 12 07 00 0A 00 2B 00 58 0B 31 00 3F 02 00", 0, "not valid"},
        {"43 4D 44 8C 00 19 00 58 12 08 00 0A 00 2B 00 58 0B 31 00 3F 02 00", 0, "changed calibration"},
        {"43 4D 44 8C 00 19 00 58 12 07 00 40 00 2B 00 58 0B 31 00 3F 02 00", 0, "gain 64"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(send(row.frame, row.replyLength), HasSubstr(row.complaint)) << row.frame;
    camera->portChanged(0, {.latch = 0x81, .direction = 0xE7});
    EXPECT_THAT(send("43 4D 44 FD 00 7B", 2), HasSubstr("line 0 not low"));
}

TEST_F(AdvancedCameraTest, BusTakesTheSlowWaveform)
{
    // The 32 bytes of the wave that reads words: durations, opcodes, outputs, logic of eight states each.
    const auto table = [](const std::string& head, const std::string& wave) {
        Bytes bytes = hex(head) + hex(wave);
        bytes.resize(152);
        return bytes;
    };
    const std::string head = "01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 ";
    const std::string early =
        "0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F";
    const std::string noStrobe =
        "0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 FB FB FB FB FB FB FB FB 00 00 80 00 00 00 80 3F";
    EXPECT_TRUE(camera->understandsWaveform(table(head, early)));
    EXPECT_FALSE(camera->understandsWaveform(table(head, noStrobe)));
    EXPECT_FALSE(camera->understandsWaveform(table("01 EE FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 ", early)));
    EXPECT_FALSE(camera->understandsWaveform(handshakeTable()));
    EXPECT_FALSE(camera->understandsWaveform({}));
}

}  // namespace
}  // namespace vornsim::test
