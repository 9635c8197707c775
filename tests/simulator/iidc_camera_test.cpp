// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>

#include "device/family_cameras.h"
#include "family_fixture.h"

namespace vornsim::test {
namespace {

class IidcCameraTest : public ::testing::Test {
protected:
    /// One register access with the setup packet as a host puts it on the wire.
    bool access(uint8_t type, uint16_t offset, std::vector<uint8_t>& data)
    {
        const ControlResult result =
            camera->control({type, 0x7F, offset, 0xF0F0, static_cast<uint16_t>(data.size())}, data);
        return result.status == TransferStatus::OK && result.length == 4;
    }
    bool write(uint16_t offset, std::vector<uint8_t> littleEndian) { return access(0x40, offset, littleEndian); }
    std::vector<uint8_t> read(uint16_t offset)
    {
        std::vector<uint8_t> data(4, 0xEE);
        return access(0xC0, offset, data) ? data : std::vector<uint8_t>{};
    }

    /// What a host sends to bring the camera up.
    void bringUp()
    {
        write(0x000, {0x00, 0x00, 0x00, 0x80});
        clock.pass(1000);
        write(0x81C, {0x00, 0x00, 0x00, 0xC2});
        write(0x83C, {0x00, 0x00, 0x00, 0xC2});
        write(0x804, {0x00, 0x00, 0x00, 0xC0});
        write(0x800, {0x00, 0x00, 0x00, 0xC2});
        write(0x938, {0x00, 0x00, 0x00, 0x40});  // brightness 2.0
        write(0x818, {0x00, 0x00, 0x00, 0xC2});
        write(0x948, {0x00, 0x00, 0x80, 0x3F});  // gamma 1.0
        write(0x820, {0x00, 0x00, 0x00, 0xC2});
        write(0x928, {0x00, 0x00, 0x80, 0x3F});  // gain 1.0
    }

    /// Frame rate 7.5, shutter 0.1 s, the video mode of @p bin, one-shot.
    void capture(unsigned bin)
    {
        write(0x968, {0x00, 0x00, 0xF0, 0x40});
        write(0x918, {0xCD, 0xCC, 0xCC, 0x3D});
        write(0x608, bin == 2 ? std::vector<uint8_t>{0, 0, 0, 0} : std::vector<uint8_t>{0, 0, 0, 0x40});
        write(0x604, bin == 2 ? std::vector<uint8_t>{0, 0, 0, 0xA0} : std::vector<uint8_t>{0, 0, 0, 0x40});
        write(0x61C, {0x00, 0x00, 0x00, 0x80});
    }

