// SPDX-License-Identifier: MIT
#include "device/fx2_bridge.h"

#include <gmock/gmock.h>

#include "bridge_host.h"
#include "device/bus_output.h"

namespace vornsim::test {
namespace {

/// Remembers what the bridge does to it.
class FakeCamera : public BridgePeripheral {
public:
    bool understandsWaveform(std::span<const uint8_t> table) const override { return table[1] == 0xEE; }
    OfferedWords offeredWords(int64_t nowUs) override { return output.offered(nowUs); }
    void wordsTaken(size_t byteCount) override { output.taken(byteCount); }
    void wordsReceived(std::span<const uint8_t> bytes) override { received.assign(bytes.begin(), bytes.end()); }
    int64_t spiExchange(const SpiSelection&, std::span<const uint8_t> out, std::span<uint8_t> in) override
    {
        std::transform(out.begin(), out.end(), in.begin(), [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
        return 0;
    }
    bool i2cWrite(uint8_t address, std::span<const uint8_t> data) override
    {
        received.assign(data.begin(), data.end());
        return address == 0x40;
    }
    void portChanged(unsigned port, const PortLines& lines) override
    {
        changes += std::to_string(port) + ":" + toHex({lines.latch, lines.direction}) + ";";
    }
    uint8_t portInputs(unsigned port) override { return port == 0 ? 0x15 : 0xFF; }

    BusOutput output;
    Bytes received;
    std::string changes;
};

class Fx2BridgeTest : public ::testing::Test {
protected:
    void startWithTable()
    {
        host.start();
        host.request("08 00 FF 00 00 00 00 00", handshakeTable());
        ASSERT_EQ(host.reply(4), "00 00 00 08");
    }
    /// Puts 0, 1, 2 ... 250, 0 ... on the bus.
    void offer(size_t count, int64_t delayUs = 0, int64_t nsPerWord = 0)
    {
        Bytes bytes(count);
        for (size_t i = 0; i < count; ++i)
            bytes[i] = static_cast<uint8_t>(i % 251);
        camera.output.send(bytes, clock.nowUs() + delayUs, nsPerWord);
    }
    void requestWords(uint8_t low, uint8_t high = 0)
    {
        host.send(0x04, Bytes{9, 0, 0, 0, 0, 0, low, high, 0, 0, 0, 0, 0, 0, 0, 0});
    }
    void TearDown() override { EXPECT_EQ(log.takeComplaints(), ""); }

    ManualClock clock;
    CollectingLog log;
    FakeCamera camera;
    ConfigurationEeprom eeprom{SIMULATED_VENDOR_ID, 0xDF34, 0x00012345};
    Fx2Bridge bridge{0xDF34, eeprom, camera, clock, log};
    BridgeHost host{bridge, clock};
};

TEST_F(Fx2BridgeTest, ShowsTheBuiltInPersonality)
{
    const Bytes all = bridge.descriptors();
    ASSERT_EQ(all.size(), 18U + 171U);
    EXPECT_EQ(toHex({all.begin(), all.begin() + 18}), "12 01 00 02 FF FF FF 40 34 12 34 DF 00 00 00 00 00 01");
    EXPECT_EQ(toHex({all.begin() + 18, all.begin() + 36}), "09 02 AB 00 01 01 00 80 32 09 04 00 00 00 FF FF FF 00");
    EXPECT_EQ(toHex({all.begin() + 36, all.begin() + 87}),
              "09 04 00 01 06 FF FF FF 00 07 05 01 02 00 02 00 07 05 81 02 00 02 00 07 05 02 02 00 02 00 "
              "07 05 04 02 00 02 00 07 05 86 02 00 02 00 07 05 88 02 00 02 00");
}

TEST_F(Fx2BridgeTest, ServesStandardRequests)
{
    struct Case {
        const char* label;
        SetupPacket setup;
        TransferStatus status;
        const char* data;
    };
    const TransferStatus ok = TransferStatus::OK;
    const TransferStatus stall = TransferStatus::STALL;
    const Case cases[] = {
        {"device descriptor, short", {0x80, 6, 0x0100, 0, 8}, ok, "12 01 00 02 FF FF FF 40"},
        {"configuration header", {0x80, 6, 0x0200, 0, 4}, ok, "09 02 AB 00"},
        {"second configuration", {0x80, 6, 0x0201, 0, 4}, stall, ""},
        {"string", {0x80, 6, 0x0300, 0, 4}, stall, ""},
        {"device status", {0x80, 0, 0, 0, 2}, ok, "00 00"},
        {"configuration in force", {0x80, 8, 0, 0, 1}, ok, "01"},
        {"halt before the endpoint exists", {0x02, 3, 0, 0x86, 0}, stall, ""},
        {"alternate setting 4", {0x01, 11, 4, 0, 0}, stall, ""},
        {"interface 1", {0x01, 11, 1, 1, 0}, stall, ""},
        {"alternate setting 1", {0x01, 11, 1, 0, 0}, ok, ""},
        {"alternate setting in force", {0x81, 10, 0, 0, 1}, ok, "01"},
        {"halt", {0x02, 3, 0, 0x86, 0}, ok, ""},
        {"halted", {0x82, 0, 0, 0x86, 2}, ok, "01 00"},
        {"halt ends", {0x02, 1, 0, 0x86, 0}, ok, ""},
        {"no longer halted", {0x82, 0, 0, 0x86, 2}, ok, "00 00"},
        {"second configuration chosen", {0x00, 9, 2, 0, 0}, stall, ""},
        {"unknown request", {0x80, 99, 0, 0, 2}, stall, ""},
    };
    for (const Case& c : cases) {
        Bytes data(c.setup.length);
        const ControlResult result = bridge.control(c.setup, data);
        EXPECT_EQ(result.status, c.status) << c.label;
        data.resize(result.length);
        EXPECT_EQ(toHex(data), c.data) << c.label;
    }
}

TEST_F(Fx2BridgeTest, HaltedEndpointsStallUntilTheInterfaceIsSetAgain)
{
    host.start();
    Bytes none;
    for (const unsigned endpoint : {0x04U, 0x88U})
        host.control(0x02, 3, 0, static_cast<uint16_t>(endpoint), none);
    EXPECT_EQ(host.send(0x04, {1}).status, TransferStatus::STALL);
    EXPECT_EQ(bridge.bulkIn(0x88, none).status, TransferStatus::STALL);
    bridge.setInterface(0, 1);
    EXPECT_EQ(bridge.bulkIn(0x88, none).status, TransferStatus::OK);
}

TEST_F(Fx2BridgeTest, IsSilentUntilItsProgramRuns)
{
    EXPECT_EQ(host.send(0x04, {1}).status, TransferStatus::IO_ERROR) << "alternate setting 0 has no endpoints";
    bridge.setInterface(0, 1);
    EXPECT_EQ(host.send(0x86, {1}).status, TransferStatus::IO_ERROR) << "OUT to an IN endpoint";
    bridge.setInterface(0, 2);
    EXPECT_EQ(host.send(0x04, {1}).status, TransferStatus::IO_ERROR) << "only setting 1 is all bulk";
    host.receive(0x88, 1);
    EXPECT_EQ(host.last.status, TransferStatus::IO_ERROR);
    bridge.setInterface(0, 1);
    const auto silent = [&] {
        const BulkResult out = host.send(0x04, hex("03 00 00 00 00 00 00 00 05 00 00 00 00 00 00 00"));
        host.receive(0x86, 9, 100);
        return !out.complete && out.length == 0 && host.timedOut;
    };
    EXPECT_TRUE(silent()) << "CPU held";
    EXPECT_TRUE(host.load(0xE600, {0}));
    EXPECT_TRUE(silent()) << "no program";
    EXPECT_EQ(log.takeComplaints(), "bridge: CPU started without a program\n");
    host.start();
    EXPECT_FALSE(silent());
    EXPECT_TRUE(host.load(0xE600, {1}));
    EXPECT_TRUE(silent()) << "CPU held again";
}

TEST_F(Fx2BridgeTest, LoadsAndReadsBackMemoryWhetherTheCpuRunsOrNot)
{
    host.start();
    EXPECT_TRUE(host.load(0x3FFE, {0xAB, 0xCD}));
    Bytes back(2);
    EXPECT_EQ(host.control(0xC0, 0xA0, 0x3FFE, 0, back).status, TransferStatus::OK);
    EXPECT_EQ(toHex(back), "AB CD");
    EXPECT_FALSE(host.load(0x3FFF, {1, 2}));
    EXPECT_FALSE(host.load(0xE601, {1}));
    EXPECT_FALSE(host.control(0x40, 0xB0, 0, 0, back).status == TransferStatus::OK);
    EXPECT_EQ(log.complaints.size(), 3U);
    log.complaints.clear();
}

TEST_F(Fx2BridgeTest, AnswersRequests)
{
    eeprom.setColourPattern(2);
    host.start();
    struct Step {
        const char* label;
        const char* header;
        const char* payload;
        uint8_t replyLength;
        const char* reply;  // "" when the request has none
    };
    const Step steps[] = {
        {"direction", "02 01 00 00 00 00 00 00", "00 9F FF 00 FF 00 FF 00 FF 00", 0, ""},
        {"state", "01 02 00 00 00 00 00 00", "00 80 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00", 0, ""},
        {"line 13 up", "01 03 00 00 00 00 00 00", "FF 00 DF 20 FF 00 FF 00 FF 00 00 00 00 00 00 00", 0, ""},
        {"line 8 output", "02 04 00 00 00 00 00 00", "FF 00 FE 01 FF 00 FF 00 FF 00", 0, ""},
        // Port 0: latch 80 on the outputs 9F, inputs 15 elsewhere (bits 5 and 6); port 1: line 8 is low, the rest
        // floats.
        {"ports", "03 05 00 00 00 00 00 00", "", 5, "00 80 FE FF FF FF 00 05 03"},
        {"word address", "04 06 FF 00 00 00 01 00", "A2 00 03", 0, "00 00 06 04"},
        {"product id", "04 07 FF 00 00 00 01 00", "A3", 2, "00 34 DF 00 07 04"},
        {"serial number goes on", "04 08 FF 00 00 00 01 00", "A3", 2, "00 45 23 00 08 04"},
        {"word address 1000 wraps", "04 09 FF 00 00 00 01 00", "A2 03 E8", 0, "00 00 09 04"},
        {"word address 8", "04 14 FF 00 00 00 01 00", "A2 00 08", 0, "00 00 14 04"},
        {"serial number, high half", "04 15 FF 00 00 00 01 00", "A3", 2, "00 01 00 00 15 04"},
        {"word address 1000 again", "04 16 FF 00 00 00 01 00", "A2 03 E8", 0, "00 00 16 04"},
        {"colour record", "04 0A FF 00 00 00 01 00", "A3", 5, "00 84 D9 01 02 00 00 0A 04"},
        {"slave", "04 0B FF 00 00 00 01 00", "80 48 53", 0, "00 00 0B 04"},
        {"missing slave, write", "04 0C FF 00 00 00 01 00", "82 01", 0, "00 01 0C 04"},
        {"missing slave, read", "04 0D FF 00 00 00 01 00", "83", 2, "00 FF FF 01 0D 04"},
        {"parallel timeout", "0C 0E 00 00 30 75 00 00", "", 0, ""},
        {"I2C timeout", "0C 0F 00 01 88 13 00 00", "", 0, ""},
        {"I2C speed", "05 10 00 01 00 00 00 00", "", 0, ""},
        {"SPI pins", "02 11 00 00 00 00 00 00", "0F E0 FF 00 FF 00 FF 00 FF 00", 0, ""},
        {"SPI word", "06 12 00 01 00 00 01 00", "24 00", 2, "00 DB FF 00 12 06"},
        {"SPI exchange", "06 13 00 02 03 00 01 00", "43 4D 44", 3, "00 BC B2 BB 00 13 06"},
    };
    for (const Step& s : steps) {
        host.request(s.header, hex(s.payload), s.replyLength);
        const std::string got = *s.reply != '\0' ? host.reply(s.replyLength + 4U) : "";
        EXPECT_EQ(got, s.reply) << s.label;
        EXPECT_EQ(log.takeComplaints(), "") << s.label;
    }
    EXPECT_EQ(camera.changes, "0:00 9F;0:80 9F;1:20 00;1:20 01;0:80 EF;");
    EXPECT_EQ(toHex(camera.received), "01") << "the last I2C write, without its address";
    EXPECT_EQ(bridge.settings().parallelTimeoutMs, 30000);
    EXPECT_EQ(bridge.settings().i2cTimeoutMs, 5000);
    EXPECT_EQ(bridge.settings().i2cSpeed, 1);
}

TEST_F(Fx2BridgeTest, ComplainsAboutRequestsThatFollowNoRuleAndServesNone)
{
    startWithTable();
    const Bytes goodState = hex("00 80 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00");
    struct Case {
        const char* label;
        Bytes bytes;
    };
    Bytes huge = hex("04 00 FF 00 00 00 01 00 FF FF FF FF 01 00 00 00 A3");
    const Case cases[] = {
        {"shorter than a header", hex("0C 00 00")},
        {"payload shorter than announced", hex("01 00 00 00 00 00 00 00 00 00 00 00 10 00 00 00 00 80")},
        {"payload length beyond all bounds", hex("01 00 00 00 00 00 00 00 00 00 00 00 FF FF FF FF")},
        {"unknown code", hex("07 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00")},
        {"state with 10 bytes", hex("01 00 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 00 80 FF 00 FF 00 FF 00 FF 00")},
        {"state acknowledged", hex("01 00 FF 00 00 00 00 00 00 00 00 00 10 00 00 00") + goodState},
        {"I2C not acknowledged", hex("04 00 00 00 00 00 01 00 02 00 00 00 01 00 00 00 A3")},
        {"I2C read with data", hex("04 00 FF 00 00 00 01 00 02 00 00 00 02 00 00 00 A3 00")},
        {"reply beyond all bounds", huge},
        {"short table of the long kind", hex("08 00 FF 00 00 00 00 00 00 00 00 00 98 00 00 00 81") + Bytes(151, 0)},
        {"SPI sub-code 1 with 3 bytes", hex("06 00 00 01 00 00 01 00 03 00 00 00 03 00 00 00 01 02 03")},
        {"SPI before its pins", hex("06 00 00 01 00 00 01 00 02 00 00 00 02 00 00 00 24 00")},
        {"EEPROM data write", hex("04 00 FF 00 00 00 01 00 00 00 00 00 04 00 00 00 A2 00 03 99")},
        {"parallel output without data", hex("0A 00 FF 00 00 00 00 00 00 00 00 00 00 00 00 00")},
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(host.send(0x04, c.bytes).complete) << c.label;
        EXPECT_EQ(log.complaints.size(), 1U) << c.label << "\n" << log.takeComplaints();
        log.complaints.clear();
        host.receive(0x86, 4096, 5000);
    }
    EXPECT_EQ(camera.changes, "");
    // A request that is announced longer than one packet is collected; the next one is understood again.
    host.send(0x04, hex("04 00 FF 00 00 00 01 00 00 00 00 00 00 03 00 00 80") + Bytes(767, 7));
    EXPECT_EQ(host.reply(4), "00 00 00 04");
    EXPECT_EQ(camera.received.size(), 767U);
}

TEST_F(Fx2BridgeTest, SendsWordsInPacketsAndOneByteMore)
{
    struct Case {
        size_t n;
        std::vector<size_t> transfers;  // how the n + 1 bytes arrive when all the rest is asked for each time
    };
    const Case cases[] = {{1, {2}},        {2, {2, 1}},    {511, {512}},      {512, {513}},
                          {600, {600, 1}}, {1023, {1024}}, {200001, {200002}}};
    startWithTable();
    for (const Case& c : cases) {
        offer(c.n + c.n % 2);
        host.send(0x04, Bytes{9, 0, 0, 0, static_cast<uint8_t>(c.n >> 16), 0, static_cast<uint8_t>(c.n),
                              static_cast<uint8_t>(c.n >> 8), 0, 0, 0, 0, 0, 0, 0, 0});
        std::vector<size_t> transfers;
        Bytes all;
        while (all.size() < c.n + 1) {
            const Bytes part = host.receive(0x88, c.n + 1 - all.size());
            ASSERT_FALSE(part.empty()) << c.n;
            transfers.push_back(part.size());
            all = all + part;
        }
        EXPECT_EQ(transfers, c.transfers) << c.n;
        for (size_t i = 0; i < c.n; ++i)
            ASSERT_EQ(all[i], i % 251) << c.n;
        EXPECT_EQ(camera.output.left(), 0U) << c.n;
        EXPECT_TRUE(host.receive(0x88, 1, 50).empty()) << c.n << ": nothing may follow";
    }
}

TEST_F(Fx2BridgeTest, LargerPacketThanSpaceIsBabble)
{
    startWithTable();
    offer(2000);
    requestWords(0xD0, 0x07);
    EXPECT_EQ(host.receive(0x88, 600).size(), 512U);
    EXPECT_EQ(host.last.status, TransferStatus::BABBLE);
    EXPECT_EQ(toHex({host.receive(0x88, 512)[0]}), "14") << "the packet that did not fit is gone: next is byte 1024";
    host.request("03 00 00 00 00 00 00 00", {}, 5);
    EXPECT_EQ(host.receive(0x86, 8).size(), 0U);
    EXPECT_EQ(host.last.status, TransferStatus::BABBLE);
    EXPECT_EQ(log.takeComplaints(), "bridge: parallel input abandoned after 1024 bytes\n");
}

TEST_F(Fx2BridgeTest, ParallelInputWaitsForTheCameraAndGivesUpInTime)
{
    startWithTable();
    host.request("0C 00 00 00 F4 01 00 00");  // 500 ms
    const int64_t start = clock.nowUs();
    offer(2, 400000);
    EXPECT_EQ(toHex(host.parIn(2)), "00 01");
    EXPECT_EQ(clock.nowUs() - start, 400000);

    // Words that trickle in keep the request alive as long as packets go on coming: 3000 words in 3 s.
    offer(6000, 0, 1000000);
    const Bytes slow = host.parIn(6000);
    EXPECT_EQ(slow.size(), 6000U);

    // Only whole packets leave before the end.
    offer(1200, 0, 1000000);
    requestWords(0xB0, 0x04);
    Bytes rest(1201);
    clock.pass(300000);
    EXPECT_EQ(host.device.bulkIn(0x88, rest).length, 512U);
    EXPECT_EQ(host.receive(0x88, 1201 - 512).size() + 512, 1200U);
    EXPECT_EQ(host.receive(0x88, 1).size(), 1U);

    for (const int64_t askAfterUs : {0, 900000}) {  // the deadline counts, not when the host looks
        offer(2, 600000);
        requestWords(2);
        clock.pass(askAfterUs);
        EXPECT_TRUE(host.receive(0x88, 3, 1000).empty());
        EXPECT_TRUE(host.timedOut);
    }
    clock.pass(600000);
    EXPECT_EQ(toHex(host.parIn(2)), "00 01") << "the camera still has them";
}

TEST_F(Fx2BridgeTest, WithoutATableTheBusDoesNotMove)
{
    host.start();
    offer(2);
    EXPECT_TRUE(host.parIn(1, 100).empty());
    EXPECT_EQ(log.takeComplaints(), "") << "hosts drain a fresh bridge this way";
    Bytes foreign = handshakeTable();
    foreign[1] = 0xE2;
    host.request("08 00 FF 00 00 00 00 00", foreign);
    EXPECT_EQ(host.receive(0x86, 4).size(), 4U);
    EXPECT_TRUE(host.parIn(1, 100).empty());
    host.parOut({1, 2});
    EXPECT_TRUE(camera.received.empty());
    EXPECT_EQ(log.complaints.size(), 2U);
    log.complaints.clear();
    startWithTable();
    host.request("02 00 00 00 00 00 00 00", hex("00 9F FF 00 FF 00 FF 00 FF 00"));
    EXPECT_TRUE(host.load(0xE600, {0}));
    EXPECT_EQ(toHex(host.parIn(2)), "00 01") << "a CPU that runs already is not started again";
    host.start();
    EXPECT_EQ(bridge.settings().ports[0].direction, 0x9F) << "the chip's, not the program's";
    EXPECT_TRUE(bridge.settings().waveformTable.empty()) << "forgotten by a restart";
}

TEST_F(Fx2BridgeTest, RawWordsWaitInTwoBuffersForTheirRequest)
{
    startWithTable();
    const BulkResult first = host.send(0x02, Bytes(1500, 1));
    EXPECT_FALSE(first.complete);
    EXPECT_EQ(first.length, 1024U);
    host.request("0A 00 FF 00 00 00 00 00");
    EXPECT_EQ(host.reply(4), "00 00 00 0A");
    EXPECT_EQ(camera.received.size(), 1024U);
    host.parOut({1, 2, 3});
    EXPECT_EQ(toHex(camera.received), "01 02 03 00");
}

TEST_F(Fx2BridgeTest, ANewRequestEndsTheOneBefore)
{
    startWithTable();
    host.request("03 00 00 00 00 00 00 00", {}, 5);
    host.request("03 07 00 00 00 00 00 00", {}, 5);
    EXPECT_EQ(host.reply(9), "00 15 FF FF FF FF 00 07 03") << "not the stale reply";
    EXPECT_EQ(log.takeComplaints(), "bridge: reply fetched up to byte 0 of 9\n");
    offer(4000);
    requestWords(0xA0, 0x0F);
    EXPECT_EQ(host.receive(0x88, 512).size(), 512U);
    EXPECT_EQ(toHex(host.parIn(2)), "1E 1F") << "1024 bytes that waited in the bridge are lost: byte 1536 is next";
    EXPECT_EQ(log.takeComplaints(), "bridge: parallel input abandoned after 512 bytes\n");
}

}  // namespace
}  // namespace vornsim::test
