// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "../simulator/device_fixture.h"
#include "chip/chip_camera.h"
#include "device/bridge/bus_output.h"
#include "vornccd.h"

namespace vornsim::test {

/// @return the table that the tests load: the one that was built in, or the file that VORNCCD_TEST_TABLE names.
inline const Bytes& testedTable()
{
    static const Bytes TABLE = [] {
        const char* path = std::getenv("VORNCCD_TEST_TABLE");  // NOLINT(concurrency-mt-unsafe)
        if (path == nullptr)
            return Bytes(std::begin(FIRMWARE), std::end(FIRMWARE));
        std::ifstream file(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), {});
    }();
    return TABLE;
}

/// A camera with something on every pin, which remembers what happens to it.
struct PinCamera : BusCamera {
    explicit PinCamera(const Clock& chipClock) : clock(chipClock) {}

    void portChanged(unsigned port, const PortLines& lines) override
    {
        changes += std::to_string(port) + ":" + toHex({lines.latch, lines.direction}) + ";";
    }
    uint8_t portInputs(unsigned port) override { return inputs[port]; }

    bool i2cStart(uint8_t address, bool reading) override
    {
        i2c += (reading ? "r" : "w") + toHex({address}) + " ";
        position = address == 0x51 && !reading ? 0 : position;
        return address == 0x51 || address == 0x40;
    }
    bool i2cWrite(uint8_t byte) override
    {
        i2c += toHex({byte}) + " ";
        return byte != refusedByte;
    }
    uint8_t i2cRead() override { return static_cast<uint8_t>(3 * position++ + 1); }
    void i2cStop() override { i2c += "stop "; }

    SpiMode spiMode() const override { return SpiMode::COMMANDS; }
    void spiSelect() override { spi += "select "; }
    uint8_t spiOutput() override { return static_cast<uint8_t>(~spiLast); }
    void spiInput(uint8_t byte) override
    {
        spi += toHex({byte}) + " ";
        spiLast = byte;
    }
    void spiDeselect() override { spi += "deselect "; }

    ParallelBus parallelBus() const override { return bus; }
    OfferedWords offeredWords(int64_t nowUs) override { return output.offered(nowUs); }
    void wordsTaken(size_t byteCount) override { output.taken(byteCount); }
    void wordsReceived(std::span<const uint8_t> bytes) override
    {
        received.insert(received.end(), bytes.begin(), bytes.end());
    }

    const Clock& clock;
    std::string changes, i2c, spi;
    uint8_t inputs[5] = {0x15, 0x22, 0x3C, 0x4B, 0xA7};
    unsigned position = 0;
    unsigned refusedByte = 0x100;
    uint8_t spiLast = 0x5A;
    ParallelBus bus{ParallelBus::Kind::HANDSHAKE, 0};
    BusOutput output;
    Bytes received;
};

/// A host at the far end of the cable that sends exactly the bytes it is told and waits in manual time.
class ChipBench {
public:
    explicit ChipBench(bool highSpeed = true)
        : device(
              0xDF2C,
              [this](const Clock& chipClock) {
                  auto made = std::make_unique<PinCamera>(chipClock);
                  camera = made.get();
                  return made;
              },
              clock, log, highSpeed)
    {
        EXPECT_TRUE(device.setInterface(0, 1));
    }

    bool load(uint16_t address, Bytes data)
    {
        const ControlResult result = device.control({0x40, 0xA0, address, 0, static_cast<uint16_t>(data.size())}, data);
        return result.status == TransferStatus::OK && result.length == data.size();
    }
    /// Loads the table as hosts do and lets the program start.
    void start()
    {
        const Bytes& table = testedTable();
        ASSERT_TRUE(load(0xE600, {1}));
        for (size_t at = 0; at + 3 < table.size() && table[at] != 0; at += 3U + table[at]) {
            const auto data = table.begin() + static_cast<ptrdiff_t>(at) + 3;
            ASSERT_TRUE(load(static_cast<uint16_t>(table[at + 1] | table[at + 2] << 8), {data, data + table[at]}));
        }
        ASSERT_TRUE(load(0xE600, {0}));
        wait(1000);
    }
    void wait(int64_t microseconds)
    {
        clock.pass(microseconds);
        (void)device.truth();  // the chip catches up
    }

