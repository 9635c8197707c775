// SPDX-License-Identifier: MIT
#include "family_steps.h"

namespace vorntest {

namespace {

std::string hexByte(size_t value)
{
    return toHex({{static_cast<uint8_t>(value)}});
}

/// {mask, value} for port 0, the other ports unchanged.
std::string portZero(unsigned mask, unsigned value)
{
    return hexByte(mask) + " " + hexByte(value) + " FF 00 FF 00 FF 00 FF 00";
}

Steps& setPort(Steps& usb, const std::string& block, Place place)
{
    return usb.out(0x04, "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 " + block + " 00 00 00 00 00 00", place);
}

Steps& setDirections(Steps& usb, const std::string& block, Place place)
{
    return usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 " + block, place);
}

/// One exchange over SPI: as many bytes in as out.
Steps& exchange(Steps& usb, const std::string& sent, const std::string& received, Place place)
{
    const size_t length = parseHex(sent).size();
    const std::string count = hexByte(length) + " " + hexByte(length >> 8) + " 00 00 ";
    usb.out(0x04, "06 ?? 00 02 03 00 01 00 " + count + count + sent, place);
    return usb.in(0x86, static_cast<int>(length) + 4, "EE " + received + " EE EE EE", place);
}

}  // namespace

const char* const GPIF_MODE_1 =
    "81 EE 00 E0 00 00 07 4E 00 00 00 00 00 00 00 00 01 01 01 01 01 01 01 07 00 00 00 00 00 00 00 00 "
    "07 07 07 07 07 07 07 07 00 00 00 00 00 00 00 3F 01 01 01 01 01 01 01 07 00 00 00 00 00 00 00 00 "
    "07 07 07 07 07 07 07 07 00 00 00 00 00 00 00 3F 01 01 01 3B 01 01 01 07 00 00 00 03 02 02 02 00 "
    "07 03 01 07 07 07 07 07 00 00 00 2D 00 00 00 3F 01 39 01 01 01 01 01 07 00 03 02 02 02 02 02 00 "
    "07 07 07 07 07 07 07 07 00 2D 00 00 00 00 00 3F 00 00 00 00 00 00 00 00 00 00 83 00 13 11 00 24 "
    "03 02 01 81 09 17 16 00 24 03 02 01";
const char* const PAR_INIT =
    "01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 0E 01 01 3F 01 01 00 07 01 00 00 03 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 00 80 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 0E 01 01 3F 01 01 00 07 01 00 00 03 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 00 80 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 00 00 00 00 00 00 00 00";
const char* const PAR_INIT_Q_SLOW =
    "01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 00 00 00 00 00 00 00 00";
const char* const GPIF_MODE_9 =
    "01 EE FF 80 00 00 FF E4 11 01 02 00 04 00 00 00 01 0A 01 3B 01 01 01 07 00 01 02 01 00 00 10 00 "
    "FC FC FD FD FD FD FD FF 00 00 12 00 00 2D 12 3F 01 0A 01 3B 01 01 01 07 02 03 02 05 00 00 00 00 "
    "FE FE FF FF FF FF FF FF 09 00 00 00 00 2D 36 3F 0E 03 01 3F 01 01 36 07 01 00 02 01 00 00 11 00 "
    "FF FE FE FE FF FF FF FF 00 09 12 12 00 2D 12 3F 08 03 01 3F 01 01 01 07 01 02 00 01 00 00 00 00 "
    "FF FD FF FF FF FF FF FF 09 09 12 12 00 2D 36 3F 00 00 00 00 00 00 00 00";

Steps& loadTable(Steps& usb, const char* table, Place place)
{
    const std::string length = hexByte(parseHex(table).size());
    usb.out(0x04, "08 ?? FF 00 00 00 00 00 00 00 00 00 " + length + " 00 00 00 " + table, place);
    return usb.in(0x86, 4, "00 00 00 00", place);
}

Steps& advancedCommand(Steps& usb, const std::string& hex, const std::string& reply, Place place)
{
    std::string ahead = "EE EE EE";
    for (size_t i = 0; i < parseHex(hex).size(); i++)
        ahead += " EE";
    return exchange(usb, "43 4D 44 " + hex + zeros(parseHex(reply).size()), ahead + " " + reply, place);
}

Steps& advancedPing(Steps& usb, const std::string& kernel, const std::string& application, Place place)
{
    advancedCommand(usb, "FD 00 7B", kernel, place);
    return advancedCommand(usb, "50 00 7B", application, place);
}

Steps& advancedData(Steps& usb, const std::string& sent, const std::string& reply, Place place)
{
    return exchange(usb, sent, reply, place);
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

Steps& setLine(Steps& usb, unsigned line, unsigned value, Place place)
{
    return setPort(usb, portZero(~(1U << line), value << line), place);
}

Steps& setLineDirection(Steps& usb, unsigned line, unsigned output, Place place)
{
    return setDirections(usb, portZero(~(1U << line), output << line), place);
}

Steps& readLine4(Steps& usb, unsigned value, Place place)
{
    usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 00 00 00 00 00 00 00", place);
    return usb.in(0x86, 9, value != 0 ? "00 10 00 00 00 00 00 00 00" : "FF EF FF FF FF FF FF FF FF", place);
}

Steps& lineSetUp(Steps& usb, const std::string& state, Place place)
{
    for (const char* block : {"FE 01", "FD 02", "FB 04", "F7 00", "EF 00", "DF 20", "BF 40", "7F 80"})
        setDirections(usb, std::string(block) + " FF 00 FF 00 FF 00 FF 00", place);
    setPort(usb, "1F " + state + " FF 00 FF 00 FF 00 FF 00", place);
    return setDirections(usb, "0F E0 FF 00 FF 00 FF 00 FF 00", place);
}

Steps& writeRegister(Steps& usb, unsigned offset, const std::string& hex, Place place)
{
    return usb.controlOut(0x7F, offset, 0xF0F0, hex, place);
}

Steps& readRegister(Steps& usb, unsigned offset, const std::string& hex, Place place)
{
    return usb.controlIn(0x7F, offset, 0xF0F0, 4, hex, place);
}

Steps& bridgeSetUp(Steps& usb, Place place)
{
    setDirections(usb, "00 9F FF 00 FF 00 FF 00 FF 00", place);
    setPort(usb, "00 80 FF 00 FF 00 FF 00 FF 00", place);
    usb.out(0x04, "0C ?? 00 01 32 00 ...", place).out(0x04, "0C ?? 00 00 32 00 ...", place);
    return usb.out(0x04, "05 ?? 00 00 00 00 ...", place);
}

Steps& streamedText(Steps& usb, const std::string& text, Place place)
{
    for (size_t i = 0; i <= text.size(); i++) {
        usb.out(0x04, "09 ?? 00 00 00 00 02 00 ...", place);
        usb.in(0x88, 3, std::vector<uint8_t>{static_cast<uint8_t>(text.c_str()[i]), 0x20, 0xEE}, place);
    }
    return usb;
}

Steps& finalTimeouts(Steps& usb, Place place)
{
    return usb.out(0x04, "0C ?? 00 01 C8 00 ...", place).out(0x04, "0C ?? 00 00 D0 07 ...", place);
}

}  // namespace vorntest
