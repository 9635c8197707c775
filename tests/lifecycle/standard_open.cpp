// SPDX-License-Identifier: MIT
#include "standard_open.h"

using vorntest::Steps;

namespace {

/// A string as it is streamed: each character a word, the word's second byte without meaning, NUL at the end.
void writeString(Steps& usb, const std::string& text)
{
    for (size_t i = 0; i <= text.size(); i++) {
        usb.out(0x04, "09 ?? 00 00 00 00 02 00 ...");
        usb.in(0x88, 3, std::vector<uint8_t>{static_cast<uint8_t>(text.c_str()[i]), 0x20, 0xEE});
    }
}

}  // namespace

void StandardOpen::writeBridge(Steps& usb) const
{
    usb.firmwareUpload();
    usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 00 9F FF 00 FF 00 FF 00 FF 00");
    usb.out(0x04, "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 00 80 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00");
    usb.out(0x04, "0C ?? 00 01 32 00 ...");
    usb.out(0x04, "0C ?? 00 00 32 00 ...");
    usb.out(0x04, "05 ?? 00 00 00 00 ...");
}

void StandardOpen::writeFlush(Steps& usb) const
{
    usb.pause(200000).emptyFlush();
}

void StandardOpen::writeColour(Steps& usb) const
{
    usb.eepRead(0xE8, 5, colour);
}

void StandardOpen::writeAfterPing(Steps& usb) const
{
    usb.command("01 00").parIn(4, version);
    writeString(usb, "Vorn K12");
    writeString(usb, "Vorn");
    usb.parIn(2, flags).parIn(2, pixelCountX).parIn(2, pixelCountY).parIn(2, pixelWidth).parIn(2, pixelHeight);
    usb.parIn(2, "03 00").parIn(2, "04 00").parIn(2, "50 C3");
    usb.command("2C 00").pause(10000).parIn(2, "00 00").pause(10000).parIn(2, "49 00");
    usb.command("36 00").parIn(2, temperatureDetails);
    if (hasTemperature)
        usb.command("37 00 01 00").pause(100000).parIn(6, temperature);
    usb.command("34 00").parIn(6, coolerDetails);
    usb.eepRead(5, 2, serialLow).eepRead(8, 2, serialHigh);
    if (wheelPolls > 0) {
        usb.pause(5000000);
        for (int poll = 0; poll < wheelPolls; poll++)
            usb.command("87 00").parIn(8, "05 00 01 00 02 00 04 00").pause(100000);
        if (wheelPolls < 20)
            usb.command("87 00").parIn(8, "05 00 00 01 04 00 04 00");
    }
}

void StandardOpen::writeIdentify(Steps& usb) const
{
    usb.out(0x04, "0C ?? 00 01 64 00 ...");
    usb.out(0x04, "0C ?? 00 00 E8 03 ...");
    usb.out(0x04,
            "08 ?? FF 00 00 00 00 00 00 00 00 00 98 00 00 00 "
            "01 EE FF 80 00 00 FF E4 11 01 02 00 04 00 00 00 01 0A 01 3B 01 01 01 07 00 01 02 01 00 00 10 00 "
            "FC FC FD FD FD FD FD FF 00 00 12 00 00 2D 12 3F 01 0A 01 3B 01 01 01 07 02 03 02 05 00 00 00 00 "
            "FE FE FF FF FF FF FF FF 09 00 00 00 00 2D 36 3F 0E 03 01 3F 01 01 36 07 01 00 02 01 00 00 11 00 "
            "FF FE FE FE FF FF FF FF 00 09 12 12 00 2D 12 3F 08 03 01 3F 01 01 01 07 01 02 00 01 00 00 00 00 "
            "FF FD FF FF FF FF FF FF 09 09 12 12 00 2D 36 3F 00 00 00 00 00 00 00 00");
    usb.in(0x86, 4, "00 00 00 00");
}

void StandardOpen::writeClosing(Steps& usb) const
{
    usb.out(0x04, "0C ?? 00 01 C8 00 ...").out(0x04, "0C ?? 00 00 D0 07 ...");
}

std::vector<StandardOpen::Phase> StandardOpen::write(Steps& usb) const
{
    std::vector<Phase> phases;
    const auto endOf = [&](Phase phase) { phases.resize(usb.size(), phase); };
    usb.open();
    endOf(OPEN);
    usb.driverActive(driverActive);
    if (driverActive)
        usb.detachDriver().fails(detachResult);
    usb.claim();
    endOf(CLAIM);
    usb.altSetting(1);
    writeBridge(usb);
    endOf(BRIDGE);
    writeFlush(usb);
    endOf(FLUSH);
    usb.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, productId);
    endOf(PRODUCT_ID);
    writeColour(usb);
    endOf(COLOUR);
    writeIdentify(usb);
    endOf(IDENTIFY);
    usb.command("50 00 64 00").pause(20000).parIn(2, "65 00");
    endOf(PING);
    writeAfterPing(usb);
    endOf(IDENTIFY);
    writeClosing(usb);
    endOf(CLOSING);
    return phases;
}
