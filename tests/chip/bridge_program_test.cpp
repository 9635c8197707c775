// SPDX-License-Identifier: MIT
// The bridge's own program, executed from its table on the emulated chip, seen from the host and from the pins.
#include "chip_bench.h"
#include "transport/waveforms.h"

namespace vornsim::test {
namespace {

using vornccd::GpifMode1;
using vornccd::GpifMode9;
using vornccd::ParInitData;
using vornccd::ParInitQSlowData;

constexpr ParallelBus HANDSHAKE{ParallelBus::Kind::HANDSHAKE, 0};
constexpr ParallelBus STROBED_2{ParallelBus::Kind::STROBED, 2};
constexpr ParallelBus STROBED_1{ParallelBus::Kind::STROBED, 1};
constexpr ParallelBus STROBED_0{ParallelBus::Kind::STROBED, 0};
constexpr ParallelBus NOTHING{ParallelBus::Kind::NONE, 0};

Bytes pattern(size_t length)
{
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + i / 251 + 1);
    return bytes;
}

/// Every test runs with packets of 512 and of 64 bytes, and the chip has nothing to complain about in the end.
struct BridgeProgram : ::testing::TestWithParam<bool> {
    BridgeProgram() : bench(GetParam()) { bench.start(); }
    ~BridgeProgram() override { EXPECT_EQ(bench.log.takeComplaints(), ""); }

    /// The program serves requests, and nothing of what was before is left.
    void expectWell(int line = __builtin_LINE())
    {
        SCOPED_TRACE("line " + std::to_string(line));
        bench.request("04 FF 00 00 00 01 00", {0xA2, 0, 0});
        EXPECT_EQ(toHex(bench.reply(4)), "00");
        bench.request("04 FF 00 00 00 01 00", {0xA3}, 3);
        EXPECT_EQ(toHex(bench.reply(4, 3)), "01 04 07 00");
        bench.expectSilence(1000);
        bench.camera->i2c.clear();
    }
    void readWords(size_t length, int64_t timeoutUs = 1000000)
    {
        const Bytes words = pattern(length + length % 2);
        bench.camera->output.send(words, bench.clock.nowUs());
        bench.askWords(length);
        const Bytes got = bench.receive(0x88, length + 1, timeoutUs);
        ASSERT_EQ(got.size(), length + 1);
        EXPECT_TRUE(std::equal(got.begin(), got.end() - 1, words.begin())) << length << " bytes";
        EXPECT_EQ(bench.camera->output.left(), 0U);
        EXPECT_EQ(toHex(bench.receive(0x88, 1, 200)), "") << "one byte more than asked for, not two";
    }

