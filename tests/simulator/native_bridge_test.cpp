// SPDX-License-Identifier: MIT
#include "device/bridge/native_bridge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "device/bridge/bus_output.h"
#include "device/parts/configuration_eeprom.h"
#include "device_fixture.h"

namespace vornsim::test {
namespace {

/// A waveform table that speaks a strobed bus.
const Bytes TABLE =
    hex("01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 "
        "FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F 00 x104");

/// Remembers what the bridge does to it. A slave at I2C address 0x40 takes everything; so does the EEPROM.
struct FakeCamera : BusCamera {
    ParallelBus parallelBus() const override { return {ParallelBus::Kind::STROBED}; }
    OfferedWords offeredWords(int64_t nowUs) override { return output.offered(nowUs); }
    void wordsTaken(size_t byteCount) override { output.taken(byteCount); }
    void wordsReceived(std::span<const uint8_t> bytes) override { received.assign(bytes.begin(), bytes.end()); }
    uint8_t spiOutput() override { return static_cast<uint8_t>(++spiCount); }
    void spiInput(uint8_t byte) override { received.push_back(byte); }
    bool i2cStart(uint8_t address, bool /*reading*/) override
    {
        eeprom.start();
        received.clear();
        toEeprom = address == 0x51;
        return toEeprom || address == 0x40;
    }
    bool i2cWrite(uint8_t byte) override
    {
        received.push_back(byte);
        return !toEeprom || eeprom.write(byte);
    }
    uint8_t i2cRead() override { return eeprom.read(); }
    void portChanged(unsigned port, const PortLines& lines) override
    {
        changes += std::to_string(port) + ":" + toHex({lines.latch, lines.direction}) + ";";
    }
    uint8_t portInputs(unsigned port) override { return port == 0 ? 0x15 : 0xFF; }

    BusOutput output;
    ConfigurationEeprom eeprom{SIMULATED_VENDOR_ID, 0xDF34, 0x00012345};
    bool toEeprom = false;
    unsigned spiCount = 0;
    Bytes received;
    std::string changes;
};

/// A host at the far end of the cable that sends exactly the bytes it is told and waits in manual time.
struct NativeBridgeTest : ::testing::Test {
    ControlResult control(uint8_t type, uint16_t address, Bytes& data)
    {
        return bridge.control({type, 0xA0, address, 0, static_cast<uint16_t>(data.size())}, data);
    }
    bool load(uint16_t address, Bytes data)
    {
        const ControlResult result = control(0x40, address, data);
        return result.status == TransferStatus::OK && result.length == data.size();
    }
    /// Alternate setting 1, a program, and the CPU started; then the waveform table.
    void start(bool withTable = true)
    {
        ASSERT_TRUE(bridge.setInterface(0, 1));
        ASSERT_TRUE(load(0xE600, {1}) && load(0, {0x02, 0x00, 0x2E, 0x32}) && load(0xE600, {0}));
        if (withTable)
            sendTable(TABLE);
    }
    void sendTable(const Bytes& table)
    {
        request("08 00 FF 00 00 00 00 00", table);
        EXPECT_EQ(reply(4), "00 00 00 08");
    }
    /// Reads as a host with a timeout does. @return what arrived; `last` tells how it ended.
    /// Not inlined: g++ 12 then takes the freeing of a buffer for a mistake.
    [[gnu::noinline]] Bytes receive(uint8_t endpoint, size_t length, int64_t timeoutMs = 30000)
    {
        Bytes data(length);
        const int64_t deadline = clock.nowUs() + timeoutMs * 1000;
        ptrdiff_t moved = 0;
        do {
            last = bridge.bulkIn(endpoint, {data.begin() + moved, data.end()});
            moved += static_cast<ptrdiff_t>(last.length);
            timedOut = !last.complete && last.retryAtUs >= deadline;
            if (!last.complete)
                clock.pass(std::max<int64_t>(0, std::min(last.retryAtUs, deadline) - clock.nowUs()));
        } while (!last.complete && !timedOut);
        return {data.begin(), data.begin() + moved};
    }
    std::string reply(size_t length) { return toHex(receive(0x86, length)); }

