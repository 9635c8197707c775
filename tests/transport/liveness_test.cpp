// SPDX-License-Identifier: MIT
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

}  // namespace