    /// Sends as a host with a timeout does. @return whether all bytes went.
    bool send(uint8_t endpoint, const Bytes& bytes, int64_t timeoutUs = 100000)
    {
        const int64_t deadline = clock.nowUs() + timeoutUs;
        for (size_t moved = 0;;) {
            const BulkResult step = device.bulkOut(endpoint, std::span(bytes).subspan(moved));
            moved += step.length;
            if (step.complete || clock.nowUs() >= deadline)
                return step.complete && moved == bytes.size();
            clock.pass(std::min(step.retryAtUs, deadline) - clock.nowUs());
        }
    }
    /// Reads as a host with a timeout does, again after short packets until @p length bytes are there. Counts the
    /// transfers that takes.
    Bytes receive(uint8_t endpoint, size_t length, int64_t timeoutUs = 100000)
    {
        Bytes data(length);
        size_t moved = 0;
        transfers = 0;
        const int64_t deadline = clock.nowUs() + timeoutUs;
        while (moved < length) {
            const BulkResult step = device.bulkIn(endpoint, std::span(data).subspan(moved));
            moved += step.length;
            status = step.status;
            transfers += step.complete ? 1U : 0U;
            if (status != TransferStatus::OK || (!step.complete && clock.nowUs() >= deadline))
                break;
            if (!step.complete)
                clock.pass(std::min(step.retryAtUs, deadline) - clock.nowUs());
        }
        data.resize(moved);
        return data;
    }

    /// Sends a request: 8 bytes of header without the sequence, which counts up, then both lengths and the payload.
    void request(const std::string& head, const Bytes& payload = {}, uint32_t replyLength = 0)
    {
        Bytes bytes = hex(head);
        bytes.insert(bytes.begin() + 1, ++sequence);
        for (const auto word : {replyLength, static_cast<uint32_t>(payload.size())})
            for (int shift = 0; shift < 32; shift += 8)
                bytes.push_back(static_cast<uint8_t>(word >> shift));
        ASSERT_EQ(bytes.size(), 16U);
        ASSERT_TRUE(send(4, bytes + payload)) << "the request is not taken";
    }
    /// @return the reply data of the last request after a check of what is around them, then the status.
    Bytes reply(uint8_t code, size_t length = 0, int64_t timeoutUs = 100000)
    {
        Bytes answer = receive(0x86, length + 4, timeoutUs);
        EXPECT_EQ(answer.size(), length + 4) << "code " << unsigned{code};
        EXPECT_EQ(transfers, 1U) << "no short packet before the end of the answer";
        if (answer.size() != length + 4)
            return {};
        EXPECT_EQ(answer[0], 0);
        EXPECT_EQ(answer[length + 2], sequence);
        EXPECT_EQ(answer[length + 3], code);
        return {answer.begin() + 1, answer.end() - 2};
    }
    void expectSilence(int64_t us = 5000)
    {
        EXPECT_EQ(toHex(receive(0x86, 512, us)), "");
        EXPECT_EQ(toHex(receive(0x88, 512, us)), "");
    }
    void sendTable(const uint8_t* table, size_t length, const char* expected = "00")
    {
        request("08 FF 00 00 00 00 00", {table, table + length});
        EXPECT_EQ(toHex(reply(8)), expected);
    }
    void setTimeouts(unsigned parallelMs, unsigned i2cMs)
    {
        const auto send = [&](const char* code, unsigned ms) {
            request(code + toHex({static_cast<uint8_t>(ms), static_cast<uint8_t>(ms >> 8)}) + " 00 00");
        };
        send("0C 00 00 ", parallelMs);
        send("0C 00 01 ", i2cMs);
    }
    /// Asks for @p length bytes of the parallel bus.
    void askWords(size_t length)
    {
        request("09 00 00 " + toHex({static_cast<uint8_t>(length >> 16), static_cast<uint8_t>(length >> 24),
                                     static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)}));
    }

    ManualClock clock;
    CollectingLog log;
    PinCamera* camera = nullptr;
    ChipCamera device;
    uint8_t sequence = 0;
    unsigned transfers = 0;  // of the last receive()
    TransferStatus status = TransferStatus::OK;
};

}  // namespace vornsim::test
