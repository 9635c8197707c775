// SPDX-License-Identifier: MIT
// What cameras without the bridge that they hang on answer and complain about.
#include "device/families/family_cameras.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>

#include "device/bridge/parallel_bus.h"
#include "device/families/advanced_camera.h"
#include "device/families/classic_camera.h"
#include "device/families/quicker_camera.h"
#include "device/families/standard_camera.h"
#include "device_fixture.h"

namespace vornsim::test {
namespace {

/// A request and its answer in hex digits; the answer is empty where there is none.
struct Exchange {
    const char* label;
    const char* request;
    const char* answer;
    int64_t afterUs = 0;  ///< time that passes before the request
};

/// Something that the camera cannot serve, and a part of what it says to that.
struct Refusal {
    std::string request;
    const char* says;
    int lines = 1;
};

struct FamilyTest : ::testing::Test {
    /// Sends one request in the manner of the family. @return its answer.
    virtual std::string send(const Bytes& request, size_t answerLength) = 0;

    /// Sends requests, parted by semicolons. @return the last answer, or everything that was complained about.
    std::string exchange(const std::string& requests, size_t answerLength = 0)
    {
        std::istringstream in(requests);
        std::string answer;
        for (std::string request; std::getline(in, request, ';');)
            answer = send(hex(request), answerLength);
        const std::string complaints = log.takeComplaints();
        return complaints.empty() ? answer : complaints;
    }
    void expectAnswers(const std::vector<Exchange>& rows)
    {
        for (const Exchange& row : rows) {
            clock.pass(row.afterUs);
            EXPECT_EQ(exchange(row.request, hex(row.answer).size()), row.answer) << row.label;
        }
    }
    void expectComplaints(const std::vector<Refusal>& rows)
    {
        for (const Refusal& row : rows) {
            const std::string complaints = exchange(row.request);
            EXPECT_THAT(complaints, testing::HasSubstr(row.says)) << row.request;
            EXPECT_EQ(std::count(complaints.begin(), complaints.end(), '\n'), row.lines) << complaints;
        }
    }
    std::string takeWords(BusCamera& camera) const
    {
        const OfferedWords offered = camera.offeredWords(clock.nowUs());
        const Bytes bytes(offered.bytes.begin(), offered.bytes.end());
        camera.wordsTaken(bytes.size());
        return toHex(bytes);
    }

    ManualClock clock;
    CollectingLog log;
};

struct AdvancedCameraTest : FamilyTest {
    void SetUp() override
    {
        camera.portChanged(0, {.latch = 0x80, .direction = 0xE7});
        expectAnswers({{"start the application", "43 4D 44 2C", ""}, {"status of one byte", " ", "42"}});
        expectComplaints({{"43 4D 44 36 00 00", "before the application is up"}});
        expectAnswers({{"up", " ", "49", 160000}});
    }

    /// One SPI exchange; the answer comes behind the request.
    std::string send(const Bytes& request, size_t answerLength) override
    {
        Bytes in;
        camera.spiSelect();
        for (const uint8_t byte : request + Bytes(answerLength)) {
            in.push_back(camera.spiOutput());
            camera.spiInput(byte);
        }
        camera.spiDeselect();
        return toHex(Bytes(in.end() - static_cast<ptrdiff_t>(answerLength), in.end()));
    }

