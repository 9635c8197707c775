// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;

#define SEND(...) \
    [](VornCameraImpl& camera, [[maybe_unused]] uint8_t* reply) { return camera.sendCommand(__VA_ARGS__); }

const uint8_t PAYLOAD[] = {0xA1, 0xA2, 0xA3};

struct Command {
    const char* label;
    CAMERA_TYPE type;
    std::function<bool(VornCameraImpl&, uint8_t* reply)> send;
    Steps conversation;
    const char* reply;  ///< what the four bytes of the reply buffer, CC before, hold afterwards
};

std::vector<Command> commands()
{
    const char* const NO_REPLY = "CC CC CC CC";
    return {
        {"no payload", STANDARD, SEND(44),
         Steps().out(0x02, "43 00 4D 00 44 00 2C 00").out(0x04, "0A ?? FF ...").in(0x86, 4, "00 00 00 00"), NO_REPLY},
        {"16-bit value, low byte first", STANDARD, SEND(9, uint16_t{0x0102}), Steps().command("09 00 02 01"), NO_REPLY},
        {"three bytes", STANDARD, SEND(80, PAYLOAD, nullptr, 3, 0), Steps().command("50 00 A1 A2 A3 00"), NO_REPLY},
        {"null payload sends zeros", STANDARD, SEND(6, nullptr, nullptr, 3, 0), Steps().command("06 00 00 00 00 00"),
         NO_REPLY},
        {"low eight bits of the code", STANDARD, SEND(0x187), Steps().command("87 00"), NO_REPLY},
        {"reply", STANDARD, SEND(54, nullptr, reply, 0, 2), Steps().command("36 00").parIn(2, "01 02"), "01 02 CC CC"},
        {"the temperature needs 100 ms", STANDARD, SEND(55, uint16_t{0x0201}, reply, 4),
         Steps().command("37 00 01 02").pause(100000).parIn(4, "01 02 03 04"), "01 02 03 04"},
        {"by I2C", CLASSIC, SEND(17, PAYLOAD, nullptr, 1, 0),
         Steps()
             .out(0x04, "04 ?? FF 00 00 00 01 00 00 00 00 00 06 00 00 00 80 48 53 43 11 A1")
             .in(0x86, 4, "00 00 00 00"),
         NO_REPLY},
        {"reply compacted", CLASSIC, SEND(54, nullptr, reply, 0, 4),
         Steps().i2cWrite("80 48 53 43 36").parIn(4, "A0 B0 A1 B1"), "A0 A1 A1 B1"},
        {"16-bit value without reply, high byte first", ADVANCED, SEND(9, uint16_t{0x0102}),
         Steps()
             .out(0x04, "06 ?? 00 02 03 00 01 00 06 00 00 00 06 00 00 00 43 4D 44 09 01 02")
             .in(0x86, 10, "00 00 00 00 00 00 00 00 00 00"),
         NO_REPLY},
        {"16-bit value with reply, low byte first", ADVANCED, SEND(55, uint16_t{0x0102}, reply, 4),
         Steps()
             .out(0x04, "06 ?? 00 02 03 00 01 00 0A 00 00 00 0A 00 00 00 43 4D 44 37 02 01 00 00 00 00")
             .in(0x86, 14, "EE E1 E2 E3 E4 E5 E6 A1 A2 A3 A4 00 00 00"),
         "A1 A2 A3 A4"},
    };
}

TEST(SendCommand, FramesByFamilyAndEndsAtTheFirstFailure)
{
    for (const Command& row : commands()) {
        SCOPED_TRACE(row.label);
        forEachFailure(row.conversation, [&](const Steps& steps, bool ok) {
            OpenedCamera opened(row.type);
            opened.usb.append(steps);
            std::vector<uint8_t> reply(4, 0xCC);
            EXPECT_EQ(row.send(opened.camera, reply.data()), ok);
            if (ok) {
                EXPECT_EQ(reply, vorntest::parseBytes(row.reply));
            }
            opened.expectSettled();
        });
    }
}

}  // namespace
