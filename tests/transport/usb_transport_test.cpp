// SPDX-License-Identifier: MIT
#include <atomic>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::TraceCapture;

std::vector<uint8_t> counting(size_t length, uint8_t first)
{
    std::vector<uint8_t> bytes(length);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

TEST(BulkRead, AsksInChunksOfMaxPacketSize)
{
    const struct {
        int64_t maxPacketSize;
        unsigned length;
        std::vector<int> chunks;
    } CASES[] = {
        {0x1800000, 2000, {2000}},   {512, 2000, {512, 512, 512, 464}},
        {512, 1024, {512, 512}},     {-5, 1000, {512, 488}},  // packets
        {0, 1000, {512, 488}},       {0x7FFFFFFFFFFFFFFF, 2000, {2000}},
        {0x100000000, 2000, {2000}}, {512, 0, {}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.maxPacketSize);
        OpenedCamera standard;
        standard.camera.maxPacketSize = row.maxPacketSize;
        const std::vector<uint8_t> expected = counting(row.length, 7);
        auto first = expected.begin();
        for (const int chunk : row.chunks) {
            standard.usb.in(0x88, chunk, std::vector<uint8_t>(first, first + chunk));
            first += chunk;
        }
        std::vector<uint8_t> bytes(row.length);
        EXPECT_TRUE(standard.camera.bulkRead(0x88, row.length, bytes.data()));
        EXPECT_EQ(bytes, expected);
    }
}

TEST(BulkRead, GoesOnAfterShortTransfersAndEndsAtAnError)
{
    OpenedCamera standard;
    standard.usb.in(0x86, 10, "01 02 03").in(0x86, 7, "").in(0x86, 7, "04").in(0x86, 6, "05 06 07 08 09 0A");
    std::vector<uint8_t> bytes(10);
    EXPECT_TRUE(standard.camera.bulkRead(0x86, 10, bytes.data()));
    EXPECT_EQ(bytes, counting(10, 1));

    standard.camera.maxPacketSize = 4;
    standard.camera.timeout = 1234;
    standard.usb.timeout(1234).in(0x88, 4, "01 02 03 04").in(0x88, 4, "05");
    standard.usb.in(0x88, 4, "06 07");  // a timeout that carries data; they do not count
    standard.usb.last().result = LIBUSB_ERROR_TIMEOUT;
    TraceCapture trace;
    EXPECT_FALSE(standard.camera.bulkRead(0x88, 9, bytes.data()));
    EXPECT_EQ(trace.text(), "    libusb_bulk_transfer -> LIBUSB_ERROR_TIMEOUT\n");
    EXPECT_EQ(standard.error(), "No error");
}

// In chunks of four bytes; all but the bridge's trailing one are for the caller.
TEST(ParIn, ReadsIntoTheCallersBuffer)
{
    const struct {
        const char* received;
        std::vector<std::pair<int, const char*>> chunks;  ///< asked for, got
        bool lastFails = false;                           ///< with the bytes that it got
    } CASES[] = {
        {"01 02 03", {{4, "01 02 03 EE"}}},
        {"01 02 03 04 05 06 07 08", {{4, "01 02 03 04"}, {4, "05 06 07 08"}, {1, "EE"}}},
        {"01 02 03 04 05 06 07 08 09 0A", {{4, "01 02 03 04"}, {4, "05 06 07 08"}, {3, "09 0A EE"}}},
        {"01 02 03 04 05 06 07", {{4, "01"}, {4, ""}, {4, "02 03"}, {4, "04 05 06"}, {2, "07"}, {1, "EE"}}},
        {"00 00 00 00 00 00 00 00 00 00", {{4, ""}}, true},
        {"01 02 03 04 05 06 00 00 00 00", {{4, "01 02 03 04"}, {4, "05 06"}}, true},
        {"01 02 03 04 05 06 07 08 09 00", {{4, "01 02 03 04"}, {4, "05 06 07 08"}, {3, "09"}}, true},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.received);
        const auto n = static_cast<unsigned>(vorntest::parseHex(row.received).size());
        OpenedCamera standard;
        standard.camera.maxPacketSize = 4;
        standard.usb.parIn(n, "").cut(1);  // the request
        for (const auto& [length, bytes] : row.chunks)
            standard.usb.in(0x88, length, bytes);
        if (row.lastFails)
            standard.usb.last().result = LIBUSB_ERROR_TIMEOUT;
        std::vector<uint8_t> buffer(n + 4, 0xCC);
        EXPECT_EQ(standard.camera.parIn(buffer.data(), n), !row.lastFails);
        EXPECT_EQ(vorntest::toHex(buffer), std::string(row.received) + " CC CC CC CC");
        standard.expectSettled();
    }
}

TEST(BulkWrite, TakesAShortOneForSuccess)
{
    struct : vorntest::Backend {
        int serve(const vorntest::BusCall& call, std::span<uint8_t> /*data*/, int& transferred) override
        {
            EXPECT_EQ(call.text(), "out 0x04, 3 bytes, 30000 ms: 01 02 03");
            transferred = 1;
            return 0;
        }
    } shortWriter;
    OpenedCamera standard;
    standard.usb.device.backend = &shortWriter;
    standard.camera.maxPacketSize = 1;  // for reads only
    const uint8_t bytes[] = {1, 2, 3};
    EXPECT_TRUE(standard.camera.bulkWrite(0x104, 3, bytes));  // the endpoint's low eight bits
}

// What a closed camera is asked must not reach libusb, which would crash.
TEST(Transport, RefusesAClosedCamera)
{
    OpenedCamera standard;
    VornCameraImpl& camera = standard.camera;
    camera.handle = nullptr;
    uint8_t bytes[4] = {};
    EXPECT_FALSE(camera.bulkRead(0x86, 4, bytes));
    EXPECT_FALSE(camera.bulkWrite(0x04, 4, bytes));
    EXPECT_FALSE(camera.setParTimeout(50));
    EXPECT_FALSE(camera.writeFW());
    EXPECT_EQ(camera.readRegister(0xFFFFF0F00800), 0U);
    camera.writeRegister(0xFFFFF0F00800, 1);
}

TEST(Lock, ReleaseIsHarmlessWhenNobodyHoldsIt)
{
    OpenedCamera standard;
    standard.camera.unlock();
    standard.camera.unlock();
    standard.camera.lock();
    EXPECT_FALSE(standard.lockFree());
    standard.camera.unlock();
    standard.camera.unlock();
    EXPECT_TRUE(standard.lockFree());
}

TEST(Lock, ASecondThreadSaysBusyAndWaits)
{
    OpenedCamera standard;
    TraceCapture trace;
    std::atomic<bool> acquired = false;
    standard.camera.lock();
    std::thread second([&] {
        standard.camera.lock();
        acquired = true;
        standard.camera.unlock();
    });
    while (trace.textSoFar().find("lock busy") == std::string::npos)
        std::this_thread::yield();
    EXPECT_FALSE(acquired);
    standard.camera.unlock();
    second.join();
    EXPECT_TRUE(acquired);
    EXPECT_EQ(trace.lines(),
              (std::vector<std::string>{"    lock()", "    lock()", "    lock busy", "    unlock()", "    unlock()"}));
}

}  // namespace