    AdvancedCamera camera{
        cameraModel(*findModel("K20")), {.serialNumber = 0x0001ABCD, .scene = SceneKind::RAMP}, clock, log};
};

TEST_F(AdvancedCameraTest, AnswersBehindThePayload)
{
    camera.setGpioInputs(0x21);
    expectAnswers({
        {"clear time 120 ms", "43 4D 44 91", "00 78"},
        {"serial number, low half", "43 4D 44 3E", "00 00 00 00 AB CD"},
        {"lines 0 to 3 are outputs", "43 4D 44 83 00 0F", ""},
        {"drive lines 0, 2 and 4", "43 4D 44 84 00 15", ""},
        {"lines 5 and 0 are high outside", "43 4D 44 82", "00 08 00 25"},
        {"set the gain", "43 4D 44 8C 00 19 00 58 12 07 00 0A 00 2B 00 58 0B 31 00 3F 02 00", ""},
        {"busy with it", "43 4D 44 8D", "01 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF"},
        {"prepare the sensor", "43 4D 44 02 00 00", ""},
        {"prepare the exposure", "43 4D 44 04", ""},
        {"clearing", "43 4D 44 FD 00 7B", "00 7B"},
        {"deaf meanwhile", "43 4D 44 50 00 7B", "FF FF"},
        {"cleared", "43 4D 44 50 00 7B", "00 7C", 100000},
    });
    EXPECT_EQ(camera.converter().setting(false).offset, 300U) << "code 0x2B stands for 257 + 43";
}

TEST_F(AdvancedCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    expectAnswers({{"relay 1", "43 4D 44 14", ""}});
    expectComplaints({
        {"43 4D", "no command"},
        {"43 4D 44 50 00 7B 00 00 00", "exchange of 9 bytes, not 8"},
        {"43 4D 44 15", "opposite directions"},
        {"43 4D 44 05", "without preparation"},
        {"43 4D 44 06 00 00 00 02 00 02 00 03 00 02 00 05 00 04 00 43", "without an exposure"},
        {"43 4D 44 06 00 32 00 02 00 02 00 03 00 02 00 05 00 04 10 03", "flags 16"},
        {"43 4D 44 06 0B B9 00 02 00 02 00 03 00 02 00 05 00 04 00 03", "exposure of 3001 ms"},
        {"43 4D 44 06 00 32 00 09 00 01 00 00 00 00 00 08 00 08 00 03", "binning 9 x 1"},
        {"43 4D 44 06 00 32 00 01 00 01 00 00 00 00 FF FF FF FF 00 03", "leaves the sensor"},
        {"43 4D 44 8C 00 19 00 58 12 08 00 0A 00 2B 00 58 0B 31 00 3F 02 00", "changed calibration"},
    });
    camera.portChanged(0, {.latch = 0x81, .direction = 0xE7});
    expectComplaints({{"43 4D 44 FD 00 7B 00 00", "line 0 not low"}});
}

struct ClassicCameraTest : FamilyTest {
    void SetUp() override
    {
        camera.portChanged(0, {.latch = 0x80, .direction = 0x9F});
        expectAnswers({{"start the application", "48 53 43 2C", ""}});
        EXPECT_EQ(takeWords(camera), "42 00");
        expectComplaints({{"48 53 43 36", "while the application starts"}});
        clock.pass(50000);
        EXPECT_EQ(takeWords(camera), "49 00");
    }

    /// One I2C write; an answer is fetched from the bus when it has had its time.
    std::string send(const Bytes& request, size_t answerLength) override
    {
        EXPECT_TRUE(camera.i2cStart(0x40, false));
        for (const uint8_t byte : request)
            EXPECT_TRUE(camera.i2cWrite(byte));
        camera.i2cStop();
        clock.pass(answerLength == 0 ? 0 : 80000);
        return answerLength == 0 ? "" : takeWords(camera);
    }

