// SPDX-License-Identifier: MIT
#pragma once

/// @file family_steps.h
/// Exchanges of the families with a dialect of their own, in the notation of script.h. Each adds steps to a list and
/// returns it; failures carry the place of the caller.

#include "script.h"

namespace vorntest {

/// One exchange over SPI: @p sent goes out while as many bytes, @p received, come in.
Steps& advancedData(Steps& usb, const std::string& sent, const std::string& received, Place place = Place::here());
/// An ADVANCED command: `43 4D 44`, @p hex (command code and payload) and zeros for the reply go out in one exchange;
/// @p reply comes back after as many bytes without meaning as were sent before the zeros.
Steps& advancedCommand(Steps& usb, const std::string& hex, const std::string& reply = "", Place place = Place::here());
Steps advanced(const std::string& hex, const std::string& reply = "", Place place = Place::here());
/// Both pings of an ADVANCED camera, answered @p kernel and @p application.
Steps& advancedPing(Steps& usb, const std::string& kernel = "00 7B", const std::string& application = "00 7C",
                    Place place = Place::here());

/// A CLASSIC command: `48 53 43` and @p hex (command code and payload) by I2C.
Steps& classicCommand(Steps& usb, const std::string& hex, Place place = Place::here());

/// A write of two bytes to the SPI registers of a QUICKER camera: register number in the high nibble.
Steps& spiWrite(Steps& usb, const std::string& hex, Place place = Place::here());

/// I/O line 4 is asked for, the other lines of its port read the opposite.
Steps& readLine4(Steps& usb, unsigned value, Place place = Place::here());

/// A register of an IIDC camera at @p offset in its space: four bytes, low byte first.
Steps& writeRegister(Steps& usb, unsigned offset, const std::string& hex, Place place = Place::here());
Steps& readRegister(Steps& usb, unsigned offset, const std::string& hex, Place place = Place::here());

/// A text streamed one character a 16-bit word, NUL at the end.
Steps& streamedText(Steps& usb, const std::string& text, Place place = Place::here());

}  // namespace vorntest
