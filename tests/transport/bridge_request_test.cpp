// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "family_steps.h"
#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Operation;
using vorntest::parseBytes;
using vorntest::Steps;
using vorntest::zeros;

/// An operation on a buffer of @p length bytes CC, and what the buffer holds when it succeeds.
Operation reading(unsigned length, const char* expected,
                  const std::function<bool(VornCameraImpl&, uint8_t*, unsigned)>& operation)
{
    return [=](VornCameraImpl& camera) {
        std::vector<uint8_t> bytes(length, 0xCC);
        const bool ok = operation(camera, bytes.data(), length);
        if (ok && *expected != '\0') {
            EXPECT_EQ(bytes, parseBytes(expected));
        }
        return ok;
    };
}
#define READ(operation) [](VornCameraImpl& camera, uint8_t* bytes, unsigned n) { return camera.operation; }

/// Reads line 13 into a variable that a failure must leave at 7.
Operation readingLine13(unsigned expected)
{
    return [=](VornCameraImpl& camera) {
        unsigned state = 7;
        const bool ok = camera.getIOState(13, &state);
        EXPECT_EQ(state, ok ? expected : 7U);
        return ok;
    };
}

uint8_t longTable[172] = {0x81, 0x02};
const uint8_t THREE_BYTES[] = {0x00, 0x03, 0x05};

/// {mask, value} of each of the five ports.
Steps states(const std::string& ports)
{
    return Steps().out(0x04, "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 " + ports + zeros(6));
}
Steps directions(const std::string& ports)
{
    return Steps().out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 " + ports);
}

struct Primitive {
    const char* label;
    CAMERA_TYPE type;
    Operation operation;
    Steps conversation;
};

