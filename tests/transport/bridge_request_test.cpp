// SPDX-License-Identifier: MIT
#include <functional>

#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::parseBytes;
using vorntest::Steps;

struct PrimitiveCase {
    const char* label;
    CAMERA_TYPE type;
    std::function<void(Steps&)> conversation;
    std::function<bool(VornCameraImpl&)> act;
};

/// Acts and checks what arrived in the @p length bytes of the caller's buffer.
std::function<bool(VornCameraImpl&)> reading(unsigned length, const std::string& expected,
                                             const std::function<bool(VornCameraImpl&, uint8_t*)>& act)
{
    return [=](VornCameraImpl& camera) {
        std::vector<uint8_t> bytes(length, 0xCC);
        const bool ok = act(camera, bytes.data());
        if (ok) {
            EXPECT_EQ(bytes, parseBytes(expected));
        }
        return ok;
    };
}

uint8_t fastTable[172] = {0x01, 0x02};
uint8_t longTable[172] = {0x81, 0x02};

std::string zeros(size_t count)
{
    std::string hex;
    for (size_t i = 0; i < count; i++)
        hex += " 00";
    return hex;
}

const PrimitiveCase PRIMITIVES[] = {
    {"parallel timeout 50", STANDARD,
     [](Steps& usb) { usb.out(0x04, "0C ?? 00 00 32 00 00 00 00 00 00 00 00 00 00 00"); },
     [](VornCameraImpl& camera) { return camera.setParTimeout(50); }},
    {"parallel timeout, low 16 bits", STANDARD, [](Steps& usb) { usb.out(0x04, "0C ?? 00 00 45 23 ..."); },
     [](VornCameraImpl& camera) { return camera.setParTimeout(0x12345); }},
    {"I2C timeout 5000", STANDARD, [](Steps& usb) { usb.out(0x04, "0C ?? 00 01 88 13 ..."); },
     [](VornCameraImpl& camera) { return camera.i2cSetTimeout(5000); }},
    {"I2C speed", STANDARD, [](Steps& usb) { usb.out(0x04, "05 ?? 00 01 00 00 ..."); },
     [](VornCameraImpl& camera) { return camera.i2cSetSpeed(1); }},
    {"short waveform table", STANDARD,
     [](Steps& usb) {
         usb.out(0x04, "08 ?? FF 00 00 00 00 00 00 00 00 00 98 00 00 00 01 02" + zeros(150)).in(0x86, 4, "11 22 33 44");
     },
     [](VornCameraImpl& camera) { return camera.parInit(fastTable); }},
    {"long waveform table", STANDARD,
     [](Steps& usb) {
         usb.out(0x04, "08 ?? FF 00 00 00 00 00 00 00 00 00 AC 00 00 00 81 02" + zeros(170)).in(0x86, 4, "00 00 00 00");
     },
     [](VornCameraImpl& camera) { return camera.parInit(longTable); }},
    {"parallel in", STANDARD,
     [](Steps& usb) { usb.out(0x04, "09 ?? 00 00 00 00 03 00 ...").in(0x88, 4, "A1 A2 A3 EE"); },
     reading(3, "A1 A2 A3", [](VornCameraImpl& camera, uint8_t* bytes) { return camera.parIn(bytes, 3); })},
    {"parallel in, count split in two words", STANDARD,
     [](Steps& usb) {
         usb.out(0x04, "09 ?? 00 00 01 00 70 11 ...").in(0x88, 70001, std::vector<uint8_t>(70001, 0x5A));
     },
     [](VornCameraImpl& camera) {
         std::vector<uint8_t> bytes(70000);
         return camera.parIn(bytes.data(), 70000);
     }},
    {"parallel out", STANDARD,
     [](Steps& usb) {
         usb.out(0x02, "01 02 03").out(0x04, "0A ?? FF 00 00 00 00 00 00 00 00 00 00 00 00 00");
         usb.in(0x86, 4, "00 00 00 00");
     },
     [](VornCameraImpl& camera) {
         uint8_t bytes[] = {1, 2, 3};
         return camera.parOut(bytes, 3);
     }},
    {"port direction", STANDARD,
     [](Steps& usb) { usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 00 9F FF 00 FF 00 FF 00 FF 00"); },
     [](VornCameraImpl& camera) { return camera.setPortDirection(0, 0x9f); }},
    {"port state", STANDARD,
     [](Steps& usb) {
         usb.out(0x04,
                 "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 FF 00 FF 00 FF 00 FF 00 00 80 00 00 00 00 00 00");
     },
     [](VornCameraImpl& camera) { return camera.setPortState(4, 0x80); }},
    {"line an output", STANDARD,
     [](Steps& usb) { usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 EF 10 FF 00 FF 00 FF 00 FF 00"); },
     [](VornCameraImpl& camera) { return camera.setIODir(4, 1); }},
    {"line an input", STANDARD,
     [](Steps& usb) { usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 FF 00 FF 00 FE 00 FF 00 FF 00"); },
     [](VornCameraImpl& camera) { return camera.setIODir(16, 0); }},
    {"line set", STANDARD,
     [](Steps& usb) {
         usb.out(0x04,
                 "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 FF 00 DF 20 FF 00 FF 00 FF 00 00 00 00 00 00 00");
     },
     [](VornCameraImpl& camera) { return camera.setIOState(13, 1); }},
    {"line cleared", STANDARD,
     [](Steps& usb) {
         usb.out(0x04,
                 "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 FF 00 FF 00 FF 00 FF 00 7F 00 00 00 00 00 00 00");
     },
     [](VornCameraImpl& camera) { return camera.setIOState(39, 0); }},
    {"line read, high", STANDARD,
     [](Steps& usb) {
         usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 00 00 00 00 00 00 00").in(0x86, 9, "AA 00 20 00 00 00 BB BB BB");
     },
     [](VornCameraImpl& camera) {
         unsigned state = 7;
         const bool ok = camera.getIOState(13, &state);
         EXPECT_EQ(state, ok ? 1U : 7U);  // untouched when the request fails
         return ok;
     }},
    {"line read, low", STANDARD,
     [](Steps& usb) { usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").in(0x86, 9, "FF FF DF FF FF FF FF FF FF"); },
     [](VornCameraImpl& camera) {
         unsigned state = 7;
         const bool ok = camera.getIOState(13, &state);
         EXPECT_EQ(state, ok ? 0U : 7U);
         return ok;
     }},
    {"I2C write", STANDARD,
     [](Steps& usb) {
         usb.out(0x04, "04 ?? FF 00 00 00 01 00 00 00 00 00 03 00 00 00 A2 00 03").in(0x86, 4, "FF FF FF FF");
     },
     [](VornCameraImpl& camera) {
         uint8_t bytes[] = {0x00, 0x03};
         return camera.i2cWrite(0x51, bytes, 2);
     }},
    {"I2C read", STANDARD,
     [](Steps& usb) {
         usb.out(0x04, "04 ?? FF 00 00 00 01 00 02 00 00 00 01 00 00 00 A3").in(0x86, 6, "EE 34 DF 01 02 03");
     },
     reading(2, "34 DF", [](VornCameraImpl& camera, uint8_t* bytes) { return camera.i2cRead(0x51, bytes, 2); })},
    {"EEPROM, address wraps", STANDARD,
     [](Steps& usb) {
         usb.out(0x04, "04 ?? FF 00 00 00 01 00 00 00 00 00 03 00 00 00 A2 00 E8").in(0x86, 4, "00 00 00 00");
         usb.out(0x04, "04 ?? FF 00 00 00 01 00 05 00 00 00 01 00 00 00 A3").in(0x86, 9, "00 84 D9 01 02 00 00 00 00");
     },
     reading(5, "84 D9 01 02 00",
             [](VornCameraImpl& camera, uint8_t* bytes) { return camera.eepRead(1000, bytes, 5); })},
    {"SPI lines, QUICKER", QUICKER,
     [](Steps& usb) {
         usb.out(0x04,
                 "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 1F C0 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00");
         usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 0F E0 FF 00 FF 00 FF 00 FF 00");
     },
     [](VornCameraImpl& camera) { return camera.spiInit(); }},
    {"SPI lines, ADVANCED", ADVANCED,
     [](Steps& usb) {
         usb.out(0x04,
                 "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 1F 80 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00");
         usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 0F E0 FF 00 FF 00 FF 00 FF 00");
     },
     [](VornCameraImpl& camera) { return camera.spiInit(); }},
    {"SPI write, 12 bits of value", QUICKER,
     [](Steps& usb) {
         usb.out(0x04, "06 ?? 00 01 00 00 01 00 02 00 00 00 02 00 00 00 53 E8").in(0x86, 6, "00 01 02 00 00 00");
     },
     [](VornCameraImpl& camera) { return camera.spiWrite(5, 0xF3E8); }},
    {"data by the parallel bus", CLASSIC,
     [](Steps& usb) { usb.out(0x04, "09 ?? 00 00 00 00 02 00 ...").in(0x88, 3, "01 02 EE"); },
     reading(2, "01 02", [](VornCameraImpl& camera, uint8_t* bytes) { return camera.getData(bytes, 2); })},
    {"data by SPI, the buffer goes out", ADVANCED,
     [](Steps& usb) {
         usb.out(0x04, "06 ?? 00 02 03 00 01 00 02 00 00 00 02 00 00 00 CC CC").in(0x86, 6, "EE 01 02 00 00 00");
     },
     reading(2, "01 02", [](VornCameraImpl& camera, uint8_t* bytes) { return camera.getData(bytes, 2); })},
};

TEST(BridgePrimitive, SendsExactlyTheseBytes)
{
    for (const PrimitiveCase& row : PRIMITIVES) {
        SCOPED_TRACE(row.label);
        OpenedCamera opened(row.type);
        row.conversation(opened.usb);
        EXPECT_TRUE(row.act(opened.camera));
        EXPECT_TRUE(opened.usb.done());
    }
}

TEST(BridgePrimitive, EndsAtTheFirstFailingTransfer)
{
    for (const PrimitiveCase& row : PRIMITIVES) {
        OpenedCamera opened(row.type);
        row.conversation(opened.usb);
        const size_t count = opened.usb.size();
        for (size_t failing = 0; failing < count; failing++) {
            SCOPED_TRACE(std::string(row.label) + ", transfer " + std::to_string(failing + 1));
            opened.usb.clear();
            row.conversation(opened.usb);
            opened.usb.cut(failing + 1).fails(LIBUSB_ERROR_PIPE);
            EXPECT_FALSE(row.act(opened.camera));
            EXPECT_TRUE(opened.usb.done());
            EXPECT_EQ(opened.error(), "No error");
        }
    }
}

TEST(BridgePrimitive, ParInStoresWhatArrivedBeforeTheFailure)
{
    OpenedCamera opened;
    opened.usb.out(0x04, "09 ?? 00 00 00 00 04 00 ...")
        .in(0x88, 5, "A1 A2")
        .in(0x88, 3, "")
        .fails(LIBUSB_ERROR_TIMEOUT);
    uint8_t bytes[4] = {0xCC, 0xCC, 0xCC, 0xCC};
    EXPECT_FALSE(opened.camera.parIn(bytes, 4));
    EXPECT_EQ(bytes[0], 0xA1);
    EXPECT_EQ(bytes[1], 0xA2);
    EXPECT_NE(bytes[2], 0xCC);  // copied from a buffer that started as zeros
}

TEST(BridgePrimitive, UnknownParInitModeSendsNothing)
{
    OpenedCamera opened;
    for (const unsigned mode : {0U, 2U, 8U, 10U})
        EXPECT_FALSE(opened.camera.parInit(mode)) << mode;
}

TEST(BridgeRequest, SequenceByteCountsAndWraps)
{
    OpenedCamera first;
    for (int i = 0; i < 300; i++)  // the script demands the next value each time, 0 after 255
        first.usb.out(0x04, "05 ?? 00 00 00 00 ...");
    for (int i = 0; i < 300; i++)
        first.camera.i2cSetSpeed(0);
}

TEST(GetData, WordFillsTheLowHalf)
{
    OpenedCamera standard;
    unsigned value = 0xABCD0000;
    standard.usb.parIn(2, "34 12");
    EXPECT_TRUE(standard.camera.getData(&value));
    EXPECT_EQ(value, 0xABCD1234U);  // the upper half stays

    OpenedCamera classic(CLASSIC);
    value = 0xABCD0000;
    classic.usb.parIn(4, "34 EE 12 EE");
    EXPECT_TRUE(classic.camera.getData(&value));
    EXPECT_EQ(value, 0x1234U);
}

TEST(GetString, EndsAtNulAtTheLimitOrAtAFailure)
{
    struct {
        const char* label;
        const char* sent;
        unsigned max;
        bool ok;
        std::string expected;
    } const CASES[] = {
        {"NUL ends it", "AB", 32, true, std::string("AB\0", 3)},
        {"empty", "", 32, true, std::string("\0", 1)},
        {"the 13th character is the last of 16", "ABCDEFGHIJKLMNOPQ", 16, true, "ABCDEFGHIJKLM"},
        {"failure after two", "AB!", 32, false, "AB"},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        OpenedCamera standard;
        const std::string text = row.sent;
        for (size_t i = 0; i <= text.size() && i < row.max - 3; i++) {
            standard.usb.out(0x04, "09 ?? 00 00 00 00 02 00 ...");
            standard.usb.in(0x88, 3, std::vector<uint8_t>{static_cast<uint8_t>(text[i]), 0x20, 0xEE});
            if (text[i] == '!') {
                standard.usb.fails(LIBUSB_ERROR_TIMEOUT);
                break;
            }
        }
        char buffer[40];
        EXPECT_EQ(standard.camera.getString(buffer, row.max), row.ok);
        EXPECT_EQ(std::string(buffer, row.expected.size()), row.expected);
        EXPECT_TRUE(standard.usb.done());
    }
}

TEST(BridgeDeathTest, PrimitivesOfOtherFamiliesEndTheProcess)
{
    struct {
        CAMERA_TYPE type;
        std::function<void(VornCameraImpl&)> act;
        const char* text;
    } const CASES[] = {
        {STANDARD, [](VornCameraImpl& camera) { camera.spiInit(); }, "Assertion failed \\(vornccdusb, 564\\)"},
        {ADVANCED, [](VornCameraImpl& camera) { camera.spiWrite(2, 0); }, "Assertion failed \\(vornccdusb, 586\\)"},
        {QUICKER,
         [](VornCameraImpl& camera) {
             uint8_t bytes[2] = {};
             camera.getData(bytes, 2);
         },
         "Assertion failed \\(vornccdusb, 623\\)"},
        {IIDC, [](VornCameraImpl& camera) { camera.sendCommand(9); }, "Assertion failed \\(vornccdusb, 486\\)"},
        {QUICKER, [](VornCameraImpl& camera) { camera.sendCommand(9, uint16_t{1}); },
         "Assertion failed \\(vornccdusb, 505\\)"},
        {QUICKER, [](VornCameraImpl& camera) { camera.appInit(); }, "Assertion failed \\(vornccdusb, 703\\)"},
        {IIDC, [](VornCameraImpl& camera) { camera.ping(); }, "Assertion failed \\(vornccdusb, 842\\)"},
    };
    for (const auto& row : CASES) {
        OpenedCamera opened(row.type);
        EXPECT_EXIT(row.act(opened.camera), testing::ExitedWithCode(1), row.text);
    }
}

}  // namespace
