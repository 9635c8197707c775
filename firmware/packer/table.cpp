// SPDX-License-Identifier: MIT
#include "table.h"

#include <algorithm>
#include <string_view>

#include "intel_hex.h"
#include "text.h"

namespace firmware {

namespace {

constexpr size_t RECORD_HEADER = 3;

struct Block {
    size_t address = 0;
    size_t length = 0;
};

/// Cuts the code behind the vectors into 760 blocks, in order of address.
std::vector<Block> codeBlocks()
{
    struct Run {
        size_t count;
        size_t length;
    };
    constexpr std::array<Run, 3> RUNS = {{{113, 14}, {4, 9}, {643, 8}}};
    static_assert(CODE_START + size_t{113} * 14 + size_t{4} * 9 + size_t{643} * 8 == IMAGE_LENGTH);
    static_assert(VECTORS.size() + 113 + 4 + 643 == RECORD_COUNT);
    std::vector<Block> blocks;
    size_t address = CODE_START;
    for (const Run& run : RUNS) {
        for (size_t n = 0; n < run.count; ++n) {
            blocks.push_back({address, run.length});
            address += run.length;
        }
    }
    return blocks;
}

void appendRecord(const Image& image, const Block& block, Table& stream)
{
    stream.push_back(static_cast<uint8_t>(block.length));
    stream.push_back(static_cast<uint8_t>(block.address & 0xFF));
    stream.push_back(static_cast<uint8_t>(block.address >> 8));
    for (size_t i = 0; i < block.length; ++i)
        stream.push_back(image.at(block.address + i));
}

/// Makes the table of a stream of STREAM_LENGTH bytes without an end mark.
Table doubled(std::span<const uint8_t> stream)
{
    Table table(stream.begin(), stream.end());
    table.insert(table.end(), END_MARK_LENGTH, uint8_t{0});
    table.insert(table.end(), stream.begin(), stream.end());
    table.push_back(0);
    return table;
}

/// What a walk over load records finds.
struct StreamShape {
    size_t recordCount = 0;
    size_t length = 0;      // of all whole records
    bool complete = false;  // ends with an end mark or exactly at the end of the bytes
    bool endMark = false;
};

/// Walks over the records of @p bytes and shows each to @p visit(address, data) until that returns false.
template <typename Visit>
StreamShape walkRecords(std::span<const uint8_t> bytes, Visit visit)
{
    StreamShape shape;
    while (shape.length < bytes.size()) {
        const std::span<const uint8_t> rest = bytes.subspan(shape.length);
        if (rest[0] == 0) {
            shape.endMark = true;
            break;
        }
        const size_t length = RECORD_HEADER + rest[0];
        if (rest.size() < length)
            return shape;
        if (!visit(size_t{rest[1]} + rest[2] * size_t{256}, rest.subspan(RECORD_HEADER, rest[0])))
            return shape;
        shape.length += length;
        ++shape.recordCount;
    }
    shape.complete = true;
    return shape;
}

StreamShape shapeOf(std::span<const uint8_t> bytes)
{
    return walkRecords(bytes, [](size_t, std::span<const uint8_t>) { return true; });
}

template <typename Value>
Result<Table> packed(const Result<Value>& image)
{
    return image.ok() ? packImage(image.value()) : Result<Table>::failure(image.error());
}

Result<Table> packRecords(std::span<const uint8_t> bytes)
{
    const Result<Image> image = parseRecordStream(bytes);
    const StreamShape shape = shapeOf(bytes);
    if (image.ok() && shape.recordCount == RECORD_COUNT && shape.length == STREAM_LENGTH)
        return doubled(bytes.first(STREAM_LENGTH));
    return packed(image);
}

}  // namespace

Format detectFormat(std::span<const uint8_t> bytes)
{
    constexpr std::array<uint8_t, 3> RESET_RECORD = {4, 0x00, 0x00};
    constexpr uint8_t LJMP = 0x02;
    const auto text = std::find_if(bytes.begin(), bytes.end(),
                                   [](uint8_t c) { return c != ' ' && c != '\t' && c != '\r' && c != '\n'; });
    if (text != bytes.end() && *text == ':')
        return Format::INTEL_HEX;
    if (bytes.size() == TABLE_LENGTH)
        return Format::TABLE;
    if (bytes.size() >= RESET_RECORD.size() && std::equal(RESET_RECORD.begin(), RESET_RECORD.end(), bytes.begin()))
        return Format::RECORDS;
    if (!bytes.empty() && bytes[0] == LJMP)
        return Format::BINARY;
    return Format::AUTO;
}

Result<Image> parseRecordStream(std::span<const uint8_t> bytes)
{
    Image image;
    std::string error;
    size_t number = 0;
    const StreamShape shape = walkRecords(bytes, [&](size_t address, std::span<const uint8_t> data) {
        ++number;
        for (size_t i = 0; i < data.size() && error.empty(); ++i)
            error = image.define(address + i, data[i]);
        return error.empty();
    });
    if (!error.empty())
        return Result<Image>::failure(format("record %zu is refused: ", number) + error);
    if (!shape.complete)
        return Result<Image>::failure(format(
            "record %zu, at offset %zu, does not end inside the input; it is cut off, or these are no load records",
            shape.recordCount + 1, shape.length));
    const auto rest = bytes.subspan(shape.length);
    if (std::any_of(rest.begin(), rest.end(), [](uint8_t value) { return value != 0; }))
        return Result<Image>::failure(
            format("something follows the end mark at offset %zu; give one stream of load records", shape.length));
    return image;
}

Result<Table> packImage(const Image& image)
{
    const std::string error = image.checkVectors();
    if (!error.empty())
        return Result<Table>::failure(error);
    Image filled = image;
    filled.fillWithRestarts();

    Table stream;
    for (const Vector& vector : VECTORS)
        appendRecord(filled, {vector.address, vector.length}, stream);
    std::vector<Block> blocks = codeBlocks();
    std::rotate(blocks.begin(), blocks.begin() + static_cast<ptrdiff_t>(blocks.size() / 2), blocks.end());
    for (const Block& block : blocks)
        appendRecord(filled, block, stream);
    return doubled(stream);
}

Result<Table> acceptTable(std::span<const uint8_t> bytes)
{
    if (bytes.size() != TABLE_LENGTH)
        return Result<Table>::failure(
            format("a finished table has 18146 bytes, this has %zu; for a program that is "
                   "not yet a table use --format ihex, binary or records",
                   bytes.size()));
    const StreamShape shape = shapeOf(bytes);
    if (!shape.complete || !shape.endMark)
        return Result<Table>::failure(
            format("the load records run past the end of the table after record %zu; this "
                   "is no firmware table, or it is damaged",
                   shape.recordCount));
    return Table(bytes.begin(), bytes.end());
}

Result<Table> pack(std::span<const uint8_t> bytes, Format format)
{
    switch (format == Format::AUTO ? detectFormat(bytes) : format) {
        case Format::INTEL_HEX:
            return packed(parseIntelHex({reinterpret_cast<const char*>(bytes.data()), bytes.size()}));
        case Format::BINARY:
            return packed(parseBinary(bytes));
        case Format::RECORDS:
            return packRecords(bytes);
        case Format::TABLE:
            return acceptTable(bytes);
        case Format::AUTO:
            break;
    }
    return Result<Table>::failure(
        "the content looks like none of the known formats; if it is one, say which with "
        "--format ihex, binary, records or table");
}

std::string sourceText(const Table& table, const std::string& origin)
{
    constexpr size_t BYTES_A_ROW = 16;
    std::string name = origin;
    // Nothing in a file's name may end the comment or continue it on the next line.
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c < ' ' || c > '~' || c == '\\' || c == '?'; }, '_');
    std::string text = "// Made by vornccd-pack-firmware from " + name +
                       "; do not edit.\n// Two copies of the load records: length, address (low byte first), data.\n"
                       "#include \"vornccd.h\"\n\n";
    text += format("unsigned char FIRMWARE[%zu] = {", table.size());
    for (size_t i = 0; i < table.size(); ++i)
        text += format(i % BYTES_A_ROW == 0 ? "\n    0x%02X," : " 0x%02X,", unsigned{table[i]});
    text += "\n};\n";
    return text;
}

}  // namespace firmware