std::vector<Primitive> primitives()
{
    return {
        {"parallel timeout, low 16 bits", STANDARD, CALL(setParTimeout(0x12345)),
         Steps().out(0x04, "0C ?? 00 00 45 23 00 00 00 00 00 00 00 00 00 00")},
        {"I2C timeout 5000", STANDARD, CALL(i2cSetTimeout(5000)), Steps().out(0x04, "0C ?? 00 01 88 13 ...")},
        {"I2C speed", STANDARD, CALL(i2cSetSpeed(1)), Steps().out(0x04, "05 ?? 00 01 00 00 ...")},
        {"long waveform table", STANDARD, CALL(parInit(longTable)),
         Steps()
             .out(0x04, "08 ?? FF 00 00 00 00 00 00 00 00 00 AC 00 00 00 81 02" + zeros(170))
             .in(0x86, 4, "00 00 00 00")},
        {"parallel in", STANDARD, reading(3, "A1 A2 A3", READ(parIn(bytes, n))),
         Steps().out(0x04, "09 ?? 00 00 00 00 03 00 ...").in(0x88, 4, "A1 A2 A3 EE")},
        {"parallel in, count in two words", STANDARD, reading(70000, "", READ(parIn(bytes, n))),
         Steps().out(0x04, "09 ?? 00 00 01 00 70 11 ...").in(0x88, 70001, std::vector<uint8_t>(70001, 0x5A))},
        {"parallel out", STANDARD, CALL(parOut(THREE_BYTES, 3)),
         Steps()
             .out(0x02, "00 03 05")
             .out(0x04, "0A ?? FF 00 00 00 00 00 00 00 00 00 00 00 00 00")
             .in(0x86, 4, "00 00 00 00")},
        {"port state", STANDARD, CALL(setPortState(4, 0x80)), states("FF 00 FF 00 FF 00 FF 00 00 80")},
        {"line an output", STANDARD, CALL(setIODir(4, 1)), directions("EF 10 FF 00 FF 00 FF 00 FF 00")},
        {"line an input", STANDARD, CALL(setIODir(16, 0)), directions("FF 00 FF 00 FE 00 FF 00 FF 00")},
        {"line set", STANDARD, CALL(setIOState(13, 1)), states("FF 00 DF 20 FF 00 FF 00 FF 00")},
        {"line cleared", STANDARD, CALL(setIOState(39, 0)), states("FF 00 FF 00 FF 00 FF 00 7F 00")},
        {"line read, high", STANDARD, readingLine13(1),
         Steps()
             .out(0x04, "03 ?? 00 00 00 00 00 00 05 00 00 00 00 00 00 00")
             .in(0x86, 9, "AA 00 20 00 00 00 BB BB BB")},
        {"line read, low", STANDARD, readingLine13(0),
         Steps().out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").in(0x86, 9, "FF FF DF FF FF FF FF FF FF")},
        {"EEPROM, address wraps", STANDARD, reading(5, "84 D9 01 02 00", READ(eepRead(1000, bytes, n))),
         Steps()
             .out(0x04, "04 ?? FF 00 00 00 01 00 00 00 00 00 03 00 00 00 A2 00 E8")
             .in(0x86, 4, "00 00 00 00")
             .out(0x04, "04 ?? FF 00 00 00 01 00 05 00 00 00 01 00 00 00 A3")
             .in(0x86, 9, "00 84 D9 01 02 00 00 00 00")},
        {"SPI lines, QUICKER", QUICKER, CALL(spiInit()),
         states("1F C0 FF 00 FF 00 FF 00 FF 00").append(directions("0F E0 FF 00 FF 00 FF 00 FF 00"))},
        {"SPI lines, ADVANCED", ADVANCED, CALL(spiInit()),
         states("1F 80 FF 00 FF 00 FF 00 FF 00").append(directions("0F E0 FF 00 FF 00 FF 00 FF 00"))},
        {"SPI write, 12 bits of value", QUICKER, CALL(spiWrite(5, 0xF3E8)),
         Steps().out(0x04, "06 ?? 00 01 00 00 01 00 02 00 00 00 02 00 00 00 53 E8").in(0x86, 6, "00 01 02 00 00 00")},
        {"data by SPI, the buffer goes out", ADVANCED, reading(2, "01 02", READ(getData(bytes, n))),
         Steps().out(0x04, "06 ?? 00 02 03 00 01 00 02 00 00 00 02 00 00 00 CC CC").in(0x86, 6, "EE 01 02 00 00 00")},
    };
}

TEST(BridgePrimitive, SendsTheseBytesAndEndsAtTheFirstFailure)
{
    for (const Primitive& row : primitives()) {
        SCOPED_TRACE(row.label);
        forEachFailure(row.conversation, [&](const Steps& steps, bool ok) {
            OpenedCamera opened(row.type);
            opened.usb.append(steps);
            EXPECT_EQ(row.operation(opened.camera), ok);
            opened.expectSettled();  // no text: that is for the operations above
        });
    }
}

TEST(BridgePrimitive, ParInStoresWhatArrivedBeforeTheFailure)
{
    OpenedCamera opened;
    opened.usb.out(0x04, "09 ?? 00 00 00 00 04 00 ...").in(0x88, 5, "A1 A2").in(0x88, 3, "").fails();
    uint8_t bytes[4] = {0xCC, 0xCC, 0xCC, 0xCC};
    EXPECT_FALSE(opened.camera.parIn(bytes, 4));
    EXPECT_EQ(bytes[0], 0xA1);
    EXPECT_EQ(bytes[1], 0xA2);
    EXPECT_NE(bytes[2], 0xCC);  // copied from a buffer that started as zeros
}

TEST(GetData, WordFillsTheLowHalf)
{
    OpenedCamera standard;
    unsigned value = 0xABCD0000;
    standard.usb.parIn(2, "34 12");
    EXPECT_TRUE(standard.camera.getData(&value));
    EXPECT_EQ(value, 0xABCD1234U);  // the upper half stays
}

TEST(BridgeRequest, SequenceByteCountsAndWraps)
{
    OpenedCamera opened;
    for (int i = 0; i < 300; i++) {  // the script demands the next value each time, 0 after 255
        opened.usb.out(0x04, "05 ?? 00 00 00 00 ...");
        EXPECT_TRUE(opened.camera.i2cSetSpeed(0));
    }
}

TEST(GetString, EndsAtNulAtTheLimitOrAtAFailure)
{
    struct {
        const char* sent;  ///< '!' fails
        unsigned max;
        std::string expected;
    } const CASES[] = {
        {"AB", 32, std::string("AB\0", 3)},
        {"", 32, std::string("\0", 1)},
        {"ABCDEFGHIJKLMNOPQ", 16, "ABCDEFGHIJKLM"},  // the 13th character is the last of 16
        {"AB!", 32, "AB"},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.sent);
        OpenedCamera standard;
        const std::string text = row.sent;
        const bool ok = !text.ends_with('!');
        vorntest::streamedText(standard.usb, text);
        if (!ok || text.size() > row.max)
            standard.usb.cut(2 * std::min(text.size(), size_t{row.max} - 3));
        if (!ok)
            standard.usb.fails();
        char buffer[40];
        EXPECT_EQ(standard.camera.getString(buffer, row.max), ok);
        EXPECT_EQ(std::string(buffer, row.expected.size()), row.expected);
        standard.expectSettled();
    }
}

TEST(BridgeDeathTest, PrimitivesOfOtherFamiliesEndTheProcess)
{
    struct {
        CAMERA_TYPE type;
        Operation operation;
        int line;
    } const CASES[] = {
        {STANDARD, CALL(spiInit()), 564},
        {ADVANCED, CALL(spiWrite(2, 0)), 586},
        {QUICKER, reading(2, "", READ(getData(bytes, n))), 623},
        {IIDC, CALL(sendCommand(9)), 486},
        {QUICKER, CALL(sendCommand(9, uint16_t{1})), 505},
        {QUICKER, CALL(appInit()), 703},
        {IIDC, CALL(ping()), 842},
    };
    for (const auto& row : CASES) {
        OpenedCamera opened(row.type);
        EXPECT_EXIT(row.operation(opened.camera), testing::ExitedWithCode(1),
                    "Assertion failed \\(vornccdusb, " + std::to_string(row.line) + "\\)");
    }
}

}  // namespace
