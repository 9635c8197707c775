// SPDX-License-Identifier: MIT
#pragma once

/// @file family_steps.h
/// Exchanges of the families with a dialect of their own, in the notation of script.h. Each adds steps to a list and
/// returns it; failures carry the place of the caller.

#include "script.h"

namespace vorntest {

/// One exchange over SPI: @p sent goes out while as many bytes, @p received, come in.
inline Steps& advancedData(Steps& usb, const std::string& sent, const std::string& received,
                           Place place = Place::here())
{
    const size_t length = parseHex(sent).size();
    const std::string count = hexByte(length) + " " + hexByte(length >> 8) + " 00 00 ";
    usb.out(0x04, "06 ?? 00 02 03 00 01 00 " + count + count + sent, place);
    return usb.in(0x86, static_cast<int>(length) + 4, "EE " + received + " EE EE EE", place);
}
/// An ADVANCED command: `43 4D 44`, @p hex (command code and payload) and zeros for the reply go out in one exchange;
/// @p reply comes back behind as many bytes without meaning as were sent before the zeros.
inline Steps& advancedCommand(Steps& usb, const std::string& hex, const std::string& reply = "",
                              Place place = Place::here())
{
    std::string ahead = "EE EE EE ";
    for (size_t i = 0; i < parseHex(hex).size(); i++)
        ahead += "EE ";
    return advancedData(usb, "43 4D 44 " + hex + zeros(parseHex(reply).size()), ahead + reply, place);
}
inline Steps advanced(const std::string& hex, const std::string& reply = "", Place place = Place::here())
{
    Steps usb;
    return advancedCommand(usb, hex, reply, place);
}
/// Both pings of an ADVANCED camera, answered @p kernel and @p application.
inline Steps& advancedPing(Steps& usb, const std::string& kernel = "00 7B", const std::string& application = "00 7C",
                           Place place = Place::here())
{
    return advancedCommand(advancedCommand(usb, "FD 00 7B", kernel, place), "50 00 7B", application, place);
}

/// A CLASSIC command: `48 53 43` and @p hex (command code and payload) by I2C.
inline Steps& classicCommand(Steps& usb, const std::string& hex, Place place = Place::here())
{
    return usb.i2cWrite("80 48 53 43 " + hex, place);
}

/// A write of two bytes to the SPI registers of a QUICKER camera: register number in the high nibble.
inline Steps& spiWrite(Steps& usb, const std::string& hex, Place place = Place::here())
{
    usb.out(0x04, "06 ?? 00 01 00 00 01 00 02 00 00 00 02 00 00 00 " + hex, place);
    return usb.in(0x86, 6, "EE EE EE 00 00 00", place);
}

/// I/O line 4 is asked for, the other lines of its port read the opposite.
inline Steps& readLine4(Steps& usb, unsigned value, Place place = Place::here())
{
    usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 00 00 00 00 00 00 00", place);
    return usb.in(0x86, 9, value != 0 ? "00 10 00 00 00 00 00 00 00" : "FF EF FF FF FF FF FF FF FF", place);
}

/// A register of an IIDC camera at @p offset in its space: four bytes, low byte first.
inline Steps& writeRegister(Steps& usb, unsigned offset, const std::string& hex, Place place = Place::here())
{
    return usb.controlOut(0x7F, offset, 0xF0F0, hex, place);
}
inline Steps& readRegister(Steps& usb, unsigned offset, const std::string& hex, Place place = Place::here())
{
    return usb.controlIn(0x7F, offset, 0xF0F0, 4, hex, place);
}

/// A text streamed one character a 16-bit word, NUL at the end.
inline Steps& streamedText(Steps& usb, const std::string& text, Place place = Place::here())
{
    for (size_t i = 0; i <= text.size(); i++) {
        usb.out(0x04, "09 ?? 00 00 00 00 02 00 ...", place);
        usb.in(0x88, 3, hexByte(static_cast<uint8_t>(text.c_str()[i])) + " 20 EE", place);
    }
    return usb;
}

}  // namespace vorntest