    ClassicCamera camera{cameraModel(*findModel("K30")), {.scene = SceneKind::RAMP}, clock, log};
};

TEST_F(ClassicCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    expectComplaints({
        {"48 53", "no command"},
        {"48 53 43 11", "with 0 bytes of payload"},
        {"48 53 43 05", "without preparation"},
        {"48 53 43 02 01 00", "out of sequence"},
        {"48 53 43 06 00 01 01 01 00 01 00 19 00 11 00 00 03", "without exposure"},
        {"48 53 43 06 01 03 01 01 00 01 00 19 00 11 00 00 03", "binning 3 x 1"},
        {"48 53 43 06 01 01 01 01 00 01 00 FF FF FF FF 00 03", "leaves the sensor"},
        {"48 53 43 06 01 01 01 00 00 01 00 19 00 11 00 00 03", "no sense"},
    });
    expectAnswers(
        {{"expose", "48 53 43 02 00 00; 48 53 43 04; 48 53 43 05", ""}, {"settle", "48 53 43 42", "", 1000000}});
    clock.pass(1999000);
    expectComplaints({{"48 53 43 02 01 00", "before the electronics have settled"}});
    expectAnswers({{"ping", "48 53 43 11 64", "64 00"}, {"ping", "48 53 43 11 64", ""}});
    expectComplaints({{"48 53 43 11 65", "2 bytes of the answer to command 17 were not fetched"}});
    camera.portChanged(0, {.latch = 0x00, .direction = 0x9F});
    expectComplaints({{"48 53 43 36", "do not enable the bus", 2}});
}

TEST_F(ClassicCameraTest, BusNeedsTheLateWaveform)
{
    for (const bool late : {true, false}) {
        const std::string opcodes = late ? "01 00 00 03" : "01 00 03 00";  // the other is the wave of other families
        const Bytes table = hex("01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 0E 01 3F 01 01 01 00 07 " + opcodes +
                                " 00 00 01 00 FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F 00 x104");
        EXPECT_EQ(understands(camera.parallelBus(), table), late);
    }
}

struct QuickerCameraTest : FamilyTest {
    void SetUp() override
    {
        camera.bridgeStarted();
        line(1, true);
        line(1, false);
        for (const unsigned word : {0x0058U, 0x10C0U, 0x2000U, 0x3000U, 0x4000U, 0x5020U, 0x6115U, 0x7001U})
            EXPECT_EQ(clockIn(word, 16), "");
    }
    void line(unsigned number, bool level)
    {
        latch = static_cast<uint8_t>((latch & ~(1U << number)) | (level ? 1U << number : 0U));
        camera.portChanged(0, {.latch = latch, .direction = 0xE7});
    }
    /// One word for the converter. @return what was complained about.
    std::string clockIn(unsigned word, unsigned bits)
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
        return log.takeComplaints();
    }
    /// Register writes, two bytes each, which nothing answers.
    std::string send(const Bytes& registers, size_t /*answerLength*/) override
    {
        for (size_t at = 0; at < registers.size(); at += 2) {
            camera.spiSelect();
            camera.spiInput(registers[at]);
            camera.spiInput(registers[at + 1]);
            camera.spiDeselect();
        }
        return "";
    }

    uint8_t latch = 0x84;
    QuickerCamera camera{cameraModel(*findModel("K01")), CameraOptions{}, clock, log};
};

TEST_F(QuickerCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    expectComplaints({
        {"24 A0 53 E8", "readout without exposure"},
        {"22 00 50 00", "without clearing"},
        {"80 40 80 40", "binning 5 x 1", 2},
        {"81 10 27 A0 50 01", "not written twice"},
        {"24 00 50 00 22 00 50 00 80 00 80 00 24 A0 53 E7", "argument 999"},
    });
    line(2, false);
    expectComplaints({{"20 00", "while the converter is selected"}});
    EXPECT_EQ(clockIn(0, 16), "camera: converter: more words than it has registers\n");
    camera.bridgeStarted();
    EXPECT_EQ(clockIn(0x002C, 15), "camera: converter: a word of 15 bits\n");
    EXPECT_EQ(clockIn(0x0059, 16), "camera: converter: word 0 is 89, not 88\n");
    expectComplaints({{"20 00", "before a reset on line 1"}, {"27 A0 50 01", "before the converter was set up", 3}});
}

struct StandardCameraTest : FamilyTest {
    /// A code and its payload over the parallel bus.
    std::string send(const Bytes& command, size_t /*answerLength*/) override
    {
        camera.wordsReceived(hex("43 00 4D 00 44 00") + Bytes{command[0], 0} +
                             Bytes(command.begin() + 1, command.end()));
        return "";
    }