    /// One bridge request with its payload; code, sequence, flag, sub-code, value, index as written in @p header.
    void request(const std::string& header, const Bytes& payload = {}, uint8_t replyLength = 0)
    {
        const Bytes lengths = {replyLength, 0, 0, 0, static_cast<uint8_t>(payload.size()), 0, 0, 0};
        EXPECT_TRUE(bridge.bulkOut(0x04, hex(header) + lengths + payload).complete);
    }
    void requestParIn(size_t n)
    {
        const auto byte = [&](unsigned shift) { return static_cast<uint8_t>(n >> shift); };
        (void)bridge.bulkOut(0x04, Bytes{9, 0, 0, 0, byte(16), byte(24), byte(0), byte(8), 0, 0, 0, 0, 0, 0, 0, 0});
    }
    /// Reads @p n bytes from the parallel bus, and the one that always follows, in transfers of `parts` bytes. Empty
    /// after a timeout.
    Bytes parIn(size_t n, int64_t timeoutMs = 30000)
    {
        requestParIn(n);
        parts.clear();
        Bytes data;
        while (data.size() < n + 1) {
            const Bytes part = receive(0x88, n + 1 - data.size(), timeoutMs);
            if (part.empty())
                return {};
            parts.push_back(part.size());
            data = data + part;
        }
        data.resize(n);
        return data;
    }
    /// Puts 0, 1, 2 ... 250, 0 ... on the bus. @return these bytes.
    Bytes offer(size_t count, int64_t delayUs = 0, int64_t nsPerWord = 0)
    {
        Bytes bytes(count);
        for (size_t i = 0; i < count; ++i)
            bytes[i] = static_cast<uint8_t>(i % 251);
        camera.output.send(bytes, clock.nowUs() + delayUs, nsPerWord);
        return bytes;
    }
    auto complaintCount() { return std::ranges::count(log.takeComplaints(), '\n'); }
    void TearDown() override { EXPECT_EQ(log.takeComplaints(), ""); }

