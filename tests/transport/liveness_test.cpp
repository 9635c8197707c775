// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

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

TEST(Ping, StandardAnswersOneMoreWithinFiveTries)
{
    OpenedCamera standard;
    standard.usb.command("50 00 64 00").pause(20000).parIn(2, "65 00");
    EXPECT_TRUE(standard.camera.ping());

    // a wrong answer, an answer to the try before, a failed read, a failed send with a right answer
    standard.usb.command("50 00 64 00").pause(20000).parIn(2, "64 00");
    standard.usb.command("50 00 65 00").pause(20000).parIn(2, "65 00");
    standard.usb.command("50 00 66 00").pause(20000).parIn(2, "").fails(LIBUSB_ERROR_TIMEOUT);
    standard.usb.out(0x02, "43 00 4D 00 44 00 50 00 67 00").fails().pause(20000).parIn(2, "68 00");
    standard.usb.command("50 00 68 00").pause(20000).parIn(2, "69 00");
    EXPECT_TRUE(standard.camera.ping());

    for (const char* counter : {"64", "65", "66", "67", "68"})
        standard.usb.command(std::string("50 00 ") + counter + " 00").pause(20000).parIn(2, "00 65");
    EXPECT_FALSE(standard.camera.ping());
}

TEST(Flush, DrainsUntilTheTimeoutAndRestoresTheGlobalTimeout)
{
    OpenedCamera standard;
    standard.camera.timeout = 5000;
    standard.usb.timeout(100);
    for (int i = 0; i < 3; i++)
        standard.usb.parIn(1, "77");
    standard.usb.emptyFlush();
    TraceCapture trace;
    standard.camera.flush();
    EXPECT_EQ(standard.camera.timeout, 30000U);  // not the 5000 it had
    EXPECT_TRUE(trace.has("    3 bytes flushed"));

    VornHostBulkTimeout = 700;
    standard.usb.timeout(100).parIn(1, "");
    standard.usb.cut(standard.usb.size() - 1).fails();  // the request itself fails
    standard.camera.flush();
    EXPECT_EQ(standard.camera.timeout, 700U);
    VornHostBulkTimeout = 30000;
}

}  // namespace
