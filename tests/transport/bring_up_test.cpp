// SPDX-License-Identifier: MIT
#include <algorithm>

#include <gtest/gtest.h>

#include "family_steps.h"
#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::TraceCapture;

TEST(AppInit, PollsUpTo64Times)
{
    for (const int emptyPolls : {0, 63, 64}) {
        SCOPED_TRACE(emptyPolls);
        OpenedCamera standard;
        standard.usb.command("2C 00");
        for (int poll = 0; poll < emptyPolls; poll++)
            standard.usb.pause(10000).parIn(2, "00 49");  // only the first byte counts
        if (emptyPolls < 64)
            standard.usb.pause(10000).parIn(2, "49 00");
        EXPECT_EQ(standard.camera.appInit(), emptyPolls < 64);
        EXPECT_TRUE(standard.usb.done());
    }
}

TEST(Ping, WantsTheNumberBackWithinItsTries)
{
    const struct {
        CAMERA_TYPE type;
        const char* command;
        long pauseUs;
        unsigned answer;  ///< so much more than was sent
        unsigned tries;
    } CASES[] = {{STANDARD, "43 00 4D 00 44 00 50 00", 20000, 1, 5}, {CLASSIC, "80 48 53 43 11", 50000, 0, 10}};
    for (const auto& row : CASES) {
        OpenedCamera opened(row.type);
        const auto number = [](unsigned counter) { return " " + vorntest::toHex({{static_cast<uint8_t>(counter)}}); };
        const auto attempt = [&](unsigned counter) -> vorntest::Steps& {
            if (row.type == STANDARD)
                opened.usb.parOut(row.command + number(counter) + " 00");
            else
                opened.usb.i2cWrite(row.command + number(counter));
            return opened.usb.pause(row.pauseUs);
        };
        attempt(100).parIn(2, number(100 + row.answer) + " 00");
        EXPECT_TRUE(opened.camera.ping());
        // one more, the number before, nothing
        attempt(100).parIn(2, number(101 + row.answer) + " 00");
        attempt(101).parIn(2, number(100 + row.answer) + " 00");
        attempt(102).parIn(2, "").fails(LIBUSB_ERROR_TIMEOUT);
        attempt(103).parIn(2, number(103 + row.answer) + " 00");
        EXPECT_TRUE(opened.camera.ping());
        for (unsigned counter = 100; counter < 100 + row.tries; counter++)
            attempt(counter).parIn(2, "00" + number(counter + row.answer));  // the first byte counts
        EXPECT_FALSE(opened.camera.ping());
        opened.expectSettled();
    }
    // a failed send with the right number read; QUICKER knows its camera by the product id, and only in a good read
    OpenedCamera standard;
    standard.usb.out(0x02, "43 00 4D 00 44 00 50 00 64 00").fails().pause(20000).parIn(2, "65 00");
    standard.usb.command("50 00 65 00").pause(20000).parIn(2, "66 00");
    EXPECT_TRUE(standard.camera.ping());
    standard.expectSettled();
    OpenedCamera quicker(QUICKER);
    quicker.usb.eepRead(3, 2, "2F DF").fails(LIBUSB_ERROR_TIMEOUT);
    EXPECT_FALSE(quicker.camera.ping());
    quicker.expectSettled();
}

TEST(Flush, RestoresTheGlobalTimeout)
{
    OpenedCamera quicker(QUICKER);  // others drain bytes only
    quicker.camera.timeout = 5000;
    for (int block = 0; block < 2; block++)
        quicker.usb.timeout(100).parIn(200000, vorntest::zeros(200000).substr(1));
    quicker.usb.emptyFlush(200000).timeout(100).parIn(1, "55").emptyFlush();
    TraceCapture trace;
    quicker.camera.flush();
    EXPECT_EQ(quicker.camera.timeout, 30000U);  // not the 5000 it had
    EXPECT_TRUE(trace.has("    400001 bytes flushed"));

    OpenedCamera standard;
    VornHostBulkTimeout = 700;
    standard.usb.timeout(100).parIn(1, "");
    standard.usb.cut(standard.usb.size() - 1).fails();  // the request itself fails
    standard.camera.flush();
    EXPECT_EQ(standard.camera.timeout, 700U);
    VornHostBulkTimeout = 30000;
}

