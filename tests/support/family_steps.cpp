// SPDX-License-Identifier: MIT
#include "family_steps.h"

namespace vorntest {

Steps& advancedData(Steps& usb, const std::string& sent, const std::string& received, Place place)
{
    const size_t length = parseHex(sent).size();
    const std::string count = hexByte(length) + " " + hexByte(length >> 8) + " 00 00 ";
    usb.out(0x04, "06 ?? 00 02 03 00 01 00 " + count + count + sent, place);
    return usb.in(0x86, static_cast<int>(length) + 4, "EE " + received + " EE EE EE", place);
}

Steps& advancedCommand(Steps& usb, const std::string& hex, const std::string& reply, Place place)
{
    std::string ahead = "EE EE EE ";
    for (size_t i = 0; i < parseHex(hex).size(); i++)
        ahead += "EE ";
    return advancedData(usb, "43 4D 44 " + hex + zeros(parseHex(reply).size()), ahead + reply, place);
}

Steps advanced(const std::string& hex, const std::string& reply, Place place)
{
    Steps usb;
    return advancedCommand(usb, hex, reply, place);
}

Steps& advancedPing(Steps& usb, const std::string& kernel, const std::string& application, Place place)
{
    return advancedCommand(advancedCommand(usb, "FD 00 7B", kernel, place), "50 00 7B", application, place);
}

Steps& classicCommand(Steps& usb, const std::string& hex, Place place)
{
    return usb.i2cWrite("80 48 53 43 " + hex, place);
}

Steps& spiWrite(Steps& usb, const std::string& hex, Place place)
{
    usb.out(0x04, "06 ?? 00 01 00 00 01 00 02 00 00 00 02 00 00 00 " + hex, place);
    return usb.in(0x86, 6, "EE EE EE 00 00 00", place);
}

Steps& readLine4(Steps& usb, unsigned value, Place place)
{
    usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 00 00 00 00 00 00 00", place);
    return usb.in(0x86, 9, value != 0 ? "00 10 00 00 00 00 00 00 00" : "FF EF FF FF FF FF FF FF FF", place);
}

Steps& writeRegister(Steps& usb, unsigned offset, const std::string& hex, Place place)
{
    return usb.controlOut(0x7F, offset, 0xF0F0, hex, place);
}

Steps& readRegister(Steps& usb, unsigned offset, const std::string& hex, Place place)
{
    return usb.controlIn(0x7F, offset, 0xF0F0, 4, hex, place);
}

Steps& streamedText(Steps& usb, const std::string& text, Place place)
{
    for (size_t i = 0; i <= text.size(); i++) {
        usb.out(0x04, "09 ?? 00 00 00 00 02 00 ...", place);
        usb.in(0x88, 3, hexByte(static_cast<uint8_t>(text.c_str()[i])) + " 20 EE", place);
    }
    return usb;
}

}  // namespace vorntest
