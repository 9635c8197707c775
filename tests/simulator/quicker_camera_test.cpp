// SPDX-License-Identifier: MIT
#include "device/quicker_camera.h"

#include <gmock/gmock.h>

#include <memory>

#include "bridge_host.h"
#include "device/family_cameras.h"

namespace vornsim::test {
namespace {

using ::testing::HasSubstr;

CameraModel smallModel(bool prechargePairs, uint8_t prechargeCode)
{
    CameraModel model;
    model.info = {"T3", 0xDF2E, "QUICKER", 5, 3, false};
    model.describedX = 5;
    model.describedY = 3;
    model.pixelSizeX = 645;
    model.pixelSizeY = 740;
    model.maxBinX = model.maxBinY = 2;
    model.guidePort = true;
    model.prechargePairs = prechargePairs;
    model.prechargeCode = prechargeCode;
    return model;
}

/// The words that converters of this kind want, one a selection.
constexpr uint16_t WORDS[] = {0x0058, 0x10C0, 0x2000, 0x3000, 0x4000, 0x5020, 0x6115, 0x7001};

/// A camera and the lines that lead to it.
class QuickerCameraTest : public ::testing::Test {
protected:
    void power(const CameraModel& model)
    {
        camera = std::make_unique<QuickerCamera>(model, CameraOptions{.scene = SceneKind::RAMP}, clock, log);
        camera->bridgeStarted();
        direction = 0x9F;
        latch = 0x80;
        change();
        direction = 0xE7;
        change();
        latch = 0xC0;
        change();
        line(1, true);
        line(1, false);
        line(2, true);
    }
    void SetUp() override
    {
        power(smallModel(false, 0));
        for (const uint16_t word : WORDS)
            clockIn(word);
        EXPECT_EQ(log.takeComplaints(), "");
    }
    void change() { camera->portChanged(0, {latch, direction}); }
    void line(unsigned number, bool level)
    {
        latch = static_cast<uint8_t>((latch & ~(1U << number)) | (level ? 1U << number : 0U));
        change();
    }
    void clockIn(unsigned word, unsigned bits = 16)
    {
        line(6, false);
        line(2, false);
        for (unsigned bit = bits; bit-- > 0;) {
            line(5, ((word >> bit) & 1) != 0);
            line(6, true);
            line(5, ((word >> bit) & 1) == 0);  // only the rising edge counts
            line(6, false);
        }
        line(2, true);
    }
    /// Register writes, two bytes each. @return what was complained about.
    std::string write(const std::string& registers)
    {
        const Bytes bytes = hex(registers);
        Bytes in(2);
        for (size_t at = 0; at + 1 < bytes.size(); at += 2)
            (void)camera->spiExchange({1, 0, 1}, std::span(bytes).subspan(at, 2), in);
        return log.takeComplaints();
    }
    bool busy() { return (camera->portInputs(0) & 0x10) != 0; }
    std::string words()
    {
        const OfferedWords offered = camera->offeredWords(clock.nowUs());
        const Bytes bytes(offered.bytes.begin(), offered.bytes.end());
        camera->wordsTaken(bytes.size());
        return toHex(bytes);
    }

