// SPDX-License-Identifier: MIT
#include <functional>

#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;

struct CommandCase {
    const char* label;
    CAMERA_TYPE type;
    std::function<void(Steps&)> conversation;
    std::function<bool(VornCameraImpl&, uint8_t* reply)> act;
    std::string reply;  ///< what the four bytes of the reply buffer, CC before, hold afterwards
};

uint8_t onePayload[] = {0x64};
uint8_t threePayload[] = {0xA1, 0xA2, 0xA3};

const CommandCase COMMANDS[] = {
    {"no payload", STANDARD,
     [](Steps& usb) { usb.out(0x02, "43 00 4D 00 44 00 2C 00").out(0x04, "0A ?? FF ...").in(0x86, 4, "00 00 00 00"); },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(44); }, "CC CC CC CC"},
    {"16-bit value, low byte first", STANDARD,
     [](Steps& usb) {
         usb.out(0x02, "43 00 4D 00 44 00 09 00 02 01").out(0x04, "0A ?? FF ...").in(0x86, 4, "00 00 00 00");
     },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(9, uint16_t{0x0102}); }, "CC CC CC CC"},
    {"odd payload is padded", STANDARD, [](Steps& usb) { usb.command("50 00 64 00"); },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(80, onePayload, nullptr, 1, 0); }, "CC CC CC CC"},
    {"three bytes", STANDARD, [](Steps& usb) { usb.command("50 00 A1 A2 A3 00"); },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(80, threePayload, nullptr, 3, 0); },
     "CC CC CC CC"},
    {"null payload sends zeros", STANDARD, [](Steps& usb) { usb.command("06 00 00 00 00 00"); },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(6, nullptr, nullptr, 3, 0); }, "CC CC CC CC"},
    {"low eight bits of the code", STANDARD, [](Steps& usb) { usb.command("87 00"); },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(0x187); }, "CC CC CC CC"},
    {"reply", STANDARD, [](Steps& usb) { usb.command("36 00").parIn(2, "01 02"); },
     [](VornCameraImpl& camera, uint8_t* reply) { return camera.sendCommand(54, nullptr, reply, 0, 2); },
     "01 02 CC CC"},
    {"null reply is not read", STANDARD, [](Steps& usb) { usb.command("36 00"); },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(54, nullptr, nullptr, 0, 2); }, "CC CC CC CC"},
    {"the temperature needs 100 ms", STANDARD,
     [](Steps& usb) { usb.command("37 00 01 02").pause(100000).parIn(4, "01 02 03 04"); },
     [](VornCameraImpl& camera, uint8_t* reply) { return camera.sendCommand(55, uint16_t{0x0201}, reply, 4); },
     "01 02 03 04"},
    {"by I2C", CLASSIC,
     [](Steps& usb) {
         usb.out(0x04, "04 ?? FF 00 00 00 01 00 00 00 00 00 06 00 00 00 80 48 53 43 11 64").in(0x86, 4, "00 00 00 00");
     },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(17, onePayload, nullptr, 1, 0); }, "CC CC CC CC"},
    {"reply compacted", CLASSIC, [](Steps& usb) { usb.i2cWrite("80 48 53 43 36").parIn(4, "A0 B0 A1 B1"); },
     [](VornCameraImpl& camera, uint8_t* reply) { return camera.sendCommand(54, nullptr, reply, 0, 4); },
     "A0 A1 A1 B1"},
    {"16-bit value without reply, high byte first", ADVANCED,
     [](Steps& usb) {
         usb.out(0x04, "06 ?? 00 02 03 00 01 00 06 00 00 00 06 00 00 00 43 4D 44 09 01 02");
         usb.in(0x86, 10, "00 00 00 00 00 00 00 00 00 00");
     },
     [](VornCameraImpl& camera, uint8_t*) { return camera.sendCommand(9, uint16_t{0x0102}); }, "CC CC CC CC"},
    {"16-bit value with reply, low byte first", ADVANCED,
     [](Steps& usb) {
         usb.out(0x04, "06 ?? 00 02 03 00 01 00 0A 00 00 00 0A 00 00 00 43 4D 44 37 02 01 00 00 00 00");
         usb.in(0x86, 14, "EE E1 E2 E3 E4 E5 E6 A1 A2 A3 A4 00 00 00");
     },
     [](VornCameraImpl& camera, uint8_t* reply) { return camera.sendCommand(55, uint16_t{0x0102}, reply, 4); },
     "A1 A2 A3 A4"},
};

TEST(SendCommand, FramesByFamily)
{
    for (const CommandCase& row : COMMANDS) {
        SCOPED_TRACE(row.label);
        OpenedCamera opened(row.type);
        row.conversation(opened.usb);
        std::vector<uint8_t> reply(4, 0xCC);
        EXPECT_TRUE(row.act(opened.camera, reply.data()));
        EXPECT_EQ(reply, vorntest::parseBytes(row.reply));
        EXPECT_TRUE(opened.usb.done());
    }
}

TEST(SendCommand, EndsAtTheFirstFailingTransfer)
{
    for (const CommandCase& row : COMMANDS) {
        OpenedCamera opened(row.type);
        row.conversation(opened.usb);
        const size_t count = opened.usb.size();
        for (size_t failing = 0; failing < count; failing++) {
            SCOPED_TRACE(std::string(row.label) + ", step " + std::to_string(failing + 1));
            opened.usb.clear();
            row.conversation(opened.usb);
            if (opened.usb[failing].call.kind == vorntest::BusCall::PAUSE)
                continue;
            opened.usb.cut(failing + 1).fails(LIBUSB_ERROR_TIMEOUT);
            uint8_t reply[4] = {};
            EXPECT_FALSE(row.act(opened.camera, reply));
            EXPECT_TRUE(opened.usb.done());
        }
    }
}

}  // namespace
