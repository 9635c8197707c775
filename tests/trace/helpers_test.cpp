// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace/trace.h"
#include "trace_capture.h"

namespace {

using vornccd::_d;
using vornccd::_i;
using vorntest::OpenedCamera;
using vorntest::StderrCapture;
using vorntest::TraceCapture;

TEST(Indentation, GrowsByOneBlankALevel)
{
    EXPECT_STREQ(_i(1), "");
    EXPECT_STREQ(_i(0), "");
    EXPECT_STREQ(_i(1), " ");
    EXPECT_STREQ(_i(0), " ");
    EXPECT_STREQ(_i(1), "  ");
    EXPECT_STREQ(_i(0), "  ");
    EXPECT_STREQ(_i(-1), "  ");
    EXPECT_STREQ(_i(-1), " ");
    EXPECT_STREQ(_i(0), "");
    EXPECT_STREQ(_i(-1), "");
}

TEST(Indentation, ReachesSixteenBlanks)
{
    for (int depth = 0; depth < 16; depth++)
        (void)_i(1);
    EXPECT_EQ(std::string(_i(0)), std::string(15, ' '));
    EXPECT_EQ(std::string(_i(1)), std::string(16, ' '));
    for (int depth = 0; depth < 17; depth++)
        (void)_i(-1);
    EXPECT_STREQ(_i(1), "");
    (void)_i(-1);
}

TEST(HexDump, ShowsAtMostFourBytes)
{
    const uint8_t bytes[] = {0x01, 0x02, 0xAB, 0x04, 0x05, 0x06};
    EXPECT_STREQ(_d(nullptr, 3), "NULL");
    EXPECT_STREQ(_d(bytes, 0), "]");  // the closing bracket overwrites the opening one
    EXPECT_STREQ(_d(bytes, 1), "[0x01]");
    EXPECT_STREQ(_d(bytes, 2), "[0x01 0x02]");
    EXPECT_STREQ(_d(bytes, 4), "[0x01 0x02 0xab 0x04]");
    EXPECT_STREQ(_d(bytes, 5), "[0x01 0x02 0xab 0x04...]");
    EXPECT_STREQ(_d(bytes, 6), "[0x01 0x02 0xab 0x04...]");
}

TEST(Switches, BothMustBeOn)
{
    struct {
        bool debug;
        bool debugOn;
        const char* expected;
    } const CASES[] = {
        {false, true, ""},
        {true, false, ""},
        {false, false, ""},
        {true, true, "-> VornCameraImpl::close()\n<- VornCameraImpl::close\n"},
    };
    OpenedCamera standard;
    standard.camera.handle = nullptr;
    for (const auto& row : CASES) {
        StderrCapture capture;
        VornDebug = row.debug;
        VornDebugOn = row.debugOn;
        standard.camera.close();
        VornDebug = false;
        VornDebugOn = true;
        EXPECT_EQ(capture.text(), row.expected) << row.debug << row.debugOn;
    }
}

TEST(Switches, AppInitSilencesItsPollingAndSwitchesOnAgain)
{
    OpenedCamera standard;
    standard.usb.command("2C 00").pause(10000).parIn(2, "00 00").pause(10000).parIn(2, "49 00");
    TraceCapture trace;
    EXPECT_TRUE(standard.camera.appInit());
    EXPECT_TRUE(VornDebugOn);
    const std::vector<std::string> expected = {
        "-> VornCameraImpl::appInit()",
        " -> VornCameraImpl::sendCommand(44, NULL, ..., 0, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        "    ----- DEBUG OFF -----",
        "    ----- DEBUG ON -----",
        "    APPINIT completed",
        "<- VornCameraImpl::appInit 1",
    };
    EXPECT_EQ(trace.lines(), expected);
}

// A host's own choice does not survive such a loop.
TEST(Switches, AppInitTurnsTheSecondSwitchOnForAHostThatHadClearedIt)
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
