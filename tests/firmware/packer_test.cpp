// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>

#include "packer/intel_hex.h"
#include "packer/table.h"
#include "programs.h"

namespace firmware {
namespace {

using testing::HasSubstr;

Bytes first(const Bytes& bytes, size_t length)
{
    return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length)};
}

Bytes idleTable()
{
    return pack(dumpWith(IDLE_CODE), Format::BINARY).value();
}

/// The idle program with one more Intel HEX line.
std::string hexWith(const std::string& line)
{
    return line + "\n" + IDLE_HEX;
}

TEST(Pack, SameProgramGivesTheSameTableFromEveryFormat)
{
    const Bytes table = idleTable();
    Bytes paddedDump = dumpWith(IDLE_CODE);
    paddedDump[0x05] = 0x00;
    Bytes fullDump = dumpWith(Bytes(IMAGE_LENGTH - 0x2E, 0x5A));
    Bytes flashDump = fullDump;
    flashDump.resize(0x2000, 0xFF);

    const struct {
        const char* label;
        Format format;
        Bytes input;
    } cases[] = {
        {"memory dump", Format::AUTO, dumpWith(IDLE_CODE)},
        {"memory dump with zeros between the vectors", Format::AUTO, paddedDump},
        {"Intel HEX", Format::AUTO, bytesOf(IDLE_HEX)},
        {"Intel HEX, explicit", Format::INTEL_HEX, bytesOf(IDLE_HEX)},
        {"Intel HEX with start and base addresses", Format::AUTO,
         bytesOf(":020000040000FA\n:020000020000FC\n:0400000500000000F7\n" + IDLE_HEX)},
        {"records", Format::AUTO, IDLE_RECORDS},
        {"records without end mark", Format::RECORDS, first(IDLE_RECORDS, IDLE_RECORDS.size() - 3)},
        {"the table's own first stream", Format::AUTO, first(table, 9072)},
        {"the table", Format::AUTO, table},
    };
    for (const auto& c : cases) {
        const Result<Table> result = pack(c.input, c.format);
        EXPECT_EQ(result.error(), "") << c.label;
        EXPECT_TRUE(result.value() == table) << c.label;
    }
    EXPECT_EQ(pack(fullDump, Format::AUTO).error(), "") << "the largest program";
    EXPECT_TRUE(pack(fullDump, Format::AUTO).value() == pack(flashDump, Format::AUTO).value());
}

TEST(Pack, FinishedWorkIsNotLaidOutAnew)
{
    // The table is not ours to judge: another order, other lengths, even an empty stream stay as they are.
    Bytes odd = idleTable();
    odd[18000] = 0xEE;
    std::swap_ranges(odd.begin() + 7, odd.begin() + 11, odd.begin() + 11);
    EXPECT_TRUE(pack(odd, Format::TABLE).value() == odd);
    const Bytes empty(18146, 0);
    EXPECT_TRUE(pack(empty, Format::AUTO).value() == empty);

    // A stream of the right shape keeps its order: here the timer 0 and interrupt 1 vectors are exchanged.
    const Bytes stream = first(odd, 9071);
    const Bytes table = pack(stream, Format::RECORDS).value();
    ASSERT_EQ(table.size(), 18146u);
    EXPECT_TRUE(first(table, 9071) == stream);
    EXPECT_TRUE(std::equal(stream.begin(), stream.end(), table.begin() + 9074));
}