    StandardCamera camera{cameraModel(*findModel("K12")), {.scene = SceneKind::RAMP}, clock, log};
};

TEST_F(StandardCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    const std::string expose = "02 00 00; 04; 05;";
    camera.portChanged(0, {.latch = 0x80, .direction = 0x9F});
    expectComplaints({{"35", "command 53 before the application was started"}});
    camera.wordsReceived(hex("43 4D 44 05 00 00 00 00"));
    EXPECT_EQ(log.takeComplaints(), "camera: no command: 8 bytes\n");
    EXPECT_EQ(exchange("2C"), "");
    clock.pass(100000);
    EXPECT_EQ(takeWords(camera), "49 00");
    const Refusal cases[] = {
        {"42", "unknown command 66"},
        {"09", "command 9 lacks its payload"},
        {"35; 18", "6 bytes of the answer to command 53 were not fetched before command 24"},
        {"05", "exposure started without preparation"},
        {"02 01 00", "sensor preparation 1 out of sequence"},
        {"06 00 00 01 00 01 00 05 00 03 00 28 00 1E 00 43 00", "readout without exposure"},
        {expose + "06 00 00 01 00 01 00 05 00 03 00 28 00 1E 00 43 00", "readout without exposure"},
        {expose + "02 01 00; 06 00 00 01 00 01 00 05 00 03 00 28 00 1E 00 43 04", "readout with flags 1091"},
        {expose + "06 0A 00 01 00 01 00 05 00 03 00 28 00 1E 00 03 00", "readout with flags 3"},
        {expose + "06 0A 00 05 00 01 00 05 00 03 00 28 00 1E 00 43 00", "binning 5 x 1 is not possible"},
        {expose + "06 0A 00 00 00 01 00 05 00 03 00 28 00 1E 00 43 00", "binning 0 x 1 is not possible"},
        {expose + "06 0A 00 01 00 01 00 00 00 00 00 71 05 01 00 43 00",
         "region 1393 x 1 at 0, 0 is empty or leaves the sensor"},
        {"09 02 00", "shutter set to 2"},
        {"14; 15; 18", "guide relays closed in opposite directions"},
    };
    for (const auto& row : cases) {
        expectComplaints({row});
        clock.pass(30'000'000);
        EXPECT_EQ(takeWords(camera), "") << row.request << ": nothing to read";
    }
    expectComplaints({{expose + "09 01 00; 02 01 00; 06 00 00 01 00 01 00 05 00 03 00 01 00 01 00 43 00",
                       "readout with the shutter open"}});
    camera.portChanged(0, {.latch = 0x80, .direction = 0xFE});
    expectComplaints({{"18", "words on a bus that port A does not enable"}});
}

// Registers of the IIDC family and their four bytes, the lowest first.
const std::string INITIALISE = "00 00 00 00 00 80;";
const std::string RATE_7_5 = "09 68 00 00 F0 40;";
const std::string SHUTTER_100_MS = "09 18 CD CC CC 3D;";
const std::string FORMAT_2 = "06 08 00 00 00 40;";
const std::string MODE_2 = "06 04 00 00 00 40;";
const std::string ONE_SHOT = "06 1C 00 00 00 80;";

struct IidcCameraTest : FamilyTest {
    ControlResult access(uint8_t type, unsigned offset, Bytes& data)
    {
        const auto length = static_cast<uint16_t>(data.size());
        return camera->control({type, 0x7F, static_cast<uint16_t>(offset), 0xF0F0, length}, data);
    }
    /// A register's offset, and its value when it is written.
    std::string send(const Bytes& request, size_t answerLength) override
    {
        Bytes data = Bytes(request.begin() + 2, request.end()) + Bytes(answerLength);
        data.resize(access(answerLength == 0 ? 0x40 : 0xC0, request[0] * 256U + request[1], data).length);
        return answerLength == 0 ? "" : toHex(data);
    }
    /// Brings the camera up and takes shutter, frame rate and gain under manual control.
    void start()
    {
        EXPECT_EQ(exchange(INITIALISE), "");
        clock.pass(1000);
        EXPECT_EQ(exchange("08 1C 00 00 00 C2; 08 3C 00 00 00 C2; 08 20 00 00 00 C2"), "");
    }