    ChipBench bench;
};
INSTANTIATE_TEST_SUITE_P(Speeds, BridgeProgram, ::testing::Bool(),
                         [](const auto& speed) { return speed.param ? "High" : "Full"; });

TEST_P(BridgeProgram, ChangesPortsAsTheMasksSay)
{
    const Bytes sixZeros(6, 0);
    bench.request("02 00 00 00 00 00 00", hex("00 9F FF 00 00 F0 FF 00 00 0F"));
    bench.request("01 00 00 00 00 00 00", hex("00 80 FF 00 FF 00 00 C3 0F 50") + sixZeros);
    bench.wait(1000);
    // A latch begins with what its pins show.
    EXPECT_EQ(bench.camera->changes, "0:00 9F;2:00 F0;4:00 0F;0:80 9F;1:22 00;2:3C F0;3:C3 00;4:57 0F;");
    bench.camera->changes.clear();
    bench.request("01 00 00 00 00 00 00", hex("DF 20 FF 00 F7 00 FF 00 FF 80") + sixZeros);
    bench.request("02 00 00 00 00 00 00", hex("FF 00 FE 01 FF 00 FF 00 FF 00"));
    bench.wait(1000);
    EXPECT_EQ(bench.camera->changes, "0:A0 9F;2:34 F0;4:D7 0F;1:22 01;");
    // Output pins show the latch, the others what the camera drives.
    bench.request("03 00 00 00 00 00 00", {}, 5);
    EXPECT_EQ(toHex(bench.reply(3, 5)), "80 22 3C 4B A7 00");
    bench.expectSilence();
    // What an input shows does not get into its latch.
    bench.camera->changes.clear();
    bench.request("01 00 00 00 00 00 00", hex("FF 00 FF 00 FF 00 FF 00 FF 00") + sixZeros);
    bench.wait(1000);
    EXPECT_EQ(bench.camera->changes, "");
    // A program that is loaded again keeps what the pins show.
    bench.start();
    bench.request("01 00 00 00 00 00 00", hex("FF 00 FF 00 FF 00 FF 00 FE 01") + sixZeros);
    bench.wait(1000);
    EXPECT_EQ(bench.camera->changes, "0:80 9F;2:3C F0;3:4B 00;4:A7 0F;");
}

TEST_P(BridgeProgram, AnswersOnlyWhoWantsAnAnswer)
{
    for (const char* head : {"05 00 01 00 00 00 00", "0C 00 00 32 00 00 00", "63 00 00 00 00 00 00"})
        bench.request(head);
    bench.wait(1000);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(bench.send(4, hex("0C 01 00 00 32 00 x11"), 0)) << "both buffers are free";
    bench.expectSilence();
    bench.request("05 FF 00 00 00 00 00");
    EXPECT_EQ(toHex(bench.reply(5)), "00");
    bench.request("63 FF 00 00 00 00 00");
    EXPECT_EQ(toHex(bench.reply(0x63)), "FF") << "unknown";
    bench.request("07 00 00 00 00 00 00", {}, 3);
    EXPECT_EQ(toHex(bench.reply(7, 3)), "FF FF FF FF");
    expectWell();
}

TEST_P(BridgeProgram, ReadsAndWritesI2c)
{
    for (const size_t length : {1U, 2U, 5U, 61U, 64U, 600U}) {
        bench.camera->position = 0;
        bench.request("04 FF 00 00 00 01 00", {0xA3}, static_cast<uint32_t>(length));
        Bytes expected(length);
        for (size_t i = 0; i < length; ++i)
            expected[i] = static_cast<uint8_t>(3 * i + 1);
        EXPECT_EQ(toHex(bench.reply(4, length)), toHex(expected + hex("00")));
        EXPECT_EQ(bench.camera->i2c, "r51 stop ");
        EXPECT_EQ(bench.camera->position, length);
        bench.camera->i2c.clear();
    }
    bench.request("04 FF 00 00 00 01 00", hex("80 48 53 43 11 64"));
    EXPECT_EQ(toHex(bench.reply(4)), "00");
    EXPECT_EQ(bench.camera->i2c, "w40 48 53 43 11 64 stop ");
}

TEST_P(BridgeProgram, SaysWhenAnI2cDeviceDoesNotAcknowledge)
{
    bench.request("04 FF 00 00 00 01 00", {0x21}, 3);  // nobody there
    EXPECT_EQ(toHex(bench.reply(4, 3)), "FF FF FF 01");
    bench.request("04 FF 00 00 00 01 00", {0x20, 1, 2});
    EXPECT_EQ(toHex(bench.reply(4)), "01");
    EXPECT_EQ(bench.camera->i2c, "r10 stop w10 stop ");
    for (const unsigned refused : {0x33U, 0x44U}) {  // in the middle, and the last byte
        bench.camera->i2c.clear();
        bench.camera->refusedByte = refused;
        bench.request("04 FF 00 00 00 01 00", {0x80, 0x11, 0x33, 0x44});
        EXPECT_EQ(toHex(bench.reply(4)), "01");
        EXPECT_EQ(bench.camera->i2c, refused == 0x33 ? "w40 11 33 stop " : "w40 11 33 44 stop ");
    }
    expectWell();
}

TEST_P(BridgeProgram, RefusesToWriteTheEeprom)
{
    bench.request("04 FF 00 00 00 01 00", hex("A2 00 00 C0"));
    EXPECT_NE(toHex(bench.reply(4)), "00");
    EXPECT_EQ(bench.camera->i2c, "");
    expectWell();
}

TEST_P(BridgeProgram, EndsAStuckI2cInTime)
{
    bench.setTimeouts(600, 50);
    bench.request("0C 00 00 BC 02 00 00");  // the other one alone: 700 ms for the parallel bus
    bench.device.chip().i2c().hold(true, bench.device.chip().now());
    for (const uint8_t address : {uint8_t{0xA3}, uint8_t{0xA2}}) {
        const int64_t before = bench.clock.nowUs();
        bench.request("04 FF 00 00 00 01 00", {address}, 2);
        EXPECT_EQ(toHex(bench.reply(4, 2)), "FF FF 01");
        EXPECT_GE(bench.clock.nowUs() - before, address == 0xA3 ? 48000 : 0);
        EXPECT_LE(bench.clock.nowUs() - before, 55000);
    }
    bench.device.chip().i2c().hold(false, bench.device.chip().now());
    bench.wait(5000);
    expectWell();
}

TEST_P(BridgeProgram, SetsTheSpeedOfI2c)
{
    int64_t durations[2] = {};
    for (const unsigned fast : {0U, 1U}) {
        bench.request(fast != 0 ? "05 00 01 00 00 00 00" : "05 00 00 00 00 00 00");
        const int64_t before = bench.clock.nowUs();
        bench.request("04 FF 00 00 00 01 00", {0xA3}, 64);
        (void)bench.reply(4, 64);
        durations[fast] = bench.clock.nowUs() - before;
    }
    EXPECT_LT(durations[0], 8000) << "64 bytes";
    EXPECT_LT(2 * durations[1], durations[0]);
}

TEST_P(BridgeProgram, ReadsTheParallelBus)
{
    struct Row {
        ParallelBus bus;
        const uint8_t* table;
        unsigned levelsAtRest;
    };
    const Row ROWS[] = {{HANDSHAKE, GpifMode9, 7},
                        {STROBED_2, ParInitData, 3},
                        {STROBED_1, ParInitQSlowData, 3},
                        {STROBED_0, ParInitQFastData, 7}};
    for (const Row& row : ROWS) {
        bench.camera->bus = row.bus;
        bench.sendTable(GpifMode1, sizeof GpifMode1);
        bench.sendTable(row.table, 152);
        for (const size_t length : std::initializer_list<size_t>{1, 2, 3, 62, 63, 64, 65, 510, 511, 512, 513, 1000,
                                                                 1022, 1023, 1024, 1025, 70000})
            readWords(length);
        EXPECT_EQ(bench.device.chip().controlLevels() & 7U, row.levelsAtRest);
        expectWell();
    }
}

TEST_P(BridgeProgram, ReadsAsFastAsTheCamerasNeed)
{
    const auto megabytesPerSecond = [&](ParallelBus bus, const uint8_t* table) {
        bench.camera->bus = bus;
        bench.sendTable(table, 152);
        const int64_t before = bench.clock.nowUs();
        readWords(1000000);
        return 1e6 / static_cast<double>(bench.clock.nowUs() - before);
    };
    const double classic = megabytesPerSecond(STROBED_2, ParInitData);
    const double quicker = megabytesPerSecond(STROBED_1, ParInitQSlowData);
    const int64_t before = bench.clock.nowUs();
    bench.request("03 00 00 00 00 00 00", {}, 5);
    (void)bench.reply(3, 5);
    const int64_t portUs = bench.clock.nowUs() - before;
    RecordProperty("classic", std::to_string(classic) + " MB/s");
    RecordProperty("quicker", std::to_string(quicker) + " MB/s");
    RecordProperty("ports", std::to_string(portUs) + " us");
    EXPECT_LT(portUs, 200);
    if (GetParam()) {
        EXPECT_GT(classic, 10.0);
        EXPECT_GT(quicker, 11.0);
    }
}

TEST_P(BridgeProgram, SendsNothingBeforeATableIsThere)
{
    bench.camera->output.send(pattern(100), 0);
    bench.askWords(10);
    bench.expectSilence(100000);
    Bytes table(GpifMode9, GpifMode9 + 152);
    bench.sendTable(table.data(), 151, "FF");
    bench.sendTable(GpifMode1, 152, "FF");
    table[1] = 0xE1;  // another interface mode
    bench.sendTable(table.data(), table.size(), "FF");
    bench.askWords(10);
    bench.expectSilence(100000);
    EXPECT_EQ(bench.camera->output.left(), 100U);
    expectWell();
    bench.sendTable(GpifMode9, 152);
    readWords(10);
    // A program that is loaded again has no table.
    bench.start();
    bench.askWords(10);
    bench.expectSilence(100000);
    expectWell();
}

TEST_P(BridgeProgram, WaitsForWordsAsLongAsItIsTold)
{
    bench.sendTable(GpifMode9, 152);
    for (const unsigned timeoutMs : {20U, 400U}) {
        bench.setTimeouts(timeoutMs, 5000);
        const int64_t margin = std::max<int64_t>(2000, int64_t{timeoutMs} * 50);
        for (const bool late : {false, true}) {
            bench.wait(5000);
            bench.camera->output.send(pattern(2),
                                      bench.clock.nowUs() + int64_t{timeoutMs} * 1000 + (late ? margin : -margin));
            bench.askWords(2);
            EXPECT_EQ(bench.receive(0x88, 3, int64_t{timeoutMs} * 1200 + 10000).size(), late ? 0U : 3U) << timeoutMs;
            bench.camera->output.clear();
        }
        bench.expectSilence();
        readWords(6);
    }
}

TEST_P(BridgeProgram, GivesEveryPacketItsTime)
{
    bench.sendTable(GpifMode9, 152);
    bench.setTimeouts(50, 5000);
    const auto packet = static_cast<int64_t>(bench.device.chip().packetLength());
    const Bytes words = pattern(static_cast<size_t>(5 * packet));
    bench.camera->output.send(words, bench.clock.nowUs(), 40'000'000 / (packet / 2));  // a packet in 40 ms
    bench.askWords(words.size());
    EXPECT_EQ(bench.receive(0x88, words.size() + 1, 400000).size(), words.size() + 1);
    // A part of a packet that does not get complete is not sent, and not found by anybody later.
    bench.camera->output.send(pattern(static_cast<size_t>(packet) + 20), bench.clock.nowUs());
    bench.askWords(words.size());
    EXPECT_EQ(bench.receive(0x88, words.size() + 1, 400000).size(), static_cast<size_t>(packet));
    EXPECT_EQ(bench.camera->output.left(), 0U);
    readWords(100);
    expectWell();
}

TEST_P(BridgeProgram, ForgetsWhatTheHostGaveUp)
{
    bench.sendTable(GpifMode9, 152);
    bench.setTimeouts(2000, 5000);
    // Words that nobody fetches, and a wait for words that is cut short.
    bench.camera->output.send(pattern(4000), bench.clock.nowUs());
    bench.askWords(4000);
    bench.wait(300000);
    expectWell();
    bench.camera->output.clear();
    readWords(700);
    bench.camera->output.send(pattern(40), bench.clock.nowUs());
    bench.askWords(200);
    bench.wait(10000);
    bench.camera->output.clear();
    readWords(700);
    // A slow host loses nothing.
    const Bytes words = pattern(3000);
    bench.camera->output.send(words, bench.clock.nowUs());
    bench.askWords(words.size());
    bench.wait(5000000);
    EXPECT_EQ(bench.receive(0x88, 3001).size(), 3001U);
    // Answers that nobody fetches, short and longer than both buffers.
    for (const uint32_t length : {2U, 1500U}) {
        bench.request("04 FF 00 00 00 01 00", {0xA3}, length);
        bench.wait(300000);
        expectWell();
    }
    for (int i = 0; i < 300; ++i)
        bench.request("03 00 00 00 00 00 00", {}, 5);
    expectWell();
}

TEST_P(BridgeProgram, WritesTheParallelBus)
{
    bench.sendTable(GpifMode9, 152);
    for (const size_t length : std::initializer_list<size_t>{2, 10, 63, 64, 65, 128}) {
        bench.camera->received.clear();
        ASSERT_TRUE(bench.send(2, pattern(length)));
        bench.request("0A FF 00 00 00 00 00");
        EXPECT_EQ(toHex(bench.reply(10)), "00") << length;
        Bytes expected = pattern(length);
        expected.resize(length + length % 2);
        EXPECT_EQ(toHex(bench.camera->received), toHex(expected));
    }
    bench.camera->bus = STROBED_2;
    bench.sendTable(ParInitData, 152);
    bench.camera->received.clear();
    ASSERT_TRUE(bench.send(2, pattern(10)));
    bench.request("0A FF 00 00 00 00 00");
    EXPECT_EQ(toHex(bench.reply(10)), "00");
    EXPECT_EQ(toHex(bench.camera->received), toHex(pattern(10)));
    expectWell();
}

TEST_P(BridgeProgram, EndsAStuckOutputInTime)
{
    bench.camera->bus = NOTHING;
    bench.sendTable(GpifMode9, 152);
    bench.setTimeouts(300, 5000);
    for (const size_t length : std::initializer_list<size_t>{0, 10}) {
        ASSERT_TRUE(length == 0 || bench.send(2, pattern(length)));
        const int64_t before = bench.clock.nowUs();
        bench.request("0A FF 00 00 00 00 00");
        EXPECT_EQ(toHex(bench.reply(10, 0, 1000000)), "01");
        EXPECT_NEAR(static_cast<double>(bench.clock.nowUs() - before), 300000.0, 15000.0);
    }
    // Nor do they come back with the words of the next one.
    bench.camera->bus = HANDSHAKE;
    ASSERT_TRUE(bench.send(2, {0x55, 0x66}));
    bench.request("0A FF 00 00 00 00 00");
    EXPECT_EQ(toHex(bench.reply(10)), "00");
    EXPECT_EQ(toHex(bench.camera->received), "55 66");
    bench.camera->received.clear();
    // Words that belong to no request are gone before the next one.
    ASSERT_TRUE(bench.send(2, pattern(6)));
    expectWell();
    ASSERT_TRUE(bench.send(2, {0x11, 0x22, 0x33, 0x44}));
    bench.request("0A FF 00 00 00 00 00");
    EXPECT_EQ(toHex(bench.reply(10)), "00");
    EXPECT_EQ(toHex(bench.camera->received), "11 22 33 44");
}

TEST_P(BridgeProgram, ExchangesSpi)
{
    bench.request("06 00 01 00 00 01 00", {1, 2}, 2);
    EXPECT_EQ(toHex(bench.reply(6, 2)), "FF FF 01") << "the pins are not set up";
    EXPECT_EQ(bench.camera->spi, "");
    for (const char* clockAtRest : {"1F C0", "1F 80"}) {
        bench.request("01 00 00 00 00 00 00", hex(clockAtRest) + hex("FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00"));
        bench.request("02 00 00 00 00 00 00", hex("0F E0 FF 00 FF 00 FF 00 FF 00"));
        bench.wait(1000);
        const unsigned latch = bench.device.chip().port(0).latch;
        bench.camera->spi.clear();
        bench.camera->spiLast = 0x5A;
        bench.request("06 00 02 03 00 01 00", hex("43 81 7E"), 3);
        EXPECT_EQ(toHex(bench.reply(6, 3)), "A5 BC 7E 00");
        EXPECT_EQ(bench.camera->spi, "select 43 81 7E deselect ");
        bench.request("06 00 01 00 00 01 00", hex("2A BC"), 2);
        EXPECT_EQ(toHex(bench.reply(6, 2)), "81 D5 00");
        EXPECT_EQ(bench.device.chip().port(0).latch, latch) << "pins at rest";
    }
    bench.camera->spi.clear();
    bench.request("06 00 02 03 00 01 00", pattern(132), 132);
    (void)bench.reply(6, 132);
    EXPECT_EQ(bench.camera->spi, "select " + toHex(pattern(132)) + " deselect ");
}

TEST_P(BridgeProgram, SurvivesWhatIsNoRequest)
{
    bench.sendTable(GpifMode9, 152);
    const Bytes CASES[] = {hex("0C"),
                           hex("03 01 FF 00 00"),
                           hex("04 01 FF 00 00 00 01 00 02 00 00 00 05 00 00 00 A3"),
                           hex("01 01 00 x13 FF FF FF FF"),
                           hex("01 01 00 x10 01 00 00 00"),
                           hex("04 01 FF 00 00 00 01 00 FF FF FF FF 00 00 00 00"),
                           hex("03 01 FF 00 x5 05 00 00 00 00 00 00 00 77"),
                           Bytes(bench.device.chip().packetLength(), 0xFF),
                           hex("01 01 00 x11 02 00") + Bytes(512 - 18, 0x55)};
    for (const Bytes& bytes : CASES) {
        (void)bench.send(4, bytes);
        bench.expectSilence(125000);
        expectWell();
    }
    bench.request("04 FF 00 00 00 01 00", {}, 2);
    EXPECT_EQ(toHex(bench.reply(4, 2)), "FF FF FF");
    bench.request("01 FF 00 00 00 00 00", {0, 1, 2});
    EXPECT_EQ(toHex(bench.reply(1)), "FF");
    readWords(10);
}

TEST_P(BridgeProgram, IsLoadedAgainWhileItWorks)
{
    bench.sendTable(GpifMode9, 152);
    bench.camera->output.send(pattern(3000), bench.clock.nowUs());
    bench.askWords(4000);
    bench.request("04 FF 00 00 00 01 00", {0xA3}, 200);
    ASSERT_TRUE(bench.send(2, pattern(100)));
    bench.start();
    bench.camera->output.clear();
    expectWell();
    // Nothing waits on any endpoint, even before the first request.
    const Bytes full = pattern(bench.device.chip().packetLength());
    bench.sendTable(GpifMode9, 152);
    bench.camera->output.send(pattern(200), bench.clock.nowUs());
    for (const char* what : {"words", "an answer"}) {
        SCOPED_TRACE(what);
        if (*what == 'w')
            bench.askWords(200);
        else
            bench.request("03 00 00 00 00 00 00", {}, 5);
        bench.wait(10000);
        ASSERT_TRUE(bench.send(2, full) && bench.send(2, full)) << "both buffers are free";
        bench.start();
        EXPECT_TRUE(bench.send(2, full) && bench.send(2, full)) << "both buffers are free again";
        bench.expectSilence();
    }
    bench.camera->output.clear();
    bench.sendTable(GpifMode9, 152);
    readWords(100);
    ASSERT_TRUE(bench.send(2, {1, 2}));
    bench.request("0A FF 00 00 00 00 00");
    EXPECT_EQ(toHex(bench.reply(10)), "00");
    EXPECT_EQ(toHex(bench.camera->received), "01 02");
    EXPECT_EQ(bench.device.chip().cpuControl() & 0x1A, 0x12) << "48 MHz, clock output on";
}

}  // namespace
}  // namespace vornsim::test
