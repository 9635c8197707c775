// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opening.h"

namespace {

using vorntest::OpenedCamera;

/// @p readBack adds what is read for the trace alone.
Steps iidcOpening(bool readBack)
{
    Steps usb = Steps().ends({}, "Failed to open device").open();
    usb.ends(Steps().close(), NOT_INITIALIZED).driverActive(false).claim();
    // no register access can fail the opening
    vorntest::writeRegister(usb.harmless(), 0x0000, "00 00 00 80").harmless().pause(1000);
    struct {
        unsigned offset;
        const char* bytes;
    } const WRITES[] = {
        {0x081C, "00 00 00 C2"}, {0x083C, "00 00 00 C2"}, {0x0804, "00 00 00 C0"},
        {0x0800, "00 00 00 C2"}, {0x0938, "00 00 00 40"}, {0x0818, "00 00 00 C2"},
        {0x0948, "00 00 80 3F"}, {0x0820, "00 00 00 C2"}, {0x0928, "00 00 80 3F"},
    };
    for (const auto& row : WRITES)
        vorntest::writeRegister(usb.harmless(), row.offset, row.bytes);
    if (readBack)
        vorntest::readRegister(usb.harmless(), 0x1F24, "78 56 A4 83");
    vorntest::readRegister(usb.harmless(), 0x1F60, "FF 3F 05 02");
    vorntest::readRegister(usb.harmless(), 0x1F20, "15 CD 5B 07");
    if (readBack)
        vorntest::readRegister(usb.harmless(), 0x12E0, "7D 00 00 10");
    return usb;
}

TEST(OpenIidc, HoldsTheWholeConversation)
{
    expectOpening(IIDC, iidcOpening(true),
                  {"version 2.5, 1280 x 960 of 3.75 x 3.75 um, binning 2 x 2, sensors 0 of", "cooler 0 from",
                   "serial 123456789, clear 300000, precharge 0:."});
    expectEachFailureOfOpen(IIDC, iidcOpening(false));  // no register can fail it
}

TEST(OpenIidc, ReadsWhatItTracesOnlyThen)
{
    EXPECT_EQ(tracedOpening(IIDC, iidcOpening(true)),
              "    libusb_claim_interface() -> LIBUSB_SUCCESS\n    pid = 2005\n    initialized\n"
              "    board:    0x3a (0x83a45678)\n"
              "    version:  2.5 rev 4095 (0x02053fff)\n    serial:   123456789\n    up time:  2 min 5 s\n");
}

TEST(Register, IsFourBytesAtThirtyTwoBitsOfAddress)
{
    OpenedCamera iidc(IIDC);
    vorntest::readRegister(iidc.usb, 0x0800, "78 56 34 12");
    EXPECT_EQ(iidc.camera.readRegister(0xFFFFF0F00800), 0x12345678U);
    vorntest::readRegister(iidc.usb, 0x0800, "78 56");  // a short answer: the missing bytes are 0
    EXPECT_EQ(iidc.camera.readRegister(0xFFFFF0F00800), 0x5678U);
    vorntest::readRegister(iidc.usb, 0x0800, "").fails(LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(iidc.camera.readRegister(0xFFFFF0F00800), 0U);
    iidc.usb.controlOut(0x7F, 0xBEEF, 0xDEAD, "44 33 22 11");
    iidc.camera.writeRegister(0x7777DEADBEEF, 0x11223344);
    vorntest::readRegister(iidc.usb, 0x0918, "00 00 C0 BF");
    EXPECT_EQ(iidc.camera.readAbsValue(0xFFFFF0F00918), -1.5F);
    vorntest::readRegister(iidc.usb, 0x0918, "").fails();
    EXPECT_EQ(iidc.camera.readAbsValue(0xFFFFF0F00918), 0.0F);
    vorntest::writeRegister(iidc.usb, 0x0918, "CD CC CC 3D");
    iidc.camera.writeAbsValue(0xFFFFF0F00918, 0.1F);
    EXPECT_TRUE(iidc.usb.done());
}

}  // namespace