    std::unique_ptr<SimulatedCamera> camera =
        makeCamera(cameraModel(*findModel("XRM")), {.serialNumber = 0x01020304, .scene = SceneKind::RAMP}, clock, log);
};

TEST_F(IidcCameraTest, RegistersReadBack)
{
    start();
    EXPECT_EQ(exchange(RATE_7_5 + SHUTTER_100_MS), "");
    clock.pass(3724999000);
    expectAnswers({
        {"serial number", "1F 20", "04 03 02 01"},
        {"up for 3725 s", "12 E0", "8D 0E 00 10"},
        {"15 degrees outside and 9 more inside: 2971 tenths of a kelvin", "08 2C", "9B 0B 00 80"},
        {"the longest shutter time, 0.133282 s", "09 14", "14 7B 08 3E"},
        {"the shutter time", "09 18", "CD CC CC 3D"},
    });
}

TEST_F(IidcCameraTest, FrameComesAfterTheShutterTimeInWholePackets)
{
    start();
    EXPECT_EQ(exchange(RATE_7_5 + SHUTTER_100_MS + FORMAT_2 + MODE_2 + ONE_SHOT), "");
    clock.pass(99990);
    Bytes frame(size_t{1280} * 960);
    EXPECT_NEAR(static_cast<double>(camera->bulkIn(0x81, frame).retryAtUs - clock.nowUs()), 10.0, 1.0);
    clock.pass(20);
    const std::span<uint8_t> pieces(frame);
    for (size_t at = 0; at < frame.size(); at += 1024)
        ASSERT_TRUE(camera->bulkIn(0x81, pieces.subspan(at, 1024)).complete);
    EXPECT_TRUE(std::ranges::equal(camera->truth().lastImage, frame));
    EXPECT_NEAR(camera->truth().lightSeconds, 0.1, 1e-6);
    EXPECT_FALSE(camera->bulkIn(0x81, frame).complete) << "one shot is one frame";

    EXPECT_EQ(exchange(ONE_SHOT), "");
    clock.pass(200000);
    EXPECT_EQ(camera->bulkIn(0x81, pieces.first(700)).status, TransferStatus::BABBLE);
    EXPECT_EQ(log.takeComplaints(), "the host's buffer ends within a packet\n");
}

TEST_F(IidcCameraTest, ComplainsAboutWhatItCannotDo)
{
    const Refusal cases[] = {
        {FORMAT_2 + MODE_2 + ONE_SHOT, "without a shutter time"},
        {RATE_7_5 + SHUTTER_100_MS + ONE_SHOT, "supported video mode (format 0, mode 0)"},
        {RATE_7_5 + SHUTTER_100_MS + "06 08 00 00 00 00;" + MODE_2 + ONE_SHOT, "video mode (format 0, mode 2)"},
        {RATE_7_5 + SHUTTER_100_MS + "09 68 00 00 70 41;" + SHUTTER_100_MS, "longer than the 0.066657 s"},
        {"09 68 00 00 20 41", "10.000000 becomes 7.500000"},
        {RATE_7_5 + "08 1C 00 00 00 82;" + SHUTTER_100_MS, "without manual absolute control"},
        {"09 28 00 00 C8 42", "gain of 100.0"},
        {RATE_7_5 + SHUTTER_100_MS + FORMAT_2 + MODE_2 + ONE_SHOT + ONE_SHOT, "during an exposure"},
    };
    for (const auto& row : cases) {
        start();
        expectComplaints({row});
    }
    expectComplaints({{INITIALISE + RATE_7_5, "while the camera initialises itself", 2}});
    for (const size_t length : {0U, 3U, 5000U}) {
        Bytes data(length);
        EXPECT_EQ(access(0x40, 0x81C, data).status, TransferStatus::STALL) << length;
    }
}

}  // namespace
}  // namespace vornsim::test
