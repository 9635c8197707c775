// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>

#include "bridge_host.h"
#include "device/family_cameras.h"

namespace vornsim::test {
namespace {

/// A register and its four bytes in hex digits, the lowest first.
struct Register {
    uint16_t offset;
    const char* bytes;
};
constexpr Register INITIALISE{0x000, "00 00 00 80"};
constexpr Register RATE_7_5{0x968, "00 00 F0 40"};
constexpr Register SHUTTER_100_MS{0x918, "CD CC CC 3D"};
constexpr Register FORMAT_2{0x608, "00 00 00 40"};
constexpr Register MODE_2{0x604, "00 00 00 40"};
constexpr Register ONE_SHOT{0x61C, "00 00 00 80"};

class IidcCameraTest : public ::testing::Test {
protected:
    /// Register accesses with setup packets as a host puts them on the wire. @return what was complained about.
    std::string write(const std::vector<Register>& registers)
    {
        for (const Register& each : registers) {
            Bytes data = hex(each.bytes);
            (void)camera->control({0x40, 0x7F, each.offset, 0xF0F0, 4}, data);
        }
        return log.takeComplaints();
    }
    /// Brings the camera up, takes shutter, frame rate and gain under manual control, and writes.
    std::string afterStart(const std::vector<Register>& registers)
    {
        EXPECT_EQ(write({INITIALISE}), "");
        clock.pass(1000);
        EXPECT_EQ(write({{0x81C, "00 00 00 C2"}, {0x83C, "00 00 00 C2"}, {0x820, "00 00 00 C2"}}), "");
        return write(registers);
    }

    ManualClock clock;
    CollectingLog log;
    std::unique_ptr<SimulatedCamera> camera = makeIidcCamera(
        cameraModel(*findModel("XRM")), {.serialNumber = 0x01020304, .scene = SceneKind::RAMP}, clock, log);
};

TEST_F(IidcCameraTest, RegistersReadBack)
{
    EXPECT_EQ(afterStart({RATE_7_5, SHUTTER_100_MS}), "");
    clock.pass(3724999000);
    const Register registers[] = {
        {0x1F20, "04 03 02 01"},  // serial number
        {0x12E0, "8D 0E 00 10"},  // up for 3725 s
        {0x82C, "9B 0B 00 80"},   // 15 degrees outside and 9 more inside: 2971 tenths of a kelvin
        {0x914, "14 7B 08 3E"},   // the longest shutter time, 0.133282 s
        SHUTTER_100_MS,
    };
    Bytes data(4);
    for (const Register& each : registers) {
        EXPECT_EQ(camera->control({0xC0, 0x7F, each.offset, 0xF0F0, 4}, data).length, 4U);
        EXPECT_EQ(toHex(data), each.bytes) << std::hex << each.offset;
    }
}

TEST_F(IidcCameraTest, FrameComesAfterTheShutterTimeInWholePackets)
{
    EXPECT_EQ(afterStart({RATE_7_5, SHUTTER_100_MS, FORMAT_2, MODE_2, ONE_SHOT}), "");
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

    EXPECT_EQ(write({ONE_SHOT}), "");
    clock.pass(200000);
    EXPECT_EQ(camera->bulkIn(0x81, pieces.first(700)).status, TransferStatus::BABBLE);
    EXPECT_EQ(log.takeComplaints(), "the host's buffer ends within a packet\n");
}

TEST_F(IidcCameraTest, ComplainsAboutWhatItCannotDo)
{
    const struct {
        const char* complaint;  ///< part of the only one
        std::vector<Register> registers;
    } rows[] = {
        {"without a shutter time", {FORMAT_2, MODE_2, ONE_SHOT}},
        {"supported video mode (format 0, mode 0)", {RATE_7_5, SHUTTER_100_MS, ONE_SHOT}},
        {"video mode (format 0, mode 2)", {RATE_7_5, SHUTTER_100_MS, {0x608, "00 00 00 00"}, MODE_2, ONE_SHOT}},
        {"longer than the 0.066657 s", {RATE_7_5, SHUTTER_100_MS, {0x968, "00 00 70 41"}, SHUTTER_100_MS}},
        {"10.000000 becomes 7.500000", {{0x968, "00 00 20 41"}}},
        {"without manual absolute control", {RATE_7_5, {0x81C, "00 00 00 82"}, SHUTTER_100_MS}},
        {"gain of 100.0", {{0x928, "00 00 C8 42"}}},
        {"during an exposure", {RATE_7_5, SHUTTER_100_MS, FORMAT_2, MODE_2, ONE_SHOT, ONE_SHOT}},
    };
    for (const auto& row : rows) {
        const std::string complaints = afterStart(row.registers);
        EXPECT_THAT(complaints, ::testing::HasSubstr(row.complaint));
        EXPECT_EQ(std::count(complaints.begin(), complaints.end(), '\n'), 1) << complaints;
    }
    EXPECT_THAT(write({INITIALISE, RATE_7_5}), ::testing::HasSubstr("while the camera initialises itself"));
    Bytes many(5000);
    for (const uint16_t length : std::initializer_list<uint16_t>{0, 3, 5000})
        EXPECT_EQ(camera->control({0x40, 0x7F, 0x81C, 0xF0F0, length}, many).status, TransferStatus::STALL) << length;
}

}  // namespace
}  // namespace vornsim::test
