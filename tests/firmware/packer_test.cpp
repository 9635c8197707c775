// SPDX-License-Identifier: MIT
#include "packer/table.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "command_result.h"
#include "vornccd.h"

namespace firmware {
namespace {

using testing::HasSubstr;

using Bytes = std::vector<uint8_t>;

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

Bytes readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A dump of a program with its vectors and @p code at 0x002E; unused bytes between the vectors are 0xFF.
Bytes dumpWith(const Bytes& code)
{
    Bytes dump(0x2E, 0xFF);
    const std::pair<ptrdiff_t, Bytes> vectors[] = {
        {0x00, {0x02, 0x00, 0x2E, 0x32}}, {0x0B, {0x32}}, {0x13, {0x32}}, {0x1B, {0x32}}, {0x23, {0x32}},
        {0x2B, {0x02, 0x00, 0x30}}};
    for (const auto& [address, bytes] : vectors)
        std::copy(bytes.begin(), bytes.end(), dump.begin() + address);
    dump.insert(dump.end(), code.begin(), code.end());
    return dump;
}

/// `boot: sjmp boot`, `tick: reti`.
const Bytes IDLE_CODE = {0x80, 0xFE, 0x32};

/// The same program, written by hand in the other formats.
const std::string IDLE_HEX =
    ":0400000002002E329A\r\n"
    ":01000B0032C2\n:0100130032BA\n:01001B0032B2\n:0100230032AA\n\n"
    ":03002B00020030A0\n"
    ":03002E0080FE321F\n"
    ":00000001FF\n";
const Bytes IDLE_RECORDS = {4,    0x00, 0x00, 0x02, 0x00, 0x2E, 0x32, 1,    0x0B, 0x00, 0x32, 1,    0x13,
                            0x00, 0x32, 1,    0x1B, 0x00, 0x32, 1,    0x23, 0x00, 0x32, 3,    0x2B, 0x00,
                            0x02, 0x00, 0x30, 3,    0x2E, 0x00, 0x80, 0xFE, 0x32, 0,    0,    0};

Bytes first(const Bytes& bytes, size_t length, size_t from = 0)
{
    return {bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(from + length)};
}

const Bytes IDLE_TABLE = pack(dumpWith(IDLE_CODE), Format::BINARY).value();

TEST(Pack, SameProgramGivesTheSameTableFromEveryFormat)
{
    Bytes paddedDump = dumpWith(IDLE_CODE);
    paddedDump[0x05] = 0x00;
    const std::pair<const char*, Bytes> cases[] = {
        {"memory dump with zeros between the vectors", paddedDump},
        {"Intel HEX with start and base addresses",
         bytesOf(":020000040000FA\n:020000020000FC\n:0400000500000000F7\n" + IDLE_HEX)},
        {"records", IDLE_RECORDS},
        {"records without an end mark", first(IDLE_RECORDS, IDLE_RECORDS.size() - 3)},
        {"the table's own first stream", first(IDLE_TABLE, 9072)},
        {"the table", IDLE_TABLE},
    };
    for (const auto& [label, input] : cases) {
        const Result<Table> result = pack(input, Format::AUTO);
        EXPECT_TRUE(result.value() == IDLE_TABLE) << label << ": " << result.error();
    }
    const Bytes fullDump = dumpWith(Bytes(IMAGE_LENGTH - 0x2E, 0x5A));
    Bytes flashDump = fullDump;
    flashDump.resize(0x2000, 0xFF);
    EXPECT_EQ(pack(fullDump, Format::AUTO).error(), "") << "the largest program";
    EXPECT_TRUE(pack(flashDump, Format::AUTO).value() == pack(fullDump, Format::AUTO).value());
}

TEST(Pack, FinishedWorkIsNotLaidOutAnew)
{
    // Another order and other values stay as they are: here the timer 0 and interrupt 1 vectors are exchanged.
    Bytes odd = IDLE_TABLE;
    odd[18000] = 0xEE;
    std::swap_ranges(odd.begin() + 7, odd.begin() + 11, odd.begin() + 11);
    EXPECT_TRUE(pack(odd, Format::TABLE).value() == odd);
    EXPECT_TRUE(first(pack(first(odd, 9071), Format::RECORDS).value(), 9071) == first(odd, 9071));
}

TEST(Pack, RefusesWithOneClearLine)
{
    Bytes longDump = dumpWith(Bytes(IMAGE_LENGTH - 0x2E + 1, 0x5A));
    Bytes gapDump = dumpWith(IDLE_CODE);
    gapDump[0x0C] = 0x12;
    Bytes otherReset = dumpWith(IDLE_CODE);
    otherReset[2] = 0x31;
    const auto hexWith = [](const char* line) { return bytesOf(line + ("\n" + IDLE_HEX)); };
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
        {Format::AUTO, hexWith(":01000B003242"), "line 1 has a wrong checksum"},
        {Format::AUTO, hexWith(":01000B0032C"), "line 1 has an odd number"},
        {Format::AUTO, hexWith(":01000B00G2C2"), "line 1 contains something"},
        {Format::AUTO, hexWith(":01"), "line 1 is too short"},
        {Format::AUTO, hexWith(":02000B0032C1"), "line 1 announces 2 data bytes but has 1"},
        {Format::AUTO, hexWith(":0100000632C7"), "line 1 has the unknown record type 6"},
        {Format::AUTO, hexWith(":01000004FFFC"), "line 1 is an address record of 1"},
        {Format::AUTO, hexWith(":01000B0033C1"), "0x000B is given twice, as 0x33 and as 0x32"},
        {Format::AUTO, hexWith(":011A9800321B"), "0x1A98 lies beyond 0x1A97"},
        {Format::AUTO, hexWith(":02000004FFFFFC\n:01FFFF0032CF"), "0xFFFFFFFF lies beyond"},
        {Format::AUTO, bytesOf(IDLE_HEX + ":01000B0032C2"), "line 10 follows the end record"},
        {Format::INTEL_HEX, bytesOf("S00600004844521B\n"), "line 1 does not start with a colon"},
        {Format::RECORDS, first(IDLE_RECORDS, 10), "record 2, at offset 7, does not end"},
        {Format::RECORDS, {4, 0, 0, 2, 0, 0x2E, 0x32, 0, 0, 0, 7}, "something follows the end mark at offset 7"},
        {Format::RECORDS, {1, 0x98, 0x1A, 0x00}, "record 1 is refused: a byte at 0x1A98"},
        {Format::TABLE, first(IDLE_TABLE, 18145), "has 18146 bytes, this has 18145"},
        {Format::TABLE, endless, "run past the end of the table after record 422"},
    };
    for (const auto& c : cases) {
        const Result<Table> result = pack(c.input, c.format);
        EXPECT_FALSE(result.ok()) << c.message;
        EXPECT_THAT(result.error(), HasSubstr(c.message));
        EXPECT_EQ(result.error().find('\n'), std::string::npos) << c.message;
    }
}

TEST(PackedTable, HasEveryFigureOfTheLayout)
{
    const Table& table = IDLE_TABLE;
    ASSERT_EQ(table.size(), 18146u);
    EXPECT_EQ(first(table, 3, 9071), Bytes(3, 0)) << "end mark";
    EXPECT_EQ(first(table, 9071), first(table, 9071, 9074)) << "second copy";
    EXPECT_EQ(table[18145], 0) << "last byte";

    std::vector<std::pair<size_t, Bytes>> records;  // address and data, the first stream walked without the packer
    std::map<size_t, int> lengths;
    std::set<size_t> loaded;
    for (size_t at = 0; table.at(at) != 0; at += 3u + table[at]) {
        records.emplace_back(table.at(at + 1) + table.at(at + 2) * size_t{256}, first(table, table[at], at + 3));
        ++lengths[table[at]];
        for (size_t i = 0; i < table[at]; ++i)
            loaded.insert(records.back().first + i);
    }
    EXPECT_EQ(lengths, (std::map<size_t, int>{{1, 4}, {3, 1}, {4, 1}, {8, 643}, {9, 4}, {14, 113}}));
    EXPECT_EQ(loaded.size(), 6773u) << "as many as these lengths add up to: none is loaded twice";
    EXPECT_EQ(*loaded.rbegin(), 0x1A97u);

    // The vectors, then the upper half, then the lower one.
    EXPECT_EQ(first(table, 29), first(IDLE_RECORDS, 29));
    EXPECT_EQ(records[6].first, 0x0EB8u);
    EXPECT_EQ(records[6 + 379].first, 0x1A90u);
    EXPECT_EQ(records[6 + 380].first, 0x002Eu);
    EXPECT_EQ(first(records[6 + 380].second, 6), (Bytes{0x80, 0xFE, 0x32, 0x02, 0x00, 0x00}));
    EXPECT_EQ(records.back().first, 0x0EB0u);
}

TEST(BuiltTable, IsWhatThePackerMakes)
{
    const Bytes built(std::begin(FIRMWARE), std::end(FIRMWARE));
    if (*BUILT_FROM_FILE != '\0') {
        EXPECT_EQ(built, pack(readFile(BUILT_FROM_FILE), Format::AUTO).value());
        return;
    }
    // Our own: its records make an image that packs into the same table, and that says what it is.
    EXPECT_EQ(built, packImage(parseRecordStream(first(built, 9071)).value()).value());
    std::string program;
    for (size_t at = 0; built.at(at) != 0; at += 3u + built[at])
        for (const uint8_t byte : first(built, built[at], at + 3))
            program.push_back(static_cast<char>(byte));
    EXPECT_NE(program.find("libvornccd bridge program 1: a free replacement"), std::string::npos);
}

/// A directory of its own, with programs good and bad.
struct PackCommand : testing::Test {
    PackCommand()
    {
        char name[] = "/tmp/pack-firmware-XXXXXX";
        directory = mkdtemp(name);
        put("good.hex", IDLE_HEX);
        put("bad.hex", IDLE_HEX.substr(0, 30));
        put("large.bin", std::string(1'100'000, '\2'));
    }
    ~PackCommand() override { std::filesystem::remove_all(directory); }

