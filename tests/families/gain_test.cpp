// SPDX-License-Identifier: MIT
#include <climits>

#include <gtest/gtest.h>

#include "family_steps.h"
#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::OpenedCamera;
using vorntest::TraceCapture;

// marker, not interpreted, gain, offset code; the same for the preview
const char* const EARLIER = "00 58 AA AA 00 07 00 07 00 58 AA AA 00 07 00 07";
const char* const RECORD = "00 58 12 34 00 3F 01 80 00 58 56 78 00 02 00 90";
const char* const NOT_READY = "01 58 12 34 00 3F 01 80 00 58 56 78 00 02 00 90";

void get(OpenedCamera& opened, const std::string& record)
{
    advancedCommand(opened.usb, "8D", record);
}

/// An exchange of setGain(), which pauses after each.
void poll(OpenedCamera& opened, const std::string& record)
{
    get(opened, record);
    opened.usb.pause(10000);
}

void pollUnanswered(OpenedCamera& opened)
{
    get(opened, RECORD);
    opened.usb.fails(LIBUSB_ERROR_TIMEOUT).pause(10000);
}

TEST(GetGain, DecodesTheHalfOfTheReadoutMode)
{
    struct {
        bool preview;
        const char* record;
        int gain;
        int offset;
    } const CASES[] = {
        {false, RECORD, 63, 128},  // code 384
        {true, RECORD, 2, 401},    // code 144
        {false, "00 58 00 00 00 00 02 00 00 58 00 00 00 01 00 01", 0, 0},
        {false, "00 58 00 00 00 3F 01 00 00 58 00 00 00 01 00 01", 63, 256},
        {false, "00 58 00 00 00 0A 00 00 00 58 00 00 00 01 00 01", 10, 257},
        {false, "00 58 00 00 00 0A 00 FF 00 58 00 00 00 01 00 01", 10, 512},
        {true, "00 00 00 00 00 00 00 00 00 00 00 00 01 02 03 00", 258, -256},  // neither marked nor in range
        {false, "02 58 00 00 00 05 01 FF 00 00 00 00 00 00 00 00", 5, 1},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.record);
        OpenedCamera advanced(ADVANCED);
        advanced.camera.previewMode = row.preview;
        get(advanced, row.record);
        int gain = -1;
        int offset = -1;
        EXPECT_TRUE(advanced.camera.getGain(&gain, &offset));
        EXPECT_EQ(gain, row.gain);
        EXPECT_EQ(offset, row.offset);
        EXPECT_TRUE(advanced.usb.done());
        EXPECT_TRUE(advanced.lockFree());
    }
}

TEST(GetGain, AsksAgainWithoutPausesUpToAHundredTimes)
{
    for (const int notReady : {0, 1, 99, 100}) {
        SCOPED_TRACE(notReady);
        OpenedCamera advanced(ADVANCED);
        for (int i = 0; i < notReady; i++)
            get(advanced, NOT_READY);
        get(advanced, RECORD);  // as the 101st answer it does not count any more
        const bool ok = notReady < 100;
        int gain = -1;
        int offset = -1;
        TraceCapture trace;
        EXPECT_EQ(advanced.camera.getGain(&gain, &offset), ok);
        EXPECT_TRUE(advanced.usb.done());
        EXPECT_EQ(gain, ok ? 63 : -1);
        EXPECT_EQ(offset, ok ? 128 : -1);
        EXPECT_EQ(advanced.error(), ok ? "No error" : "Failed to set gain");
        EXPECT_EQ(trace.lines().back(),
                  ok ? "<- VornCameraImpl::getGain 1 -> 63, 128" : "<- VornCameraImpl::getGain 00 //  no response");
        EXPECT_TRUE(advanced.lockFree());
    }
}

TEST(GetGain, AFailedExchangeLeavesOutputsAndText)
{
    OpenedCamera advanced(ADVANCED);
    get(advanced, NOT_READY);
    get(advanced, RECORD);
    advanced.usb.fails(LIBUSB_ERROR_TIMEOUT);
    int gain = -1;
    int offset = -2;
    TraceCapture trace;
    EXPECT_FALSE(advanced.camera.getGain(&gain, &offset));
    EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::getGain 0 -> -1, -2");
    EXPECT_EQ(advanced.error(), "No error");
    EXPECT_TRUE(advanced.lockFree());
}

TEST(Gain, OfOtherFamiliesSucceedsWithoutTrafficAndLeavesAText)
{
    for (const CAMERA_TYPE type : {STANDARD, CLASSIC, QUICKER, IIDC}) {
        OpenedCamera other(type);
        int gain = -1;
        int offset = -2;
        TraceCapture trace;
        EXPECT_TRUE(other.camera.getGain(&gain, &offset));
        EXPECT_EQ(gain, -1);
        EXPECT_EQ(offset, -2);
        EXPECT_EQ(other.error(), "Unsupported operation");
        other.camera.lastError = "No error";
        EXPECT_TRUE(other.camera.setGain(64, -1));  // not even its arguments matter
        EXPECT_EQ(other.error(), "Unsupported operation");
        EXPECT_TRUE(other.lockFree());
        const std::vector<std::string> expected = {"-> VornCameraImpl::getGain(...)",
                                                   "    lock()",
                                                   "    unlock()",
                                                   "<- VornCameraImpl::getGain 1 -> -1, -2",
                                                   "-> VornCameraImpl::setGain(64, -1)",
                                                   "    lock()",
                                                   "    unlock()",
                                                   "<- VornCameraImpl::setGain 1"};
        EXPECT_EQ(trace.lines(), expected);
    }
}

