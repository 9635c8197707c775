// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace/trace.h"
#include "trace_capture.h"

namespace {

using vornccd::_d;
using vornccd::_i;
using vorntest::OpenedCamera;
using vorntest::TraceCapture;

TEST(Indentation, GrowsByOneBlankALevel)
{
    for (size_t depth = 0; depth < 16; depth++) {
        EXPECT_EQ(_i(1), std::string(depth, ' '));
        EXPECT_EQ(_i(0), std::string(depth, ' '));
    }
    for (size_t depth = 16; depth-- > 0;)
        EXPECT_EQ(_i(-1), std::string(depth, ' '));
    EXPECT_STREQ(_i(0), "");
}

TEST(HexDump, ShowsAtMostFourBytes)
{
    const uint8_t bytes[] = {0x01, 0x02, 0xAB, 0x04, 0x05, 0x06};
    EXPECT_STREQ(_d(nullptr, 3), "NULL");
    EXPECT_STREQ(_d(bytes, 0), "]");  // the closing bracket overwrites the opening one
    EXPECT_STREQ(_d(bytes, 2), "[0x01 0x02]");
    EXPECT_STREQ(_d(bytes, 4), "[0x01 0x02 0xab 0x04]");
    EXPECT_STREQ(_d(bytes, 5), "[0x01 0x02 0xab 0x04...]");
}

TEST(Switches, BothMustBeOn)
{
    for (const int switches : {0, 1, 2, 3}) {
        OpenedCamera standard;
        standard.camera.handle = nullptr;
        TraceCapture trace;
        VornDebug = (switches & 1) != 0;
        VornDebugOn = (switches & 2) != 0;
        standard.camera.close();
        VornDebugOn = true;
        EXPECT_EQ(trace.text(), switches == 3 ? "-> VornCameraImpl::close()\n<- VornCameraImpl::close\n" : "");
    }
}

// A host's own choice does not survive such a loop.
TEST(Switches, AppInitSetsTheSecond)
{
    OpenedCamera standard;
    standard.usb.command("2C 00").pause(10000).parIn(2, "49 00");
    TraceCapture trace;
    VornDebugOn = false;
    EXPECT_TRUE(standard.camera.appInit());
    EXPECT_TRUE(VornDebugOn);
    EXPECT_TRUE(trace.has("    ----- DEBUG ON -----"));
    EXPECT_FALSE(trace.has("    ----- DEBUG OFF -----"));
    (void)_i(1);  // the exit line had no entry line; level the depth for the tests that follow
}

}  // namespace