    ManualClock clock;
    CollectingLog log;
    uint8_t direction = 0;
    uint8_t latch = 0;
    std::unique_ptr<QuickerCamera> camera;
};

TEST_F(QuickerCameraTest, RunningExposure)
{
    EXPECT_EQ(write("24 20 50 00"), "");
    clock.pass(200000);
    EXPECT_EQ(write("22 00 50 00"), "");
    clock.pass(900000);
    EXPECT_TRUE(camera->truth().integrating);
    EXPECT_EQ(write("81 00 81 00 24 A0"), "");  // binning 1 x 2
    clock.pass(100000);
    EXPECT_FALSE(busy());
    EXPECT_EQ(write("53 E8"), "");
    EXPECT_TRUE(busy());
    EXPECT_EQ(words(), "");
    EXPECT_NEAR(camera->truth().lightSeconds, 1.0, 1e-9);
    clock.pass(5100);
    EXPECT_FALSE(busy());
    EXPECT_EQ(words(), "FF FF 00 00 01 00 02 00 03 00 04 00") << "a dummy word, then five columns and one row";
}

TEST_F(QuickerCameraTest, TimedExposureOfTheWholeFrame)
{
    EXPECT_EQ(write("80 00 80 00 27 A0 51 24"), "");  // 292 units
    EXPECT_NEAR(camera->truth().lightSeconds, 0.099669, 1e-6);
    clock.pass(99600);
    EXPECT_TRUE(busy());
    clock.pass(6000);
    EXPECT_FALSE(busy());
    EXPECT_EQ(words(),
              "FF FF 00 00 01 00 02 00 03 00 04 00 00 01 01 01 02 01 03 01 04 01 00 02 01 02 02 02 03 02 04 02");
}

TEST_F(QuickerCameraTest, PrechargePairsDifferByHalfTheValue)
{
    const struct {
        uint8_t code;
        int offset;
    } rows[] = {{8, 256}, {0, 0}, {0xFF, -32}, {127, 4064}};
    for (const auto& row : rows) {
        power(smallModel(true, row.code));
        for (const uint16_t word : WORDS)
            clockIn(word);
        EXPECT_EQ(write("80 00 80 00 27 A0 50 01"), "");
        clock.pass(10000);
        const Bytes bytes = hex(words());
        ASSERT_EQ(bytes.size(), 2U + 5 * 3 * 4);
        std::vector<int> values;
        for (size_t i = 2; i < bytes.size(); i += 4) {
            const int reset = bytes[i] + bytes[i + 1] * 256;
            const int signal = bytes[i + 2] + bytes[i + 3] * 256;
            values.push_back(row.offset + 2 * (signal - reset));
        }
        EXPECT_THAT(values, testing::ElementsAre(0, 0, 2, 2, 4, 256, 256, 258, 258, 260, 512, 512, 514, 514, 516));
        EXPECT_THAT(camera->truth().lastImage, testing::ElementsAreArray(values));
    }
}

TEST_F(QuickerCameraTest, RelaysRideOnTheControlRegister)
{
    EXPECT_EQ(write("20 01"), "");
    clock.pass(250000);
    EXPECT_EQ(write("24 29 50 00"), "");  // clear, relays 0 and 3
    clock.pass(250000);
    EXPECT_EQ(write("22 00 50 00"), "");
    EXPECT_NEAR(camera->truth().driftX, 2.0, 1e-9);
    EXPECT_NEAR(camera->truth().driftY, -1.0, 1e-9);
    EXPECT_EQ(write("20 04"), "") << "a guide pulse during the exposure";
    clock.pass(500000);
    EXPECT_EQ(write("20 00 80 00 80 00 24 A0 53 E8"), "");
    EXPECT_NEAR(camera->truth().driftY, 1.0, 1e-9);
    EXPECT_NEAR(camera->truth().lightSeconds, 0.5, 1e-9);
}

TEST_F(QuickerCameraTest, ConverterChecksEveryBit)
{
    const struct {
        const char* label;
        std::vector<std::pair<unsigned, unsigned>> words;  ///< value and bit count
        const char* complaint;
    } rows[] = {
        {"one bit wrong", {{0x0059, 16}}, "word 0 is 89, not 88"},
        {"second word first", {{0x10C0, 16}}, "word 0 is 4288"},
        {"a bit short", {{0x002C, 15}}, "a word of 15 bits"},
        {"too long", {{0x0058, 17}}, "a word of 17 bits"},
    };
    for (const auto& row : rows) {
        power(smallModel(false, 0));
        for (const auto& [word, bits] : row.words)
            clockIn(word, bits);
        EXPECT_THAT(log.takeComplaints(), HasSubstr(row.complaint)) << row.label;
    }
    power(smallModel(false, 0));
    for (const uint16_t word : WORDS)
        clockIn(word);
    clockIn(0);
    EXPECT_EQ(log.takeComplaints(), "camera: converter: more words than it has registers\n");
}

TEST_F(QuickerCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    const struct {
        const char* registers;
        const char* complaint;
    } rows[] = {
        {"30 00", "unknown register 3"},
        {"50 00", "start with 0 in register 2"},
        {"24 30 50 00", "start with 1072"},
        {"24 A0 53 E8", "readout without exposure"},
        {"22 00 50 00", "without clearing"},
        {"24 00 50 01", "start with argument 1"},
        {"80 20 80 20", "binning 3 x 1"},
        {"80 01 80 01", "is not possible"},
        {"81 10 27 A0 50 01", "not written twice"},
        {"80 00 80 00 27 A0 50 00", "without a time"},
        {"24 00 50 00 22 00 50 00 80 00 80 00 24 A0 53 E7", "argument 999"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(write(row.registers), HasSubstr(row.complaint)) << row.registers;
    line(2, false);
    EXPECT_THAT(write("20 00"), HasSubstr("while the converter is selected"));
    power(smallModel(false, 0));
    EXPECT_THAT(write("80 00 80 00 27 A0 50 01"), HasSubstr("before the converter was set up"));
    camera->bridgeStarted();
    EXPECT_THAT(write("20 00"), HasSubstr("before a reset on line 1"));
    Bytes in(3);
    (void)camera->spiExchange({1, 0, 1}, hex("20 00 00"), in);
    EXPECT_THAT(log.takeComplaints(), HasSubstr("no register write"));
}

TEST_F(QuickerCameraTest, DescriptionIsInTheEeprom)
{
    const auto usb = makeQuickerCamera(smallModel(true, 8), {.serialNumber = 0x00011234}, clock, log);
    BridgeHost host(*usb, clock);
    host.start();
    const auto eeprom = [&](const std::string& address, uint8_t length) {
        host.request("04 00 FF 00 00 00 01 00", hex("A2 00 " + address));
        host.reply(4);
        host.request("04 00 FF 00 00 00 01 00", hex("A3"), length);
        return host.reply(size_t{length} + 4).substr(3, size_t{length} * 3 - 1);
    };
    EXPECT_EQ(eeprom("03", 2), "2E DF");
    EXPECT_EQ(eeprom("05", 2), "34 12");
    EXPECT_EQ(eeprom("08", 2), "01 00");
    EXPECT_EQ(eeprom("0A", 16), "00 58 10 C0 20 00 30 00 40 00 50 20 61 15 70 01");
    EXPECT_EQ(eeprom("2A", 21), "00 01 54 33 00 56 6F 72 6E 00 05 05 00 03 00 41 4A 02 02 08 FF");
    EXPECT_EQ(log.takeComplaints(), "");
}

}  // namespace
}  // namespace vornsim::test
