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
const char* const WRITE_GAIN_5 = "8C 00 19 00 58 12 34 00 05 02 00 00 58 56 78 00 02 00 90";

/// An exchange of setGain(), which pauses after each.
void poll(OpenedCamera& opened, const std::string& record)
{
    advancedCommand(opened.usb, "8D", record).pause(10000);
}

void pollUnanswered(OpenedCamera& opened)
{
    advancedCommand(opened.usb, "8D", RECORD).fails(LIBUSB_ERROR_TIMEOUT).pause(10000);
}

TEST(GetGain, DecodesTheHalfOfTheReadoutMode)
{
    const struct {
        bool preview;
        const char* record;
        int gain;
        int offset;
    } CASES[] = {
        {false, RECORD, 63, 128},  // code 384
        {true, RECORD, 2, 401},    // code 144
        {false, "00 58 00 00 00 00 02 00 00 58 00 00 00 01 00 01", 0, 0},
        {false, "00 58 00 00 00 0A 00 00 00 58 00 00 00 01 00 01", 10, 257},
        {false, "00 58 00 00 00 0A 00 FF 00 58 00 00 00 01 00 01", 10, 512},
        {true, "00 00 00 00 00 00 00 00 00 00 00 00 01 02 03 00", 258, -256},  // neither marked nor in range
    };
    for (const auto& row : CASES) {
        OpenedCamera advanced(ADVANCED);
        advanced.camera.previewMode = row.preview;
        advancedCommand(advanced.usb, "8D", row.record);
        int gain = -1;
        int offset = -1;
        EXPECT_TRUE(advanced.camera.getGain(&gain, &offset));
        EXPECT_EQ(std::pair(gain, offset), std::pair(row.gain, row.offset)) << row.record;
        advanced.expectSettled();
    }
}

TEST(GetGain, AsksAgainWithoutPausesUpToAHundredTimes)
{
    const struct {
        int notReady;
        int result;  ///< of the last exchange
        const char* error;
        const char* line;
    } CASES[] = {
        {99, 0, "No error", "<- VornCameraImpl::getGain 1 -> 63, 128"},
        {100, 0, "Failed to set gain", "<- VornCameraImpl::getGain 00 //  no response"},  // the 101st does not count
        {1, LIBUSB_ERROR_TIMEOUT, "No error", "<- VornCameraImpl::getGain 0 -> -1, -2"},
    };
    for (const auto& row : CASES) {
        OpenedCamera advanced(ADVANCED);
        for (int i = 0; i < row.notReady; i++)
            advancedCommand(advanced.usb, "8D", NOT_READY);
        advancedCommand(advanced.usb, "8D", RECORD).fails(row.result);
        const bool ok = row.notReady == 99;
        int gain = -1;
        int offset = -2;
        TraceCapture trace;
        EXPECT_EQ(advanced.camera.getGain(&gain, &offset), ok);
        EXPECT_EQ(std::pair(gain, offset), ok ? std::pair(63, 128) : std::pair(-1, -2));
        EXPECT_EQ(trace.lines().back(), row.line);
        advanced.expectSettled(row.error);
    }
}

TEST(Gain, OfOtherFamiliesSucceedsWithoutTrafficAndLeavesAText)
{
    for (const CAMERA_TYPE type : {STANDARD, CLASSIC, QUICKER, IIDC}) {
        OpenedCamera other(type);
        int gain = -1;
        int offset = -2;
        TraceCapture trace;
        EXPECT_TRUE(other.camera.getGain(&gain, &offset));
        EXPECT_EQ(std::pair(gain, offset), std::pair(-1, -2));
        EXPECT_EQ(other.error(), "Unsupported operation");
        other.camera.lastError = "No error";
        EXPECT_TRUE(other.camera.setGain(64, -1));  // not even its arguments matter
        other.expectSettled("Unsupported operation");
        EXPECT_TRUE(trace.has("<- VornCameraImpl::getGain 1 -> -1, -2"));
        EXPECT_TRUE(trace.has("<- VornCameraImpl::setGain 1"));
    }
}

