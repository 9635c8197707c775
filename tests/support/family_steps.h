// SPDX-License-Identifier: MIT
#pragma once

/// @file family_steps.h
/// Exchanges of the families with a dialect of their own, in the notation of script.h. Each adds steps to a list and
/// returns it; failures carry the place of the caller.

#include <string>

#include "script.h"

namespace vorntest {

/// An ADVANCED command: `43 4D 44`, @p hex (command code and payload) and zeros for the reply go out in one exchange
/// over SPI; @p reply comes back behind as many bytes without meaning as were sent before the zeros.
Steps& advancedCommand(Steps& usb, const std::string& hex, const std::string& reply = "", Place place = Place::here());
/// Both pings of an ADVANCED camera, answered @p kernel and @p application.
Steps& advancedPing(Steps& usb, const std::string& kernel = "00 7B", const std::string& application = "00 7C",
                    Place place = Place::here());
/// Data of an ADVANCED camera without a command: @p sent goes out while @p reply comes in.
Steps& advancedData(Steps& usb, const std::string& sent, const std::string& reply, Place place = Place::here());

/// A CLASSIC command: `48 53 43` and @p hex (command code and payload) by I2C.
Steps& classicCommand(Steps& usb, const std::string& hex, Place place = Place::here());

/// A write of two bytes to the SPI registers of a QUICKER camera: register number in the high nibble.
Steps& spiWrite(Steps& usb, const std::string& hex, Place place = Place::here());

/// Level of one of the I/O lines 0 to 7, and its direction.
Steps& setLine(Steps& usb, unsigned line, unsigned value, Place place = Place::here());
Steps& setLineDirection(Steps& usb, unsigned line, unsigned output, Place place = Place::here());
/// I/O line 4 is asked for, the other lines of its port read 1.
Steps& readLine4(Steps& usb, unsigned value, Place place = Place::here());
/// The line directions, and the SPI set-up with @p state for port 0, that QUICKER and ADVANCED cameras share.
Steps& lineSetUp(Steps& usb, const std::string& state, Place place = Place::here());

/// A register of an IIDC camera at @p offset in its space: four bytes, low byte first.
Steps& writeRegister(Steps& usb, unsigned offset, const std::string& hex, Place place = Place::here());
Steps& readRegister(Steps& usb, unsigned offset, const std::string& hex, Place place = Place::here());

/// A waveform table as it is loaded, and its acknowledgement.
Steps& loadTable(Steps& usb, const char* table, Place place = Place::here());
extern const char* const GPIF_MODE_1;
extern const char* const GPIF_MODE_9;
extern const char* const PAR_INIT;
extern const char* const PAR_INIT_Q_SLOW;

/// The bridge's timeouts and ports after the firmware.
Steps& bridgeSetUp(Steps& usb, Place place = Place::here());
/// A text streamed one character a 16-bit word, NUL at the end.
Steps& streamedText(Steps& usb, const std::string& text, Place place = Place::here());
/// What closes the opening of STANDARD, QUICKER and ADVANCED cameras: timeouts of 200 ms and 2000 ms.
Steps& finalTimeouts(Steps& usb, Place place = Place::here());

}  // namespace vorntest