    void put(const char* name, const std::string& content) const { std::ofstream(directory / name) << content; }

    vornsim::test::CommandResult run(const std::string& arguments) const
    {
        return vornsim::test::runShell("cd " + directory.string() + " && " PACK_COMMAND " " + arguments);
    }

    auto fileCount() const { return std::distance(std::filesystem::directory_iterator(directory), {}); }

    std::filesystem::path directory;
};

TEST_F(PackCommand, WritesWhatWasAskedFor)
{
    EXPECT_EQ(run("good.hex -o table.cpp --binary-out table.bin && echo silent").output, "silent\n");
    EXPECT_EQ(readFile(directory / "table.bin").size(), 18146u);
    EXPECT_EQ(run("table.bin --format table -o again.cpp --binary-out again.bin").exitStatus, 0);
    EXPECT_TRUE(readFile(directory / "again.bin") == readFile(directory / "table.bin"));
    EXPECT_EQ(fileCount(), 3 + 4) << "no temporary file stays";
}

TEST_F(PackCommand, RefusesWithoutTouchingTheOutput)
{
    put("old.cpp", "old");
    std::filesystem::create_directory(directory / "taken");
    const struct {
        const char* arguments;
        int status;
        const char* message;
    } cases[] = {
        {"--help", 0, "Examples:"},
        {"", 2, "INPUT"},
        {"good.hex", 2, "-o or --binary-out"},
        {"good.hex -o old.cpp --binary-out old.cpp", 2, "another file"},
        {"good.hex -o old.cpp --colour", 2, "--colour"},
        {"good.hex -o old.cpp --format records", 1, "good.hex: record"},
        {"bad.hex -o old.cpp", 1, "bad.hex: line 2"},
        {"none.hex -o old.cpp", 1, "none.hex: cannot read: No such file"},
        {". -o old.cpp", 1, ".: cannot read: it is a directory"},
        {"large.bin -o old.cpp", 1, "large.bin: the file is larger than 1 MiB"},
        {"good.hex -o old.cpp --binary-out nowhere/table.bin", 1, "nowhere/table.bin: cannot write: No such file"},
        {"good.hex -o taken", 1, "taken: cannot put in place: Is a directory"},
    };
    const auto before = fileCount();
    for (const auto& c : cases) {
        const auto outcome = run(c.arguments);
        EXPECT_EQ(outcome.exitStatus, c.status) << c.arguments;
        EXPECT_THAT(outcome.output, HasSubstr(c.message)) << c.arguments;
        EXPECT_TRUE(c.status != 1 || std::ranges::count(outcome.output, '\n') == 1) << c.arguments;
        EXPECT_EQ(readFile(directory / "old.cpp"), bytesOf("old")) << c.arguments;
        EXPECT_EQ(fileCount(), before) << c.arguments;
    }
}

}  // namespace
}  // namespace firmware
