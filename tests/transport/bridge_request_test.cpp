// SPDX-License-Identifier: MIT
#include <tuple>

#include <gtest/gtest.h>

#include "family_steps.h"
#include "opened_camera.h"
#include "transport/layout.h"
#include "transport/wire.h"

namespace {

using vorntest::advanced;
using vorntest::OpenedCamera;
using vorntest::Operation;
using vorntest::Steps;
using vorntest::zeros;

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

const uint8_t THREE_BYTES[] = {0xA1, 0xA2, 0xA3};

uint8_t reply[4];

/// {mask, value} of each of the five ports.
Steps states(const std::string& ports)
{
    return Steps().out(0x04, "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 " + ports + zeros(6));
}
Steps directions(const std::string& ports)
{
    return Steps().out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 " + ports);
}

// What openings and exposures do not send already.
TEST(BridgePrimitive, SendsTheseBytesOrFails)
{
    const struct {
        const char* label;
        CAMERA_TYPE type;
        Operation operation;
        Steps conversation;
    } CASES[] = {
        {"parallel timeout, low 16 bits", STANDARD, CALL(setParTimeout(0x12345)),
         Steps().out(0x04, "0C ?? 00 00 45 23 00 00 00 00 00 00 00 00 00 00")},
        {"I2C speed", STANDARD, CALL(i2cSetSpeed(1)), Steps().out(0x04, "05 ?? 00 01 00 00 ...")},
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
        {"SPI write, 12 bits of value", QUICKER, CALL(spiWrite(5, 0xF3E8)),
         Steps().out(0x04, "06 ?? 00 01 00 00 01 00 02 00 00 00 02 00 00 00 53 E8").in(0x86, 6, "00 01 02 00 00 00")},
        {"three bytes and one for a whole word", STANDARD, CALL(sendCommand(80, THREE_BYTES, nullptr, 3, 0)),
         Steps().command("50 00 A1 A2 A3 00")},
        {"null payload sends zeros", STANDARD, CALL(sendCommand(6, nullptr, nullptr, 3, 0)),
         Steps().command("06 00 00 00 00 00")},
        {"low eight bits of the code", STANDARD, CALL(sendCommand(0x187)), Steps().command("87 00")},
        {"16-bit value without reply, high byte first", ADVANCED, CALL(sendCommand(9, uint16_t{0x0102})),
         advanced("09 01 02")},
        {"16-bit value with reply, low byte first", ADVANCED, CALL(sendCommand(55, uint16_t{0x0102}, reply, 4)),
         advanced("37 02 01", "A1 A2 A3 A4")},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        forEachFailure(row.conversation, [&](const Steps& steps, bool ok) {
            OpenedCamera opened(row.type);
            opened.usb.append(steps);
            EXPECT_EQ(row.operation(opened.camera), ok);
            opened.expectSettled();  // no text: that is for the operations above
        });
    }
}

TEST(BridgePrimitive, DoesNotKnowEveryModeAndLine)
{
    OpenedCamera opened;
    EXPECT_FALSE(opened.camera.parInit(5U));
    opened.usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").in(0x86, 9, "FF FF FF FF FF FF FF FF FF");
    unsigned state = 7;
    EXPECT_TRUE(opened.camera.getIOState(40, &state));
    EXPECT_EQ(state, 7U);
    opened.expectSettled();
}

TEST(BridgePrimitive, RefusesLengthsThatNoFrameHolds)
{
    constexpr unsigned HUGE_LENGTH = 0xFFFFFFFF;
    constexpr unsigned QUARTER = HUGE_LENGTH / 4;
    const Operation operations[] = {CALL(bulkTransfer(1, false, 0, 0, 0, nullptr, nullptr, HUGE_LENGTH - 15, 0)),
                                    CALL(bulkTransfer(1, false, 0, 0, 0, nullptr, nullptr, 0, HUGE_LENGTH - 15)),
                                    CALL(i2cWrite(81, nullptr, HUGE_LENGTH)),
                                    CALL(sendCommand(80, nullptr, nullptr, QUARTER, 0)),
                                    CALL(sendCommand(80, nullptr, reply, 0, QUARTER))};
    for (const Operation& operation : operations) {
        OpenedCamera opened;  // and sends nothing
        EXPECT_FALSE(operation(opened.camera));
    }
}

TEST(GetData, WordFillsTheLowHalf)
{
    OpenedCamera standard;
    unsigned value = 0xABCD0000;
    standard.usb.parIn(2, "34 12");
    EXPECT_TRUE(standard.camera.getData(&value));
    EXPECT_EQ(value, 0xABCD1234U);  // the upper half stays
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
        {QUICKER, CALL(getData(reply, 2)), 623},
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

// A field is read and written at its place, in its width and order, and nothing beside it; past the end there are
// zeros.
static_assert([] {
    using namespace vornccd;
    const uint8_t bytes[] = {0x01, 0x82, 0x03, 0x84, 0x05};
    const bool reads = unpack(bytes, byteAt(1)) == 0x82 && unpack(bytes, le16At(1)) == 0x0382 &&
                       unpack(bytes, be16At(1)) == 0x8203 && unpack(bytes, le32At(1)) == 0x05840382 &&
                       unpack(bytes, be16At(3)) == 0x8405 && unpack(bytes, be16At(4)) == 0x0500;
    uint8_t written[7] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    pack(written, byteAt(0), 0x1FF);
    pack(written, be16At(1), 0x54321);
    pack(written, le16At(3), 0x98765);
    pack(written, le32At(4), 1);  // does not fit
    const uint8_t expected[] = {0xFF, 0x43, 0x21, 0x65, 0x87, 0xEE, 0xEE};
    for (size_t i = 0; i < sizeof expected; i++) {
        if (written[i] != expected[i])
            return false;
    }
    return reads;
}());

// A layout's fields follow one another and fill its bytes.
static_assert(vornccd::covers({vornccd::byteAt(0), vornccd::be16At(1)}, 3));
static_assert(!vornccd::covers({vornccd::byteAt(0), vornccd::be16At(1)}, 4));
static_assert(!vornccd::covers({vornccd::byteAt(0), vornccd::be16At(2)}, 4));
static_assert(!vornccd::covers({vornccd::byteAt(0), vornccd::be16At(0)}, 2));

// Past the end of a reply there are zeros; a constant expression may not even look there.
static_assert([] {
    const uint8_t bytes[] = {1, 0x80, 0xFF};
    vornccd::ByteReader reader(bytes);
    const bool reads = reader.be16() == 0x0180 && reader.rest().size() == 1 && reader.be16() == 0xFF00;
    return reads && reader.u8() == 0 && reader.rest().empty();
}());

// The tables that cameras are given stand byte by byte in their openings.
TEST(Waveforms, TheOneNobodyLoadsIsKeptAsItIs)
{
    uint32_t sum = 0;
    uint32_t weighted = 0;  // a byte changed, dropped or swapped changes one of them
    for (uint32_t i = 0; i < sizeof ParInitQFastData; i++) {
        sum += ParInitQFastData[i];
        weighted += (i + 1) * ParInitQFastData[i];
    }
    EXPECT_EQ(std::tuple(sum, weighted), std::tuple(11003U, 850772U));
}

TEST(CheckColour, DecodesTheRecord)
{
    struct {
        const char* record;  ///< empty: cannot be read
        COLOUR_TYPE colour;
        int offsetX;
        int offsetY;
    } const CASES[] = {
        {"84 D9 01 00 55", COLOUR_RGGB, 0, 0}, {"84 D9 01 01 55", COLOUR_RGGB, 0, 1},
        {"84 D9 01 02 55", COLOUR_RGGB, 1, 0}, {"84 D9 01 03 55", COLOUR_RGGB, 1, 1},
        {"84 D9 01 04 55", COLOUR_NONE, 0, 0}, {"84 D9 01 FF 55", COLOUR_NONE, 0, 0},
        {"85 D9 01 03 55", COLOUR_NONE, 0, 0}, {"84 D8 01 03 55", COLOUR_NONE, 0, 0},
        {"84 D9 00 03 55", COLOUR_NONE, 0, 0}, {"", COLOUR_NONE, 0, 0},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.record);
        OpenedCamera standard;
        standard.camera.colour = COLOUR_RGGB;
        standard.camera.offsetX = standard.camera.offsetY = 9;
        standard.usb.eepRead(0xE8, 5, row.record);
        if (*row.record == '\0')
            standard.usb.cut(1).fails();
        standard.camera.checkColour();
        EXPECT_EQ(std::tuple(standard.camera.colour, standard.camera.offsetX, standard.camera.offsetY),
                  std::tuple(row.colour, row.offsetX, row.offsetY));
    }
}

}  // namespace