    ManualClock clock;
    CollectingLog log;
    std::unique_ptr<SimulatedCamera> camera = makeIidcCamera(
        cameraModel(*findModel("XRM")), {.seed = 3, .serialNumber = 0x01020304, .scene = SceneKind::RAMP}, clock, log);
};

TEST_F(IidcCameraTest, DescribesOneBulkEndpointInOneSetting)
{
    const std::vector<uint8_t> bytes = camera->descriptors();
    ASSERT_EQ(bytes.size(), 18U + 25U);
    EXPECT_EQ(bytes[10], 0x05);
    EXPECT_EQ(bytes[11], 0x20);
    EXPECT_THAT(std::vector<uint8_t>(bytes.end() - 7, bytes.end()), ::testing::ElementsAre(7, 5, 0x81, 2, 0, 2, 0));
    EXPECT_TRUE(camera->setInterface(0, 0));
    EXPECT_FALSE(camera->setInterface(0, 1));
}

TEST_F(IidcCameraTest, RegistersReadBack)
{
    bringUp();
    clock.pass(125 * 1000000LL);
    const struct {
        const char* label;
        uint16_t offset;
        std::vector<uint8_t> bytes;
    } rows[] = {
        {"version 1.3", 0x1F60, {0x0C, 0x00, 0x03, 0x01}},    {"serial", 0x1F20, {0x04, 0x03, 0x02, 0x01}},
        {"board 0x1A", 0x1F24, {0x03, 0x00, 0xA0, 0x01}},     {"up 125 s", 0x12E0, {0x7D, 0x00, 0x00, 0x10}},
        {"no error", 0x628, {0x00, 0x00, 0x00, 0x80}},        {"brightness", 0x938, {0x00, 0x00, 0x00, 0x40}},
        {"longest shutter", 0x914, {0x77, 0x83, 0x88, 0x3D}}, {"unknown", 0x1F64, {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(read(row.offset), row.bytes) << row.label;
    // 15 degrees outside and 9 more inside once it is warm; 2970 tenths of a kelvin are 23.85 degrees.
    clock.pass(3600 * 1000000LL);
    const std::vector<uint8_t> temperature = read(0x82C);
    EXPECT_NEAR((temperature[1] & 0x0F) * 256 + temperature[0], 2971, 1);
    EXPECT_EQ(log.takeComplaints(), "read of unknown register 0x1F64\n");
}

TEST_F(IidcCameraTest, FrameComesAfterTheShutterTime)
{
    bringUp();
    for (const unsigned bin : {1U, 2U}) {
        capture(bin);
        std::vector<uint8_t> frame(1280 * 960 / (bin * bin));
        BulkResult result = camera->bulkIn(0x81, frame);
        EXPECT_FALSE(result.complete);
        EXPECT_EQ(result.length, 0U);
        EXPECT_NEAR(static_cast<double>(result.retryAtUs - clock.nowUs()), 100000.0, 1.0);
        clock.pass(99990);
        EXPECT_FALSE(camera->bulkIn(0x81, frame).complete) << "still exposing";
        clock.pass(20);
        result = camera->bulkIn(0x81, frame);
        EXPECT_TRUE(result.complete);
        EXPECT_EQ(result.length, frame.size());
        // The cell at row 7, column 300: its corner's pattern value is (7 * bin) * 256 + 300 * bin.
        const uint8_t expected = bin == 1 ? (8 ^ 0x2C) : (16 ^ 0x58);
        EXPECT_EQ(frame[7 * (1280 / bin) + 300], expected);
        EXPECT_TRUE(std::ranges::equal(camera->truth().lastImage, frame));
        EXPECT_NEAR(camera->truth().lightSeconds, 0.1, 1e-6);
        EXPECT_FALSE(camera->bulkIn(0x81, frame).complete) << "one shot is one frame";
    }
    EXPECT_EQ(log.takeComplaints(), "");
}

TEST_F(IidcCameraTest, FrameCanBeFetchedInPieces)
{
    bringUp();
    capture(2);
    clock.pass(200000);
    std::vector<uint8_t> piece(1024);
    std::vector<uint8_t> whole;
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(camera->bulkIn(0x81, piece).complete);
        whole.insert(whole.end(), piece.begin(), piece.end());
    }
    EXPECT_TRUE(std::ranges::equal(camera->truth().lastImage, whole));
    capture(2);
    clock.pass(200000);
    piece.resize(700);
    EXPECT_EQ(camera->bulkIn(0x81, piece).status, TransferStatus::BABBLE);
    EXPECT_EQ(log.takeComplaints(), "the host's buffer ends within a packet\n");
}

TEST_F(IidcCameraTest, ComplainsAboutWhatItCannotDo)
{
    using Step = std::pair<uint16_t, std::vector<uint8_t>>;
    const Step oneShot{0x61C, {0, 0, 0, 0x80}};
    const Step format2{0x608, {0, 0, 0, 0x40}};
    const Step mode2{0x604, {0, 0, 0, 0x40}};
    const Step mode5{0x604, {0, 0, 0, 0xA0}};
    const Step rate15{0x968, {0x00, 0x00, 0x70, 0x41}};
    const Step rate375{0x968, {0x00, 0x00, 0x70, 0x40}};
    const Step shutter10ms{0x918, {0x0A, 0xD7, 0x23, 0x3C}};
    const Step shutter100ms{0x918, {0xCD, 0xCC, 0xCC, 0x3D}};
    const struct {
        const char* label;
        std::vector<Step> steps;
        const char* complaint;  ///< part of the only one, or null for none
    } rows[] = {
        {"in order", {rate15, shutter10ms, format2, mode2, oneShot}, nullptr},
        {"rate raised under a longer shutter", {rate375, shutter100ms, rate15, shutter10ms}, nullptr},
        {"no shutter time", {rate15, format2, mode2, oneShot}, "without a shutter time"},
        {"no video mode", {rate15, shutter10ms, oneShot}, "without a supported video mode (format 0, mode 0)"},
        {"modes mixed", {rate15, shutter10ms, format2, mode5, oneShot}, "video mode (format 2, mode 5)"},
        {"shutter too long for the rate", {rate15, shutter100ms}, "longer than the 0.066657 s"},
        {"rate that does not exist", {{0x968, {0x00, 0x00, 0x20, 0x41}}}, "10.000000 becomes 7.500000"},
        {"not a number", {{0x918, {0x00, 0x00, 0xC0, 0x7F}}}, "no number"},
        {"absolute control off", {{0x81C, {0, 0, 0, 0x82}}, shutter10ms}, "without manual absolute control"},
        {"gain out of range", {{0x928, {0x00, 0x00, 0xC8, 0x42}}}, "gain of 100.0"},
        {"second shot during the first", {rate15, shutter10ms, format2, mode2, oneShot, oneShot}, "during an exposure"},
        {"read-only", {{0x1F20, {1, 0, 0, 0}}}, "read-only register 0x1F20"},
    };
    for (const auto& row : rows) {
        bringUp();
        for (const Step& step : row.steps)
            write(step.first, step.second);
        if (row.complaint == nullptr) {
            EXPECT_EQ(log.takeComplaints(), "") << row.label;
            continue;
        }
        EXPECT_EQ(log.complaints.size(), 1U) << row.label;
        EXPECT_THAT(log.takeComplaints(), ::testing::HasSubstr(row.complaint)) << row.label;
    }
    write(0x000, {0, 0, 0, 0x80});
    write(0x81C, {0, 0, 0, 0xC2});
    EXPECT_THAT(log.takeComplaints(), ::testing::HasSubstr("while the camera initialises itself"));
}

TEST_F(IidcCameraTest, SurvivesHostileRequests)
{
    std::vector<uint8_t> none;
    std::vector<uint8_t> many(5000);
    EXPECT_EQ(camera->control({0xC0, 0x7F, 0x0800, 0xF0F0, 0}, none).status, TransferStatus::STALL);
    EXPECT_EQ(camera->control({0x40, 0x7F, 0x0800, 0xF0F0, 5000}, many).status, TransferStatus::STALL);
    EXPECT_EQ(camera->control({0xC0, 0x7F, 0x0801, 0xF0F0, 4}, many).status, TransferStatus::STALL);
    EXPECT_EQ(camera->control({0xC0, 0x7F, 0x0800, 0x0000, 4}, many).status, TransferStatus::STALL);
    EXPECT_EQ(camera->control({0x40, 0xA0, 0xE600, 0, 1}, many).status, TransferStatus::STALL);
    EXPECT_EQ(log.complaints.size(), 5U);
    EXPECT_EQ(camera->bulkOut(0x04, many).status, TransferStatus::IO_ERROR);
    EXPECT_EQ(camera->bulkIn(0x86, many).status, TransferStatus::IO_ERROR);
}

}  // namespace
}  // namespace vornsim::test
