// SPDX-License-Identifier: MIT
#include "standard_open.h"

#include "../support/family_steps.h"

using vorntest::Steps;

Parts StandardOpen::parts() const
{
    const char* const failed = "Failed to initialize device";
    const Steps close = Steps().close();
    Parts parts = bridgeParts(STANDARD, productId, close);
    parts.back().steps = Steps().eepRead(0xE8, 5, colour);

    Part connect = {.afterwards = close, .error = failed};
    connect.steps.out(0x04, "0C ?? 00 01 64 00 ...").out(0x04, "0C ?? 00 00 E8 03 ...");
    connect.steps.out(0x04,
                      "08 ?? FF 00 00 00 00 00 00 00 00 00 98 00 00 00 "
                      "01 EE FF 80 00 00 FF E4 11 01 02 00 04 00 00 00 01 0A 01 3B 01 01 01 07 00 01 02 01 00 00 10 00 "
                      "FC FC FD FD FD FD FD FF 00 00 12 00 00 2D 12 3F 01 0A 01 3B 01 01 01 07 02 03 02 05 00 00 00 00 "
                      "FE FE FF FF FF FF FF FF 09 00 00 00 00 2D 36 3F 0E 03 01 3F 01 01 36 07 01 00 02 01 00 00 11 00 "
                      "FF FE FE FE FF FF FF FF 00 09 12 12 00 2D 12 3F 08 03 01 3F 01 01 01 07 01 02 00 01 00 00 00 00 "
                      "FF FD FF FF FF FF FF FF 09 09 12 12 00 2D 36 3F 00 00 00 00 00 00 00 00");
    connect.steps.in(0x86, 4, "00 00 00 00");

    Part ping = part(Part::UNTRIED);  // a failed try is followed by another one: that has a test of its own
    ping.steps.command("50 00 64 00").pause(20000).parIn(2, "65 00");

    Part describe = {.afterwards = close, .error = failed};
    Steps& usb = describe.steps;
    usb.command("01 00").parIn(4, "05 EE 02 EE");
    vorntest::streamedText(usb, "Vorn K12");
    vorntest::streamedText(usb, "Vorn");
    usb.parIn(2, flags).parIn(2, pixelCountX).parIn(2, pixelCountY).parIn(2, "02 03").parIn(2, "A3 02");
    usb.parIn(2, "03 00").parIn(2, "04 00").parIn(2, "50 C3");
    usb.command("2C 00").pause(10000).parIn(2, "00 00").pause(10000).parIn(2, "49 00");
    usb.command("36 00").parIn(2, temperatureDetails);
    if (hasTemperature)
        usb.command("37 00 01 00").pause(100000).parIn(6, temperature);
    usb.command("34 00").parIn(6, coolerDetails).eepRead(5, 2, serialLow).eepRead(8, 2, serialHigh);
    if (wheelPolls > 0) {
        usb.pause(5000000);
        for (int poll = 0; poll < wheelPolls; poll++)
            usb.command("87 00").parIn(8, "05 00 01 00 02 00 04 00").pause(100000);
        if (wheelPolls < 20)
            usb.command("87 00").parIn(8, "05 00 00 01 04 00 04 00");
    }
    usb.out(0x04, "0C ?? 00 01 C8 00 ...").out(0x04, "0C ?? 00 00 D0 07 ...");

    parts.insert(parts.end(), {connect, ping, describe});
    return parts;
}
