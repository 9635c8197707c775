// SPDX-License-Identifier: MIT
#include "lifecycle/description.h"

#include "transport/wire.h"

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

}  // namespace

AdvancedDescription decodeAdvancedDescription(std::span<const uint8_t> bytes)
{
    ByteReader reader(bytes);
    AdvancedDescription description;
    (void)reader.u8();
    description.versionMinor = reader.u8();
    (void)reader.u8();
    description.versionMajor = reader.u8();
    const auto lowByte = [&reader] { return reader.be16() & 0xFF; };
    takeString(description.model, lowByte);
    takeString(description.manufacturer, lowByte);
    for (unsigned StreamDescription::*item : DESCRIPTION_ITEMS)
        description.items.*item = reader.be16();
    return description;
}

QuickerDescription decodeQuickerDescription(std::span<const uint8_t> bytes)
{
    ByteReader reader(bytes);
    QuickerDescription description;
    description.versionMinor = reader.u8();
    description.versionMajor = reader.u8();
    const auto character = [&reader] { return reader.u8(); };
    takeString(description.model, character);
    takeString(description.manufacturer, character);
    description.flags = reader.u8();
    description.pixelCountX = static_cast<uint32_t>(static_cast<int16_t>(reader.le16()));
    description.pixelCountY = static_cast<uint32_t>(static_cast<int16_t>(reader.le16()));
    description.pixelWidth = reader.u8();
    description.pixelHeight = reader.u8();
    description.maxBinX = reader.u8();
    description.maxBinY = reader.u8();
    description.prechargeOffset = static_cast<uint32_t>(static_cast<int8_t>(reader.u8()) * 32);
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
