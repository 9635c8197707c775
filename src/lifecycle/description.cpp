// SPDX-License-Identifier: MIT
#include "lifecycle/description.h"

#include "transport/layout.h"
#include "transport/wire.h"

#include <algorithm>

namespace vornccd {

namespace {

/// Takes characters of @p next up to a zero or until @p text is full but for its terminator.
template <size_t N, typename Next>
void takeString(std::array<char, N>& text, Next next)
{
    for (size_t i = 0; i + 1 < N; ++i) {
        const auto character = static_cast<char>(next());
        if (character == '\0')
            return;
        text[i] = character;
    }
}

/// The bits of a signed number of type T as those of a 32-bit one.
template <typename T>
constexpr uint32_t signExtended(uint32_t bits)
{
    return static_cast<uint32_t>(static_cast<T>(bits));
}

constexpr uint32_t PRECHARGE_STEP = 32;

}  // namespace

AdvancedDescription decodeAdvancedDescription(std::span<const uint8_t> bytes)
{
    AdvancedDescription description;
    description.versionMajor = unpack(bytes, ADVANCED_VERSION_MAJOR);
    description.versionMinor = unpack(bytes, ADVANCED_VERSION_MINOR);
    ByteReader reader(bytes.subspan(std::min(ADVANCED_STRINGS, bytes.size())));
    const auto lowByte = [&reader] { return reader.be16() & 0xFF; };
    takeString(description.model, lowByte);
    takeString(description.manufacturer, lowByte);
    size_t offset = 0;
    for (unsigned StreamDescription::*item : DESCRIPTION_ITEMS) {
        description.items.*item = unpack(reader.rest(), be16At(offset));
        offset += sizeof(uint16_t);
    }
    return description;
}

QuickerDescription decodeQuickerDescription(std::span<const uint8_t> bytes)
{
    QuickerDescription description;
    description.versionMinor = unpack(bytes, QUICKER_VERSION_MINOR);
    description.versionMajor = unpack(bytes, QUICKER_VERSION_MAJOR);
    ByteReader reader(bytes.subspan(std::min(QUICKER_STRINGS, bytes.size())));
    const auto character = [&reader] { return reader.u8(); };
    takeString(description.model, character);
    takeString(description.manufacturer, character);
    const std::span<const uint8_t> items = reader.rest();
    description.flags = unpack(items, QUICKER_FLAGS);
    description.pixelCountX = signExtended<int16_t>(unpack(items, QUICKER_PIXEL_COUNT_X));
    description.pixelCountY = signExtended<int16_t>(unpack(items, QUICKER_PIXEL_COUNT_Y));
    description.pixelWidth = unpack(items, QUICKER_PIXEL_WIDTH);
    description.pixelHeight = unpack(items, QUICKER_PIXEL_HEIGHT);
    description.maxBinX = unpack(items, QUICKER_MAX_BIN_X);
    description.maxBinY = unpack(items, QUICKER_MAX_BIN_Y);
    description.prechargeOffset = signExtended<int8_t>(unpack(items, QUICKER_PRECHARGE_CODE)) * PRECHARGE_STEP;
    return description;
}

const CoolerKind& coolerKind(unsigned capabilities)
{
    static constexpr CoolerKind KINDS[] = {
        // in order of priority
        {0x10, COOLER_SETPOINT, "COOLER_SETPOINT"},
        {0x08, COOLER_SELECTPOWER, "COOLER_SELECTPOWER"},
        {0x04, COOLER_ONOFF, "COOLER_ONOFF"},
        {0x01, COOLER_ALWAYSON, "COOLER_ALWAYSON"},
    };
    static constexpr CoolerKind NONE = {0, COOLER_NONE, "COOLER_NONE"};
    for (const CoolerKind& kind : KINDS) {
        if ((capabilities & kind.bit) != 0)
            return kind;
    }
    return NONE;
}

}  // namespace vornccd
