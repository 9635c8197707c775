// SPDX-License-Identifier: MIT
/// @file family_facts.h
/// What is plainly different between the families, a row each. What they do in different ways stands in family.h.
#pragma once

#include "vornccd.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace vornccd {

enum class ByteOrder : uint8_t { LITTLE, BIG };

/// Facts about one family. The defaults are those of a type outside the enumeration, which no camera has.
struct FamilyFacts {
    CAMERA_TYPE type = {};  ///< 0 in the row of the types outside the enumeration
    // ---- opening --------------------------------------------------------------------------------------------------
    bool hasBridge = false;          ///< the bridge's program is loaded and its FIFO drained
    bool getsBridgeSetUp = false;    ///< ports, timeouts and I2C speed of the bridge are set before the identification
    bool hasEeprom = true;           ///< the bulk endpoints need an alternate setting, an EEPROM has the product id
    bool retriesConnection = false;  ///< a failed connection check begins the opening again
    bool getsClosingTimeouts = false;  ///< the opening ends with the bridge's usual timeouts
    // ---- commands -------------------------------------------------------------------------------------------------
    bool takesCommands = false;                  ///< numbered commands of the camera's application
    ByteOrder payloadOrder = ByteOrder::LITTLE;  ///< of a 16-bit payload without a reply
    bool bytesComeAsWords = false;               ///< each data byte arrives in the low half of a 16-bit word
    uint8_t appInitStatusLength = 0;             ///< bytes that are read to poll the application's start
    bool flushesBlocks = false;                  ///< image data left in the FIFO are drained in large blocks
    bool hasSpi = false;                         ///< serial lines on port 0 of the bridge
    uint8_t spiIdle = 0;                         ///< their state at rest, see spiInit()
    bool hasSpiRegisters = false;                ///< exposures are made by writing registers over these lines
    // ---- exposure -------------------------------------------------------------------------------------------------
    bool supportsLongExposure = true;
    bool hasQuickerDelays = false;  ///< the two delays that a host may set
    double maxShortSeconds = 0.0;   ///< longest exposure that the camera times itself; 0: not known
    bool raisesParTimeout = false;  ///< the bridge waits longer while an image is read out
    bool hasPreviewMode = false;
    bool has8BitMode = false;
    bool hasDarkFrameMode = false;
    // ---- accessories ----------------------------------------------------------------------------------------------
    bool hasShutterCommand = false;
    bool hasGpioPort = false;
    bool hasGain = false;
};

inline constexpr FamilyFacts NO_FAMILY = {};

/// In the order of CAMERA_TYPE, which begins at 1.
inline constexpr FamilyFacts FAMILY_FACTS[] = {
    {.type = CLASSIC,
     .hasBridge = true,
     .getsBridgeSetUp = true,
     .retriesConnection = true,
     .takesCommands = true,
     .bytesComeAsWords = true,
     .appInitStatusLength = 2,
     .maxShortSeconds = 2.46,
     .hasPreviewMode = true},
    {.type = STANDARD,
     .hasBridge = true,
     .getsBridgeSetUp = true,
     .getsClosingTimeouts = true,
     .takesCommands = true,
     .appInitStatusLength = 2,
     .maxShortSeconds = 3.0,
     .raisesParTimeout = true,
     .hasPreviewMode = true,
     .hasDarkFrameMode = true,
     .hasShutterCommand = true,
     .hasGpioPort = true},
    {.type = QUICKER,
     .hasBridge = true,
     .getsBridgeSetUp = true,
     .getsClosingTimeouts = true,
     .flushesBlocks = true,
     .hasSpi = true,
     .spiIdle = 0xC0,  // the clock rests high
     .hasSpiRegisters = true,
     .hasQuickerDelays = true,
     .maxShortSeconds = 1.398,
     .raisesParTimeout = true},
    {.type = IIDC, .hasEeprom = false, .supportsLongExposure = false, .maxShortSeconds = 0.5},
    {.type = ADVANCED,
     .hasBridge = true,
     .getsClosingTimeouts = true,
     .takesCommands = true,
     .payloadOrder = ByteOrder::BIG,
     .appInitStatusLength = 1,
     .hasSpi = true,
     .spiIdle = 0x80,  // the clock rests low
     .maxShortSeconds = 3.0,
     .hasPreviewMode = true,
     .has8BitMode = true,
     .hasGpioPort = true,
     .hasGain = true},
};

/// @return the row of @p type; for a type outside the enumeration a row of its own.
constexpr const FamilyFacts& factsOf(CAMERA_TYPE type)
{
    const auto row = static_cast<size_t>(static_cast<int>(type) - 1);  // wraps below the first
    return row < std::size(FAMILY_FACTS) ? FAMILY_FACTS[row] : NO_FAMILY;
}

static_assert(factsOf(CLASSIC).type == CLASSIC && factsOf(STANDARD).type == STANDARD &&
              factsOf(QUICKER).type == QUICKER && factsOf(IIDC).type == IIDC && factsOf(ADVANCED).type == ADVANCED);

/// @return whether @p type is one of the five.
constexpr bool isFamily(CAMERA_TYPE type)
{
    return &factsOf(type) != &NO_FAMILY;
}

/// @return whether cameras of this family know no numbered commands: asking for one is a fault of the caller's.
constexpr bool refusesCommands(CAMERA_TYPE type)
{
    return isFamily(type) && !factsOf(type).takesCommands;
}

}  // namespace vornccd