TEST(SetGain, WritesTheSecondValidRecordBackWithOneHalfChanged)
{
    struct {
        bool preview;
        int gain;
        int offset;
        const char* payload;
    } const CASES[] = {
        {false, 0, 0, "00 19 00 58 12 34 00 00 02 00 00 58 56 78 00 02 00 90"},
        {false, 0, 1, "00 19 00 58 12 34 00 00 01 FF 00 58 56 78 00 02 00 90"},
        {false, 63, 256, "00 19 00 58 12 34 00 3F 01 00 00 58 56 78 00 02 00 90"},
        {false, 10, 257, "00 19 00 58 12 34 00 0A 00 00 00 58 56 78 00 02 00 90"},
        {true, 10, 512, "00 19 00 58 12 34 00 3F 01 80 00 58 56 78 00 0A 00 FF"},
        {true, 63, 258, "00 19 00 58 12 34 00 3F 01 80 00 58 56 78 00 3F 00 01"},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.payload);
        OpenedCamera advanced(ADVANCED);
        advanced.camera.previewMode = row.preview;
        poll(advanced, EARLIER);  // the first valid one is never used
        poll(advanced, RECORD);
        advancedCommand(advanced.usb, std::string("8C ") + row.payload);
        EXPECT_TRUE(advanced.camera.setGain(row.gain, row.offset));
        EXPECT_TRUE(advanced.usb.done());
        EXPECT_EQ(advanced.error(), "No error");
        EXPECT_TRUE(advanced.lockFree());
    }
}

TEST(SetGain, PassesOverRecordsThatAreNotValid)
{
    OpenedCamera advanced(ADVANCED);
    for (const char* record : {
             NOT_READY,
             "00 59 12 34 00 3F 01 80 00 58 56 78 00 02 00 90",  // first marker
             "02 58 12 34 00 3F 01 80 00 58 56 78 00 02 00 90",
             "00 58 12 34 00 3F 01 80 00 57 56 78 00 02 00 90",  // second marker
             "00 58 12 34 00 3F 01 80 01 58 56 78 00 02 00 90",
             "00 58 12 34 00 40 01 80 00 58 56 78 00 02 00 90",  // gains beyond 63
             "00 58 12 34 01 00 01 80 00 58 56 78 00 02 00 90",
             "00 58 12 34 00 3F 01 80 00 58 56 78 00 40 00 90",
             "00 58 12 34 00 3F 01 80 00 58 56 78 02 02 00 90",
         })
        poll(advanced, record);
    pollUnanswered(advanced);  // the record stays what it was: not valid
    poll(advanced, EARLIER);
    poll(advanced, NOT_READY);  // the second valid one need not follow at once
    poll(advanced, RECORD);
    advancedCommand(advanced.usb, "8C 00 19 00 58 12 34 00 05 02 00 00 58 56 78 00 02 00 90");
    EXPECT_TRUE(advanced.camera.setGain(5, 0));
    EXPECT_TRUE(advanced.usb.done());
}

TEST(SetGain, AFailedExchangeOrWriteLeavesTheText)
{
    OpenedCamera advanced(ADVANCED);
    poll(advanced, RECORD);
    pollUnanswered(advanced);  // the record stays valid, which ends the loop, but nothing is written
    TraceCapture trace;
    EXPECT_FALSE(advanced.camera.setGain(5, 0));
    EXPECT_TRUE(advanced.usb.done());
    EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::setGain 0");
    EXPECT_EQ(advanced.error(), "No error");
    EXPECT_TRUE(advanced.lockFree());

    poll(advanced, RECORD);
    poll(advanced, RECORD);
    advancedCommand(advanced.usb, "8C 00 19 00 58 12 34 00 05 02 00 00 58 56 78 00 02 00 90").fails();
    EXPECT_FALSE(advanced.camera.setGain(5, 0));
    EXPECT_EQ(advanced.error(), "No error");
    EXPECT_TRUE(advanced.lockFree());
}

TEST(SetGain, GivesUpAtTheHundredAndFirstAnswer)
{
    struct {
        const char* label;
        bool answered;
        const char* last;  ///< the 101st, null when it is not answered either
    } const CASES[] = {{"not ready, then a second valid record too late", true, RECORD},
                       {"never answered", false, nullptr}};
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        OpenedCamera advanced(ADVANCED);
        if (row.answered)
            poll(advanced, RECORD);
        for (int i = row.answered ? 1 : 0; i < 100; i++) {
            if (row.answered)
                poll(advanced, NOT_READY);
            else
                pollUnanswered(advanced);
        }
        if (row.last != nullptr)
            poll(advanced, row.last);
        else
            pollUnanswered(advanced);
        TraceCapture trace;
        EXPECT_FALSE(advanced.camera.setGain(5, 0));
        EXPECT_TRUE(advanced.usb.done());
        EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::getGain 00 //  no response");
        EXPECT_EQ(advanced.error(), "Failed to set gain");
        EXPECT_TRUE(advanced.lockFree());
    }
}

TEST(SetGain, RefusesWhatIsOutOfRangeUnderTheLock)
{
    OpenedCamera advanced(ADVANCED);
    for (const auto& [gain, offset] :
         std::initializer_list<std::pair<int, int>>{{-1, 0}, {64, 0}, {0, -1}, {0, 513}, {INT_MIN, INT_MAX}}) {
        EXPECT_FALSE(advanced.camera.setGain(gain, offset));
        EXPECT_EQ(advanced.error(), "Invalid parameter");
        EXPECT_TRUE(advanced.lockFree());
    }
    TraceCapture trace;
    EXPECT_FALSE(advanced.camera.setGain(64, 0));
    EXPECT_EQ(trace.lines(),
              (std::vector<std::string>{"-> VornCameraImpl::setGain(64, 0)", "    lock()", "    unlock()",
                                        "<- VornCameraImpl::setGain 00 // invalid parameter"}));
}

}  // namespace