TEST(Pack, RefusesWithOneClearLine)
{
    Bytes longDump = dumpWith(Bytes(IMAGE_LENGTH - 0x2E + 1, 0x5A));
    Bytes gapDump = dumpWith(IDLE_CODE);
    gapDump[0x0C] = 0x12;
    Bytes otherReset = dumpWith(IDLE_CODE);
    otherReset[2] = 0x31;
    Bytes otherTimer = dumpWith(IDLE_CODE);
    otherTimer[0x2B] = 0x32;
    Bytes runaway(18146, 0xFF);
    runaway.back() = 0;
    const Bytes endless(18146, 40);  // 422 records of 43 bytes fill the table to its last byte
    Bytes joined = IDLE_RECORDS;
    joined.push_back(7);

    const struct {
        Format format;
        Bytes input;
        const char* message;
    } cases[] = {
        {Format::AUTO, {}, "none of the known formats"},
        {Format::AUTO, bytesOf("#!/bin/sh\n"), "none of the known formats"},
        {Format::BINARY, {}, "nothing at 0x0000"},
        {Format::BINARY, longDump, "0x1A98 lies beyond 0x1A97"},
        {Format::BINARY, gapDump, "0x000C lies between two interrupt vectors"},
        {Format::BINARY, otherReset, "0x31 at 0x0002, but the vector at 0x0000"},
        {Format::BINARY, otherTimer, "0x32 at 0x002B, but the vector at 0x002B"},
        {Format::BINARY, first(dumpWith({}), 0x2D), "nothing at 0x002D"},
        {Format::INTEL_HEX, {}, "no end record"},
        {Format::AUTO, bytesOf(IDLE_HEX.substr(0, IDLE_HEX.size() - 12)), "no end record"},
        {Format::AUTO, bytesOf(hexWith(":01000B003242")), "line 1 has a wrong checksum"},
        {Format::AUTO, bytesOf(hexWith(":01000B0032C")), "line 1 has an odd number"},
        {Format::AUTO, bytesOf(hexWith(":01000B00G2C2")), "line 1 contains something"},
        {Format::AUTO, bytesOf(hexWith(":01")), "line 1 is too short"},
        {Format::AUTO, bytesOf(hexWith(":02000B0032C1")), "line 1 announces 2 data bytes but has 1"},
        {Format::AUTO, bytesOf(hexWith(":0100000632C7")), "line 1 has the unknown record type 6"},
        {Format::AUTO, bytesOf(hexWith(":01000004FFFC")), "line 1 is an address record of 1"},
        {Format::AUTO, bytesOf(hexWith(":01000B0033C1")), "0x000B is given twice, as 0x33 and as 0x32"},
        {Format::AUTO, bytesOf(hexWith(":01000C0032C1")), "0x000C lies between two interrupt vectors"},
        {Format::AUTO, bytesOf(hexWith(":011A9800321B")), "0x1A98 lies beyond 0x1A97"},
        {Format::AUTO, bytesOf(hexWith(":02000004FFFFFC\n:01FFFF0032CF")), "0xFFFFFFFF lies beyond"},
        {Format::AUTO, bytesOf(IDLE_HEX + ":01000B0032C2"), "line 10 follows the end record"},
        {Format::INTEL_HEX, bytesOf("S00600004844521B\n"), "line 1 does not start with a colon"},
        {Format::AUTO, bytesOf(":00000001FF\n"), "nothing at 0x0000"},
        {Format::RECORDS, first(IDLE_RECORDS, 10), "record 2, at offset 7, does not end"},
        {Format::RECORDS, first(IDLE_RECORDS, 8), "record 2, at offset 7, does not end"},
        {Format::RECORDS, joined, "something follows the end mark at offset 35"},
        {Format::RECORDS, {1, 0x98, 0x1A, 0x00}, "record 1 is refused: a byte at 0x1A98"},
        {Format::RECORDS, {2, 0xFF, 0xFF, 0x00, 0x00}, "record 1 is refused: a byte at 0xFFFF"},
        {Format::TABLE, first(idleTable(), 18145), "has 18146 bytes, this has 18145"},
        {Format::TABLE, runaway, "run past the end of the table after record 70"},
        {Format::TABLE, endless, "run past the end of the table after record 422"},
    };
    for (const auto& c : cases) {
        const Result<Table> result = pack(c.input, c.format);
        EXPECT_FALSE(result.ok()) << c.message;
        EXPECT_THAT(result.error(), HasSubstr(c.message));
        EXPECT_EQ(result.error().find('\n'), std::string::npos) << c.message;
    }
}

TEST(Pack, SurvivesDamagedInput)
{
    const Bytes sound[] = {bytesOf(IDLE_HEX), IDLE_RECORDS, dumpWith(IDLE_CODE), first(idleTable(), 9072), idleTable()};
    uint64_t state = 1;
    const auto random = [&state](size_t below) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        return static_cast<size_t>(state >> 33) % below;
    };
    int accepted = 0;
    for (int round = 0; round < 2000; ++round) {
        Bytes input = sound[random(std::size(sound))];
        input.resize(random(4) == 0 ? random(input.size() + 1) : input.size());
        for (size_t damage = random(4); damage > 0 && !input.empty(); --damage)
            input[random(input.size())] = static_cast<uint8_t>(random(256));
        for (const Format format : {Format::AUTO, Format::INTEL_HEX, Format::BINARY, Format::RECORDS, Format::TABLE}) {
            const Result<Table> result = pack(input, format);
            ASSERT_EQ(result.value().size(), result.ok() ? 18146u : 0u);
            accepted += result.ok() ? 1 : 0;
        }
    }
    EXPECT_GT(accepted, 0);
}

TEST(SourceText, DefinesTheTable)
{
    const std::string text = sourceText(idleTable(), "a\\\nb.hex");
    EXPECT_THAT(text, HasSubstr("// Made by vornccd-pack-firmware from a__b.hex; do not edit.\n"));
    EXPECT_THAT(text, HasSubstr("#include \"vornccd.h\"\n\nunsigned char FIRMWARE[18146] = {\n"
                                "    0x04, 0x00, 0x00, 0x02, 0x00, 0x2E, 0x32, 0x01, 0x0B, 0x00, 0x32, 0x01, 0x13, "
                                "0x00, 0x32, 0x01,\n    0x1B,"));
    EXPECT_THAT(text, testing::EndsWith("\n};\n"));
}

}  // namespace
}  // namespace firmware
