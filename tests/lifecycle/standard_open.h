// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "script.h"

/// What a STANDARD camera says while it is opened, and the conversation that follows from it.
struct StandardOpen {
    /// Parts of the conversation that a failure has different consequences in.
    enum Phase { OPEN, CLAIM, BRIDGE, FLUSH, PRODUCT_ID, COLOUR, IDENTIFY, PING, CLOSING };

    std::string productId = "34 DF";
    std::string colour = "FF FF FF FF FF";
    std::string version = "05 EE 02 EE";  ///< 2.5
    std::string flags = "40 01";          ///< no shutter, no guide port, no wheel
    std::string pixelCountX = "A0 0F";    ///< 4000
    std::string pixelCountY = "B8 0B";    ///< 3000
    std::string pixelWidth = "02 03";     ///< 7.70
    std::string pixelHeight = "A3 02";    ///< 6.75
    std::string temperatureDetails = "01 EE";
    std::string temperature = "02 EE 00 08 EE EE";
    std::string coolerDetails = "10 EE C8 EE 0A EE";
    std::string serialLow = "34 12";
    std::string serialHigh = "01 00";
    bool hasTemperature = true;  ///< the sensor is read
    bool driverActive = false;   ///< a kernel driver holds the interface
    int detachResult = 0;        ///< what detaching it returns
    int wheelPolls = 0;          ///< polls that find the wheel moving, before one that does not; 0 when there is none

    /// Writes the whole conversation of a successful open to @p usb. @return the phase of each step.
    std::vector<Phase> write(vorntest::Steps& usb) const;
    /// The parts, for tests that put them together.
    void writeBridge(vorntest::Steps& usb) const;
    void writeFlush(vorntest::Steps& usb) const;
    void writeColour(vorntest::Steps& usb) const;
    void writeIdentify(vorntest::Steps& usb) const;
    void writeAfterPing(vorntest::Steps& usb) const;
    void writeClosing(vorntest::Steps& usb) const;
};
