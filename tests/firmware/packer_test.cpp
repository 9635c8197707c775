// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <set>

#include "packer/table.h"
#include "programs.h"
#include "vornccd.h"

namespace firmware {
namespace {

using testing::HasSubstr;

Bytes first(const Bytes& bytes, size_t length, size_t from = 0)
{
    return {bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(from + length)};
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
    const std::pair<const char*, Bytes> cases[] = {
        {"memory dump with zeros between the vectors", paddedDump},
        {"Intel HEX with start and base addresses",
         bytesOf(":020000040000FA\n:020000020000FC\n:0400000500000000F7\n" + IDLE_HEX)},
        {"records", IDLE_RECORDS},
        {"the table's own first stream", first(table, 9072)},
        {"the table", table},
    };
    for (const auto& [label, input] : cases) {
        const Result<Table> result = pack(input, Format::AUTO);
        EXPECT_EQ(result.error(), "") << label;
        EXPECT_TRUE(result.value() == table) << label;
    }
    EXPECT_TRUE(pack(first(IDLE_RECORDS, IDLE_RECORDS.size() - 3), Format::RECORDS).value() == table) << "no end mark";
    const Bytes fullDump = dumpWith(Bytes(IMAGE_LENGTH - 0x2E, 0x5A));
    Bytes flashDump = fullDump;
    flashDump.resize(0x2000, 0xFF);
    EXPECT_EQ(pack(fullDump, Format::AUTO).error(), "") << "the largest program";
    EXPECT_TRUE(pack(flashDump, Format::AUTO).value() == pack(fullDump, Format::AUTO).value());
}

TEST(Pack, FinishedWorkIsNotLaidOutAnew)
{
    // Another order and other values stay as they are: here the timer 0 and interrupt 1 vectors are exchanged.
    Bytes odd = idleTable();
    odd[18000] = 0xEE;
    std::swap_ranges(odd.begin() + 7, odd.begin() + 11, odd.begin() + 11);
    EXPECT_TRUE(pack(odd, Format::TABLE).value() == odd);
    const Bytes stream = first(odd, 9071);
    const Bytes table = pack(stream, Format::RECORDS).value();
    EXPECT_TRUE(first(table, 9071) == stream);
}

TEST(Pack, RefusesWithOneClearLine)
{
    Bytes longDump = dumpWith(Bytes(IMAGE_LENGTH - 0x2E + 1, 0x5A));
    Bytes gapDump = dumpWith(IDLE_CODE);
    gapDump[0x0C] = 0x12;
    Bytes otherReset = dumpWith(IDLE_CODE);
    otherReset[2] = 0x31;
    const Bytes endless(18146, 40);  // 422 records of 43 bytes fill the table to its last byte

    const struct {
        Format format;
        Bytes input;
        const char* message;
    } cases[] = {
        {Format::AUTO, bytesOf("#!/bin/sh\n"), "none of the known formats"},
        {Format::BINARY, longDump, "0x1A98 lies beyond 0x1A97"},
        {Format::BINARY, gapDump, "0x000C lies between two interrupt vectors"},
        {Format::BINARY, otherReset, "0x31 at 0x0002, but the vector at 0x0000"},
        {Format::BINARY, first(dumpWith({}), 0x2D), "nothing at 0x002D"},
        {Format::AUTO, bytesOf(IDLE_HEX.substr(0, IDLE_HEX.size() - 12)), "no end record"},
        {Format::AUTO, bytesOf(hexWith(":01000B003242")), "line 1 has a wrong checksum"},
        {Format::AUTO, bytesOf(hexWith(":01000B0032C")), "line 1 has an odd number"},
        {Format::AUTO, bytesOf(hexWith(":01000B00G2C2")), "line 1 contains something"},
        {Format::AUTO, bytesOf(hexWith(":01")), "line 1 is too short"},
        {Format::AUTO, bytesOf(hexWith(":02000B0032C1")), "line 1 announces 2 data bytes but has 1"},
        {Format::AUTO, bytesOf(hexWith(":0100000632C7")), "line 1 has the unknown record type 6"},
        {Format::AUTO, bytesOf(hexWith(":01000004FFFC")), "line 1 is an address record of 1"},
        {Format::AUTO, bytesOf(hexWith(":01000B0033C1")), "0x000B is given twice, as 0x33 and as 0x32"},
        {Format::AUTO, bytesOf(hexWith(":011A9800321B")), "0x1A98 lies beyond 0x1A97"},
        {Format::AUTO, bytesOf(hexWith(":02000004FFFFFC\n:01FFFF0032CF")), "0xFFFFFFFF lies beyond"},
        {Format::AUTO, bytesOf(IDLE_HEX + ":01000B0032C2"), "line 10 follows the end record"},
        {Format::INTEL_HEX, bytesOf("S00600004844521B\n"), "line 1 does not start with a colon"},
        {Format::RECORDS, first(IDLE_RECORDS, 10), "record 2, at offset 7, does not end"},
        {Format::RECORDS, {4, 0, 0, 2, 0, 0x2E, 0x32, 0, 0, 0, 7}, "something follows the end mark at offset 7"},
        {Format::RECORDS, {1, 0x98, 0x1A, 0x00}, "record 1 is refused: a byte at 0x1A98"},
        {Format::TABLE, first(idleTable(), 18145), "has 18146 bytes, this has 18145"},
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
    uint64_t state = 1;
    const auto random = [&state](size_t below) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        return static_cast<size_t>(state >> 33) % below;
    };
    for (const Bytes& sound : {bytesOf(IDLE_HEX), IDLE_RECORDS, dumpWith(IDLE_CODE), idleTable()}) {
        for (int round = 0; round < 500; ++round) {
            Bytes input = sound;
            input.resize(random(4) == 0 ? random(input.size() + 1) : input.size());
            for (size_t damage = random(4); damage > 0 && !input.empty(); --damage)
                input[random(input.size())] = static_cast<uint8_t>(random(256));
            const Result<Table> result = pack(input, Format::AUTO);
            ASSERT_EQ(result.value().size(), result.ok() ? 18146u : 0u);
        }
    }
}

struct Record {
    size_t address = 0;
    Bytes data;
};

/// The first stream of a table, walked independently of the packer.
std::vector<Record> recordsOf(const Table& table)
{
    std::vector<Record> records;
    for (size_t at = 0; table.at(at) != 0; at += 3u + table[at]) {
        const auto data = table.begin() + static_cast<ptrdiff_t>(at) + 3;
        records.push_back({table.at(at + 1) + table.at(at + 2) * size_t{256}, Bytes(data, data + table[at])});
    }
    return records;
}

TEST(PackedTable, HasEveryFigureOfTheLayout)
{
    const Table table = idleTable();
    ASSERT_EQ(table.size(), 18146u);
    EXPECT_EQ(first(table, 3, 9071), Bytes(3, 0)) << "end mark";
    EXPECT_EQ(first(table, 9071), first(table, 9071, 9074)) << "second copy";
    EXPECT_EQ(table[18145], 0) << "last byte";

    const std::vector<Record> records = recordsOf(table);
    std::map<size_t, int> lengths;
    std::set<size_t> loaded;
    for (const Record& record : records) {
        ++lengths[record.data.size()];
        for (size_t i = 0; i < record.data.size(); ++i)
            EXPECT_TRUE(loaded.insert(record.address + i).second) << "twice: " << record.address + i;
    }
    EXPECT_EQ(lengths, (std::map<size_t, int>{{1, 4}, {3, 1}, {4, 1}, {8, 643}, {9, 4}, {14, 113}}));
    EXPECT_EQ(loaded.size(), 6773u);
    EXPECT_EQ(*loaded.rbegin(), 0x1A97u);

    // The vectors, then the upper half, then the lower one.
    EXPECT_EQ(first(table, 32),
              (Bytes{4,    0x00, 0x00, 0x02, 0x00, 0x2E, 0x32, 1, 0x0B, 0x00, 0x32, 1,    0x13, 0x00, 0x32, 1,
                     0x1B, 0x00, 0x32, 1,    0x23, 0x00, 0x32, 3, 0x2B, 0x00, 0x02, 0x00, 0x30, 8,    0xB8, 0x0E}));
    EXPECT_EQ(records[6 + 379].address, 0x1A90u);
    EXPECT_EQ(records[6 + 380].address, 0x002Eu);
    EXPECT_EQ(first(records[6 + 380].data, 6), (Bytes{0x80, 0xFE, 0x32, 0x02, 0x00, 0x00}));
    EXPECT_EQ(records.back().address, 0x0EB0u);
}

TEST(BuiltTable, IsWhatThePackerMakes)
{
    const Result<Table> table = pack(readFile(BUILT_FROM_FILE), Format::AUTO);
    ASSERT_TRUE(table.ok()) << table.error();
    EXPECT_EQ(Bytes(std::begin(FIRMWARE), std::end(FIRMWARE)), table.value());
}

}  // namespace
}  // namespace firmware
