// SPDX-License-Identifier: MIT
/// @file description.h
/// Descriptions that cameras send of themselves: decoders from bytes to values. Nothing here touches a camera.
#pragma once

#include "transport/layout.h"

#include "vornccd.h"

#include <array>
#include <cstdint>
#include <span>

namespace vornccd {

/// Bits of the description flags (STANDARD, CLASSIC, ADVANCED).
enum DescriptionFlag : uint32_t {
    FIFO = 0x0001,
    INTERLACED = 0x0002,
    EXT_TRIGGER = 0x0004,
    PREVIEW = 0x0008,
    SUBSAMPLE = 0x0010,
    OVERLAP = 0x0040,
    HAS_SHUTTER = 0x0080,
    NO_GUIDE_PORT = 0x0100,  // deliberate: set means absent
    HAS_GPIO = 0x0200,
    HAS_WINDOW_HEATER = 0x0400,
    HAS_8_BIT_MODE = 0x0800,
    HAS_FILTER_WHEEL = 0x1000,
};

/// Bits of the QUICKER description flags.
enum QuickerFlag : uint8_t {
    QUICKER_HAS_GUIDE_PORT = 0x01,  // deliberate: set means present, unlike the other families
    QUICKER_NO_FAST_USB = 0x02,
    QUICKER_PC_CDS = 0x04,
};

/// Flag name for the trace: @p name when the bit is set, else an empty text.
constexpr const char* flagName(uint32_t flags, uint32_t bit, const char* name)
{
    return (flags & bit) != 0 ? name : "";
}

/// Items of the description stream of STANDARD and CLASSIC cameras.
struct StreamDescription {
    unsigned flags = 0;
    unsigned pixelCountX = 0;
    unsigned pixelCountY = 0;
    unsigned pixelWidth = 0;   ///< hundredths of a micrometre
    unsigned pixelHeight = 0;  ///< hundredths of a micrometre
    unsigned maxBinX = 0;
    unsigned maxBinY = 0;
    unsigned wellCapacity = 0;
};

/// The items in the order in which they come, 16 bits each.
inline constexpr unsigned StreamDescription::*DESCRIPTION_ITEMS[] = {
    &StreamDescription::flags,      &StreamDescription::pixelCountX, &StreamDescription::pixelCountY,
    &StreamDescription::pixelWidth, &StreamDescription::pixelHeight, &StreamDescription::maxBinX,
    &StreamDescription::maxBinY,    &StreamDescription::wellCapacity};

constexpr size_t ADVANCED_STRING_MAX = 80;

// Where an ADVANCED description begins: the version, then model and manufacturer, one character a 16-bit unit, in its
// second byte, each ended by a unit whose second byte is 0. DESCRIPTION_ITEMS follow, big-endian.
constexpr Field ADVANCED_VERSION_MINOR = byteAt(1);
constexpr Field ADVANCED_VERSION_MAJOR = byteAt(3);
constexpr size_t ADVANCED_STRINGS = 4;

/// Description of an ADVANCED camera. Fields beyond the end of the reply are 0, strings are always terminated.
struct AdvancedDescription {
    uint32_t versionMajor = 0;
    uint32_t versionMinor = 0;
    std::array<char, ADVANCED_STRING_MAX + 1> model = {};
    std::array<char, ADVANCED_STRING_MAX + 1> manufacturer = {};
    StreamDescription items;
};

AdvancedDescription decodeAdvancedDescription(std::span<const uint8_t> bytes);

constexpr size_t QUICKER_DESCRIPTION_LENGTH = 64;

// Where a QUICKER description begins: the version, then model and manufacturer, each ended by a zero.
constexpr Field QUICKER_VERSION_MINOR = byteAt(0);
constexpr Field QUICKER_VERSION_MAJOR = byteAt(1);
constexpr size_t QUICKER_STRINGS = 2;
// What follows the texts
constexpr Field QUICKER_FLAGS = byteAt(0);
constexpr Field QUICKER_PIXEL_COUNT_X = le16At(1);  // signed
constexpr Field QUICKER_PIXEL_COUNT_Y = le16At(3);  // signed
constexpr Field QUICKER_PIXEL_WIDTH = byteAt(5);
constexpr Field QUICKER_PIXEL_HEIGHT = byteAt(6);
constexpr Field QUICKER_MAX_BIN_X = byteAt(7);
constexpr Field QUICKER_MAX_BIN_Y = byteAt(8);
constexpr Field QUICKER_PRECHARGE_CODE = byteAt(9);  // signed
static_assert(covers({QUICKER_FLAGS, QUICKER_PIXEL_COUNT_X, QUICKER_PIXEL_COUNT_Y, QUICKER_PIXEL_WIDTH,
                      QUICKER_PIXEL_HEIGHT, QUICKER_MAX_BIN_X, QUICKER_MAX_BIN_Y, QUICKER_PRECHARGE_CODE},
                     10));

/// Description of a QUICKER camera. Fields beyond the end are 0, strings are always terminated.
struct QuickerDescription {
    uint32_t versionMajor = 0;
    uint32_t versionMinor = 0;
    std::array<char, QUICKER_DESCRIPTION_LENGTH + 1> model = {};
    std::array<char, QUICKER_DESCRIPTION_LENGTH + 1> manufacturer = {};
    uint32_t flags = 0;
    uint32_t pixelCountX = 0;  ///< sign-extended from 16 bits
    uint32_t pixelCountY = 0;
    uint32_t pixelWidth = 0;   ///< tenths of a micrometre
    uint32_t pixelHeight = 0;  ///< tenths of a micrometre
    uint32_t maxBinX = 0;
    uint32_t maxBinY = 0;
    uint32_t prechargeOffset = 0;  ///< 32 times the sign-extended code
};

QuickerDescription decodeQuickerDescription(std::span<const uint8_t> bytes);

/// Cooler kind of a capability word, and its name for the trace; the first bit set of 0x10, 0x08, 0x04, 0x01 decides.
struct CoolerKind {
    unsigned bit;
    COOLER_TYPE cooler;
    const char* name;
};
const CoolerKind& coolerKind(unsigned capabilities);

}  // namespace vornccd