TEST(SetGain, WritesTheSecondValidRecordBackWithOneHalfChanged)
{
    const struct {
        bool preview;
        int gain;
        int offset;
        const char* payload;
    } CASES[] = {
        {false, 0, 0, "00 19 00 58 12 34 00 00 02 00 00 58 56 78 00 02 00 90"},
        {false, 0, 1, "00 19 00 58 12 34 00 00 01 FF 00 58 56 78 00 02 00 90"},
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
        advanced.expectSettled();
    }
}

TEST(SetGain, PassesOverRecordsThatAreNotValid)
{
    OpenedCamera advanced(ADVANCED);
    for (const char* record : {
             NOT_READY,
             "00 59 12 34 00 3F 01 80 00 58 56 78 00 02 00 90",  // markers
             "00 58 12 34 00 3F 01 80 00 57 56 78 00 02 00 90",
             "00 58 12 34 00 3F 01 80 01 58 56 78 00 02 00 90",
             "00 58 12 34 00 40 01 80 00 58 56 78 00 02 00 90",  // gains beyond 63
             "00 58 12 34 01 00 01 80 00 58 56 78 00 02 00 90",
             "00 58 12 34 00 3F 01 80 00 58 56 78 00 40 00 90",
         })
        poll(advanced, record);
    pollUnanswered(advanced);  // the record stays what it was: not valid
    poll(advanced, EARLIER);
    poll(advanced, NOT_READY);  // the second valid one need not follow at once
    poll(advanced, RECORD);
    advancedCommand(advanced.usb, WRITE_GAIN_5);
    EXPECT_TRUE(advanced.camera.setGain(5, 0));
    advanced.expectSettled();
}

TEST(SetGain, AFailedExchangeOrWriteLeavesTheText)
{
    OpenedCamera advanced(ADVANCED);
    poll(advanced, RECORD);
    pollUnanswered(advanced);  // the record stays valid, which ends the loop, but nothing is written
    EXPECT_FALSE(advanced.camera.setGain(5, 0));
    advanced.expectSettled();

    poll(advanced, RECORD);
    poll(advanced, RECORD);
    advancedCommand(advanced.usb, WRITE_GAIN_5).fails();
    EXPECT_FALSE(advanced.camera.setGain(5, 0));
    advanced.expectSettled();
}

TEST(SetGain, GivesUpAtTheHundredAndFirstAnswer)
{
    for (const bool answered : {true, false}) {
        OpenedCamera advanced(ADVANCED);
        if (answered)
            poll(advanced, RECORD);
        while (advanced.usb.size() < 100 * 3)  // out, in and pause each
            answered ? poll(advanced, NOT_READY) : pollUnanswered(advanced);
        answered ? poll(advanced, RECORD) : pollUnanswered(advanced);  // a second valid record comes too late
        TraceCapture trace;
        EXPECT_FALSE(advanced.camera.setGain(5, 0));
        EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::getGain 00 //  no response");
        advanced.expectSettled("Failed to set gain");
    }
}

TEST(SetGain, RefusesWhatIsOutOfRangeUnderTheLock)
{
    const std::pair<int, int> CASES[] = {{-1, 0}, {64, 0}, {0, -1}, {0, 513}, {INT_MIN, INT_MAX}};
    for (const auto& [gain, offset] : CASES) {
        OpenedCamera advanced(ADVANCED);
        TraceCapture trace;
        EXPECT_FALSE(advanced.camera.setGain(gain, offset));
        EXPECT_TRUE(
            trace.text().ends_with("    lock()\n    unlock()\n<- VornCameraImpl::setGain 00 // invalid parameter\n"));
        advanced.expectSettled("Invalid parameter");
    }
}

}  // namespace
