// SPDX-License-Identifier: MIT
#include "exchange.h"

#include <climits>
#include <tuple>

#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::OpenedCamera;
using vorntest::Steps;
using vorntest::TraceCapture;

// marker, not interpreted, gain, offset code; the same for the preview
const char* const EARLIER = "00 58 AA AA 00 07 00 07 00 58 AA AA 00 07 00 07";
const char* const RECORD = "00 58 12 34 00 3F 01 80 00 58 56 78 00 02 00 90";
const char* const NOT_READY = "01 58 12 34 00 3F 01 80 00 58 56 78 00 02 00 90";
TEST(GetGain, DecodesTheHalfOfTheReadoutMode)
{
    const std::tuple<bool, const char*, int, int> CASES[] = {
        {false, RECORD, 63, 128},  // code 384
        {true, RECORD, 2, 401},    // code 144
        {false, "00 58 00 00 00 00 02 00 00 58 00 00 00 01 00 01", 0, 0},
        {false, "00 58 00 00 00 0A 00 00 00 58 00 00 00 01 00 01", 10, 257},
        {false, "00 58 00 00 00 0A 00 FF 00 58 00 00 00 01 00 01", 10, 512},
        {false, "00 58 00 00 00 0A 01 00 00 58 00 00 00 01 00 01", 10, 256},
        {true, "00 00 00 00 00 00 00 00 00 00 00 00 01 02 03 00", 258, -256},  // neither marked nor in range
    };
    for (const auto& [preview, record, expectedGain, expectedOffset] : CASES) {
        OpenedCamera advanced(ADVANCED);
        advanced.camera.previewMode = preview;
        advancedCommand(advanced.usb, "8D", record);
        int gain = -1;
        int offset = -1;
        EXPECT_TRUE(advanced.camera.getGain(&gain, &offset));
        EXPECT_EQ(std::pair(gain, offset), std::pair(expectedGain, expectedOffset)) << record;
        advanced.expectSettled();
    }
}

TEST(GetGain, AsksAgainUpToAHundredTimes)
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

TEST(Gain, OfOtherFamiliesLeavesAText)
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

const char* const NO_ANSWER = "";

/// What setGain() polls for, with a pause after each.
Steps polling(const std::vector<const char*>& records)
{
    Steps usb;
    for (const char* record : records) {
        const bool answered = record != NO_ANSWER;
        advancedCommand(usb, "8D", answered ? record : RECORD).fails(answered ? 0 : LIBUSB_ERROR_TIMEOUT).pause(10000);
    }
    return usb;
}

TEST(SetGain, WritesTheSecondValidRecord)
{
    const std::vector<const char*> two = {EARLIER, RECORD};  // the first valid one is never used
    const std::vector<const char*> passedOver = {
        NOT_READY,
        "00 59 12 34 00 3F 01 80 00 58 56 78 00 02 00 90",  // markers
        "00 58 12 34 00 3F 01 80 00 57 56 78 00 02 00 90",
        "00 58 12 34 00 3F 01 80 01 58 56 78 00 02 00 90",
        "00 58 12 34 00 40 01 80 00 58 56 78 00 02 00 90",  // gains beyond 63
        "00 58 12 34 01 00 01 80 00 58 56 78 00 02 00 90",
        "00 58 12 34 00 3F 01 80 00 58 56 78 00 40 00 90",
        NO_ANSWER,  // the record stays what it was: not valid
        EARLIER,
        NOT_READY,  // the second valid one need not follow at once
        RECORD,
    };
    const struct {
        bool preview;
        std::vector<const char*> polls;
        int gain;
        int offset;
        const char* payload;  ///< what is written
    } CASES[] = {
        {false, two, 0, 0, "00 19 00 58 12 34 00 00 02 00 00 58 56 78 00 02 00 90"},
        {false, two, 0, 1, "00 19 00 58 12 34 00 00 01 FF 00 58 56 78 00 02 00 90"},
        {false, two, 10, 256, "00 19 00 58 12 34 00 0A 01 00 00 58 56 78 00 02 00 90"},
        {false, two, 10, 257, "00 19 00 58 12 34 00 0A 00 00 00 58 56 78 00 02 00 90"},
        {true, two, 10, 512, "00 19 00 58 12 34 00 3F 01 80 00 58 56 78 00 0A 00 FF"},
        {true, two, 63, 258, "00 19 00 58 12 34 00 3F 01 80 00 58 56 78 00 3F 00 01"},
        {false, passedOver, 5, 0, "00 19 00 58 12 34 00 05 02 00 00 58 56 78 00 02 00 90"},
    };
    for (const auto& row : CASES) {
        for (const bool accepted : {true, false}) {
            OpenedCamera advanced(ADVANCED);
            advanced.camera.previewMode = row.preview;
            advanced.usb.append(polling(row.polls));
            advancedCommand(advanced.usb, std::string("8C ") + row.payload).fails(accepted ? 0 : LIBUSB_ERROR_IO);
            EXPECT_EQ(advanced.camera.setGain(row.gain, row.offset), accepted);
            advanced.expectSettled();  // a failure leaves the text
        }
    }
}

TEST(SetGain, WritesNothingWhenTheSecondAnswerFails)
{
    OpenedCamera advanced(ADVANCED);
    advanced.usb.append(polling({RECORD, NO_ANSWER}));  // the record stays valid, which ends the loop
    EXPECT_FALSE(advanced.camera.setGain(5, 0));
    advanced.expectSettled();
}

TEST(SetGain, GivesUpAtTheHundredAndFirst)
{
    for (const bool answered : {true, false}) {
        OpenedCamera advanced(ADVANCED);
        std::vector<const char*> records(101, answered ? NOT_READY : NO_ANSWER);
        if (answered)
            records.front() = records.back() = RECORD;  // a second valid record comes too late
        advanced.usb.append(polling(records));
        TraceCapture trace;
        EXPECT_FALSE(advanced.camera.setGain(5, 0));
        EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::getGain 00 //  no response");
        advanced.expectSettled("Failed to set gain");
    }
}

TEST(SetGain, RefusesWhatIsOutOfRange)
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