/// Puts another table in place of the exported one, padded with @p padding, and the original back.
class OtherFirmware {
public:
    OtherFirmware(const std::string& hex, uint8_t padding)
    {
        std::copy(std::begin(FIRMWARE), std::end(FIRMWARE), saved_.begin());
        std::fill(std::begin(FIRMWARE), std::end(FIRMWARE), padding);
        const std::vector<uint8_t> bytes = vorntest::parseBytes(hex);
        std::copy(bytes.begin(), bytes.end(), FIRMWARE);
    }
    ~OtherFirmware() { std::copy(saved_.begin(), saved_.end(), FIRMWARE); }
    OtherFirmware(const OtherFirmware&) = delete;
    OtherFirmware& operator=(const OtherFirmware&) = delete;

private:
    std::vector<uint8_t> saved_ = std::vector<uint8_t>(sizeof FIRMWARE);
};

TEST(WriteFirmware, FollowsTheTableAHostPutThere)
{
    const struct {
        const char* table;
        std::vector<std::pair<unsigned, const char*>> transfers;  ///< behind the stop; address, data
        bool incomplete;
    } CASES[] = {
        {"01 34 12 AA 02 00 FF B1 B2 00", {{0x1234, "AA"}, {0xFF00, "B1 B2"}, {0xE600, "00"}}, false},
        {"01 34 12 AA 00", {}, true},
        {"01 01 00 A1 01 02 00 A2 01 03 00 A3 01 04 00 A4 00", {{1, "A1"}, {2, "A2"}, {3, "A3"}}, true},
        {"01 01 00 A1 01 02 00 A2 00", {{1, "A1"}, {2, "A2"}}, false},  // of the last record it is not said
    };
    for (const auto& row : CASES) {
        for (const int failure : {int{LIBUSB_ERROR_PIPE}, 0}) {  // moving nothing fails too
            SCOPED_TRACE(row.table);
            OpenedCamera standard;
            const OtherFirmware table(row.table, 0x00);
            standard.usb.controlOut(0xA0, 0xE600, 0, "01");
            for (const auto& [address, data] : row.transfers)
                standard.usb.controlOut(0xA0, address, 0, data);
            const bool ok = !row.transfers.empty() && row.transfers.back().first == 0xE600;
            if (!ok)
                standard.usb.fails(failure);
            TraceCapture trace;
            EXPECT_EQ(standard.camera.writeFW(), ok);
            EXPECT_EQ(trace.text(), std::string("-> VornCameraImpl::writeFW()\n") +
                                        (row.transfers.empty() ? "    cpu stopped 0\n" : "    cpu stopped 1\n") +
                                        (row.incomplete ? "    incomplete firmware upload\n" : "") +
                                        (ok ? "    cpu started 1\n<- VornCameraImpl::writeFW 1\n"
                                            : "    cpu started 0\n<- VornCameraImpl::writeFW 0\n"));
            EXPECT_TRUE(standard.usb.done());
        }
    }
}

// Without an end mark the walk must stop at the table's end; the address sanitizer watches.
TEST(WriteFirmware, NeverReadsPastTheTable)
{
    for (const bool lastFits : {false, true}) {
        OpenedCamera standard;
        const OtherFirmware table(lastFits ? "03 02 02 A1 A2 A3" : "", 2);
        standard.usb.controlOut(0xA0, 0xE600, 0, "01");
        if (lastFits)
            standard.usb.controlOut(0xA0, 0x0202, 0, "A1 A2 A3");
        for (size_t at = lastFits ? 6 : 0; at + 5 <= sizeof FIRMWARE; at += 5)
            standard.usb.controlOut(0xA0, 0x0202, 0, "02 02");
        if (lastFits)
            standard.usb.controlOut(0xA0, 0xE600, 0, "00");
        EXPECT_EQ(standard.camera.writeFW(), lastFits);
        EXPECT_TRUE(standard.usb.done());
    }
}

}  // namespace