    ManualClock clock;
    CollectingLog log;
    NativeBridge bridge{0xDF34, std::make_unique<FakeCamera>(), clock, log};
    FakeCamera& camera = dynamic_cast<FakeCamera&>(bridge.camera());
    BulkResult last;
    std::vector<size_t> parts;
    bool timedOut = false;
};

TEST_F(NativeBridgeTest, IsSilentUntilItsProgramRuns)
{
    for (const unsigned alternate : {0U, 2U}) {  // without endpoints, and with some that are not bulk
        bridge.setInterface(0, alternate);
        EXPECT_EQ(bridge.bulkOut(0x04, Bytes{1}).status, TransferStatus::IO_ERROR) << alternate;
    }
    bridge.setInterface(0, 1);
    const auto silent = [&] {
        const BulkResult out = bridge.bulkOut(0x04, hex("03 00 00 00 00 00 00 00 05 00 00 00 00 00 00 00"));
        receive(0x86, 9, 100);
        return !out.complete && out.length == 0 && timedOut;
    };
    EXPECT_TRUE(silent()) << "CPU held";
    EXPECT_TRUE(load(0xE600, {0}));
    EXPECT_TRUE(silent()) << "no program";
    EXPECT_EQ(log.takeComplaints(), "bridge: CPU started without a program\n");
    start(false);
    EXPECT_FALSE(silent());

    Bytes back(2);
    EXPECT_TRUE(load(0x3FFE, {0xAB, 0xCD}));
    EXPECT_EQ(control(0xC0, 0x3FFE, back).status, TransferStatus::OK);
    EXPECT_EQ(toHex(back), "AB CD") << "loaded while the CPU runs";
    EXPECT_FALSE(load(0x3FFF, {1, 2})) << "beyond the memory";
    EXPECT_FALSE(load(0xE601, {1}));
    EXPECT_EQ(complaintCount(), 2);
    EXPECT_TRUE(load(0xE600, {1}));
    EXPECT_TRUE(silent()) << "CPU held again";
}

TEST_F(NativeBridgeTest, AnswersRequests)
{
    camera.eeprom.setColourPattern(2);
    start(false);
    const struct {
        const char *label, *header, *payload;
        uint8_t replyLength;
        const char* reply;  // "" when the request has none
    } steps[] = {
        {"direction", "02 01 00 00 00 00 00 00", "00 9F FF 00 FF 00 FF 00 FF 00", 0, ""},
        {"state", "01 02 00 00 00 00 00 00", "00 80 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00", 0, ""},
        {"line 13 up", "01 03 00 00 00 00 00 00", "FF 00 DF 20 FF 00 FF 00 FF 00 00 00 00 00 00 00", 0, ""},
        {"line 8 output", "02 04 00 00 00 00 00 00", "FF 00 FE 01 FF 00 FF 00 FF 00", 0, ""},
        {"latch 80 on the outputs 9F, else inputs 15; line 8 low", "03 05 00 00 00 00 00 00", "", 5,
         "00 80 FE FF FF FF 00 05 03"},
        {"word address", "04 06 FF 00 00 00 01 00", "A2 00 03", 0, "00 00 06 04"},
        {"product id", "04 07 FF 00 00 00 01 00", "A3", 2, "00 34 DF 00 07 04"},
        {"serial number goes on", "04 08 FF 00 00 00 01 00", "A3", 2, "00 45 23 00 08 04"},
        {"word address 1000 wraps", "04 09 FF 00 00 00 01 00", "A2 03 E8", 0, "00 00 09 04"},
        {"colour record", "04 0A FF 00 00 00 01 00", "A3", 5, "00 84 D9 01 02 00 00 0A 04"},
        {"slave", "04 0B FF 00 00 00 01 00", "80 48 53", 0, "00 00 0B 04"},
        {"missing slave, write", "04 0C FF 00 00 00 01 00", "82 01", 0, "00 01 0C 04"},
        {"missing slave, read", "04 0D FF 00 00 00 01 00", "83", 2, "00 FF FF 01 0D 04"},
        {"parallel timeout", "0C 0E 00 00 30 75 00 00", "", 0, ""},
        {"SPI pins", "02 11 00 00 00 00 00 00", "0F E0 FF 00 FF 00 FF 00 FF 00", 0, ""},
        {"SPI word", "06 12 00 01 00 00 01 00", "24 00", 2, "00 01 02 00 12 06"},
        {"SPI exchange", "06 13 00 02 03 00 01 00", "43 4D 44", 3, "00 03 04 05 00 13 06"},
    };
    for (const auto& s : steps) {
        request(s.header, hex(s.payload), s.replyLength);
        EXPECT_EQ(*s.reply != '\0' ? reply(s.replyLength + 4U) : "", s.reply) << s.label;
        EXPECT_EQ(log.takeComplaints(), "") << s.label;
    }
    EXPECT_EQ(camera.changes, "0:00 9F;0:80 9F;1:20 00;1:20 01;0:80 EF;");
    EXPECT_EQ(toHex(camera.received), "24 00 43 4D 44") << "what went over SPI after the last I2C transfer";
    EXPECT_EQ(bridge.settings().parallelTimeoutMs, 30000);
}

TEST_F(NativeBridgeTest, ComplainsAboutRequestsThatFollowNoRuleAndServesNone)
{
    start();
    const std::pair<const char*, Bytes> cases[] = {
        {"shorter than a header", hex("0C 00 00")},
        {"payload length beyond all bounds", hex("01 00 00 00 00 00 00 00 00 00 00 00 FF FF FF FF")},
        {"unknown code", hex("07 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00")},
        {"state with 10 bytes", hex("01 00 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 00 80 FF 00 FF 00 FF 00 FF 00")},
        {"I2C not acknowledged", hex("04 00 00 00 00 00 01 00 02 00 00 00 01 00 00 00 A3")},
        {"reply beyond all bounds", hex("04 00 FF 00 00 00 01 00 FF FF FF FF 01 00 00 00 A3")},
        {"SPI sub-code 1 with 3 bytes", hex("06 00 00 01 00 00 01 00 03 00 00 00 03 00 00 00 01 02 03")},
        {"SPI before its pins", hex("06 00 00 01 00 00 01 00 02 00 00 00 02 00 00 00 24 00")},
        {"EEPROM data write", hex("04 00 FF 00 00 00 01 00 00 00 00 00 04 00 00 00 A2 00 03 99")},
        {"parallel output without data", hex("0A 00 FF 00 00 00 00 00 00 00 00 00 00 00 00 00")},
    };
    for (const auto& [label, bytes] : cases) {
        EXPECT_TRUE(bridge.bulkOut(0x04, bytes).complete) << label;
        EXPECT_EQ(complaintCount(), 1) << label;
        receive(0x86, 4096, 5000);
    }
    EXPECT_EQ(camera.changes, "");
}

TEST_F(NativeBridgeTest, SendsWordsInPacketsAndOneByteMore)
{
    // How the n + 1 bytes arrive when all the rest is asked for each time.
    const std::pair<size_t, std::vector<size_t>> cases[] = {
        {2, {2, 1}}, {511, {512}}, {512, {513}}, {600, {600, 1}}, {200001, {200002}}};
    start();
    for (const auto& [n, expected] : cases) {
        Bytes offered = offer(n + n % 2);
        offered.resize(n);
        EXPECT_EQ(parIn(n), offered);
        EXPECT_EQ(parts, expected) << n;
        EXPECT_TRUE(receive(0x88, 1, 50).empty()) << n << ": nothing may follow";
    }
    offer(2000);
    requestParIn(2000);
    EXPECT_EQ(receive(0x88, 600).size(), 512U);
    EXPECT_EQ(last.status, TransferStatus::BABBLE) << "a larger packet than there is space";
    EXPECT_EQ(toHex({receive(0x88, 512)[0]}), "14") << "the packet that did not fit is gone: next is byte 1024";
}

TEST_F(NativeBridgeTest, ParallelInputWaitsForTheCameraAndGivesUpInTime)
{
    start();
    request("0C 00 00 00 F4 01 00 00");  // 500 ms
    const int64_t start = clock.nowUs();
    offer(2, 400000);
    EXPECT_EQ(toHex(parIn(2)), "00 01");
    EXPECT_EQ(clock.nowUs() - start, 400000);

    // Words that trickle in keep the request alive as long as packets go on coming: 3000 words in 3 s.
    offer(6000, 0, 1000000);
    EXPECT_EQ(parIn(6000).size(), 6000U);
    for (const int64_t askAfterUs : {0, 900000}) {  // the deadline counts, not when the host looks
        offer(2, 600000);
        requestParIn(2);
        clock.pass(askAfterUs);
        EXPECT_TRUE(receive(0x88, 3, 1000).empty());
        EXPECT_TRUE(timedOut);
    }
    clock.pass(600000);
    EXPECT_EQ(toHex(parIn(2)), "00 01") << "the camera still has them";
}

TEST_F(NativeBridgeTest, WithoutATableTheBusDoesNotMove)
{
    start(false);
    offer(2);
    EXPECT_TRUE(parIn(1, 100).empty());
    EXPECT_EQ(log.takeComplaints(), "") << "hosts drain a fresh bridge this way";
    sendTable(hex("01 E2 00 x150"));
    EXPECT_TRUE(parIn(1, 100).empty());
    EXPECT_EQ(complaintCount(), 1);
    sendTable(TABLE);
    EXPECT_EQ(toHex(parIn(2)), "00 01");
}

TEST_F(NativeBridgeTest, RawWordsWaitInTwoBuffersForTheirRequest)
{
    start();
    EXPECT_EQ(bridge.bulkOut(0x02, Bytes(1500, 1)).length, 1024U);
    const Bytes odd = {1, 2, 3};
    for (const Bytes& expected : {Bytes(1024, 1), odd + Bytes{0}}) {
        request("0A 00 FF 00 00 00 00 00");
        EXPECT_EQ(receive(0x86, 4).size(), 4U);
        EXPECT_EQ(camera.received, expected);
        EXPECT_TRUE(bridge.bulkOut(0x02, odd).complete);
    }
}

TEST_F(NativeBridgeTest, ANewRequestEndsTheOneBefore)
{
    start();
    request("03 00 00 00 00 00 00 00", {}, 5);
    request("03 07 00 00 00 00 00 00", {}, 5);
    EXPECT_EQ(reply(9), "00 15 FF FF FF FF 00 07 03") << "not the stale reply";
    offer(4000);
    requestParIn(4000);
    EXPECT_EQ(receive(0x88, 512).size(), 512U);
    EXPECT_EQ(toHex(parIn(2)), "1E 1F") << "1024 bytes that waited in the bridge are lost: byte 1536 is next";
    EXPECT_EQ(log.takeComplaints(),
              "bridge: reply fetched up to byte 0 of 9\nbridge: parallel input abandoned after 512 bytes\n");
}

}  // namespace
}  // namespace vornsim::test
