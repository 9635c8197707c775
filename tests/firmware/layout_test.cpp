// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <map>

#include "packer/table.h"
#include "programs.h"
#include "vornccd.h"

namespace firmware {
namespace {

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

Bytes slice(const Bytes& bytes, size_t from, size_t length)
{
    return {bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(from + length)};
}

Table packedIdle()
{
    return pack(dumpWith(IDLE_CODE), Format::BINARY).value();
}

TEST(PackedTable, HasEveryFigureOfTheLayout)
{
    const Table table = packedIdle();
    ASSERT_EQ(table.size(), 18146u);
    EXPECT_EQ(slice(table, 9071, 3), Bytes(3, 0)) << "end mark";
    EXPECT_EQ(slice(table, 0, 9071), slice(table, 9074, 9071)) << "second copy";
    EXPECT_EQ(table[18145], 0) << "last byte";

    const std::vector<Record> records = recordsOf(table);
    std::map<size_t, int> lengths;
    std::map<size_t, int> loads;
    for (const Record& record : records) {
        ++lengths[record.data.size()];
        for (size_t i = 0; i < record.data.size(); ++i)
            ++loads[record.address + i];
    }
    EXPECT_EQ(records.size(), 766u);
    EXPECT_EQ(lengths, (std::map<size_t, int>{{1, 4}, {3, 1}, {4, 1}, {8, 643}, {9, 4}, {14, 113}}));
    EXPECT_EQ(loads.size(), 6773u);
    EXPECT_EQ(loads.rbegin()->first, 0x1A97u);
    EXPECT_TRUE(std::all_of(loads.begin(), loads.end(), [](const auto& load) { return load.second == 1; }));
}

TEST(PackedTable, StartsWithTheVectorsThenTheUpperHalf)
{
    const Table table = packedIdle();
    EXPECT_EQ(slice(table, 0, 32),
              (Bytes{4,    0x00, 0x00, 0x02, 0x00, 0x2E, 0x32, 1, 0x0B, 0x00, 0x32, 1,    0x13, 0x00, 0x32, 1,
                     0x1B, 0x00, 0x32, 1,    0x23, 0x00, 0x32, 3, 0x2B, 0x00, 0x02, 0x00, 0x30, 8,    0xB8, 0x0E}));
    const std::vector<Record> records = recordsOf(table);
    EXPECT_EQ(records[6 + 379].address, 0x1A90u) << "end of the upper half";
    EXPECT_EQ(records[6 + 380].address, 0x002Eu) << "start of the lower half";
    EXPECT_EQ(slice(records[6 + 380].data, 0, 6), (Bytes{0x80, 0xFE, 0x32, 0x02, 0x00, 0x00}));
    EXPECT_EQ(records.back().address, 0x0EB0u);
}

TEST(Padding, EveryStrayJumpRestartsTheProgram)
{
    // Gaps of 1 to 5 bytes between the bytes A5, then the rest of the memory.
    Image image;
    Bytes defined;
    size_t address = 0x2E;
    for (size_t gap = 1; gap <= 5; ++gap) {
        EXPECT_EQ(image.define(address, 0xA5), "");
        address += gap + 1;
    }
    EXPECT_EQ(image.define(address, 0xA5), "");
    image.fillWithRestarts();
    const Bytes expected = {0xA5, 0x00, 0xA5, 0x00, 0x00, 0xA5, 0x02, 0x00, 0x00, 0xA5, 0x00,
                            0x02, 0x00, 0x00, 0xA5, 0x00, 0x00, 0x02, 0x00, 0x00, 0xA5};
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(image.at(0x2E + i), expected[i]) << i;

    // Execute the rest from each of its bytes but the last jump's operand: 00 is no operation, 02 00 00 the jump.
    for (size_t start = address + 1; start < IMAGE_LENGTH - 2; ++start) {
        size_t counter = start;
        while (counter < IMAGE_LENGTH && image.at(counter) == 0x00)
            ++counter;
        ASSERT_LE(counter + 2, IMAGE_LENGTH - 1) << start;
        ASSERT_TRUE(image.at(counter) == 0x02 && image.at(counter + 1) == 0 && image.at(counter + 2) == 0) << start;
    }
}

TEST(StandIn, SaysWhatItIs)
{
    const Result<Table> table = pack(readFile(STANDIN_FILE), Format::AUTO);
    ASSERT_TRUE(table.ok()) << table.error();
    std::string memory(IMAGE_LENGTH, '\0');
    for (const Record& record : recordsOf(table.value()))
        std::copy(record.data.begin(), record.data.end(), memory.begin() + static_cast<ptrdiff_t>(record.address));
    EXPECT_THAT(memory, testing::HasSubstr("libvornccd stand-in image: idles, no bridge functions; "
                                           "build with -DVORNCCD_FIRMWARE=<file>"));
}

TEST(BuiltTable, IsWhatThePackerMakes)
{
    const Result<Table> table = pack(readFile(BUILT_FROM_FILE), Format::AUTO);
    ASSERT_TRUE(table.ok()) << table.error();
    EXPECT_EQ(Bytes(std::begin(FIRMWARE), std::end(FIRMWARE)), table.value());
}

}  // namespace
}  // namespace firmware
