// SPDX-License-Identifier: MIT
#include "intel_hex.h"

#include <numeric>
#include <vector>

#include "text.h"

namespace firmware {

namespace {

// | Offset | Size | Meaning                                |
// |--------|------|----------------------------------------|
// | 0      | 1    | data length L                          |
// | 1      | 2    | address, high byte first               |
// | 3      | 1    | record type                            |
// | 4      | L    | data                                   |
// | 4 + L  | 1    | makes the sum of all bytes 0 (mod 256) |
constexpr size_t DATA = 4;
constexpr size_t SHORTEST_RECORD = 5;

enum RecordType : uint8_t {
    HEX_DATA = 0,
    HEX_END = 1,
    HEX_SEGMENT = 2,        // data: paragraph number, 16 bytes each
    HEX_START_SEGMENT = 3,  // data: CS, IP
    HEX_LINEAR = 4,         // data: upper half of the address
    HEX_START_LINEAR = 5,   // data: EIP
};

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

/// Decodes the digits of one line, checks length and sum. @return an empty string or what is wrong.
std::string decodeLine(std::string_view line, std::vector<uint8_t>& record)
{
    record.clear();
    if (line.front() != ':')
        return "does not start with a colon; is this an Intel HEX file?";
    line.remove_prefix(1);
    if (line.size() % 2 != 0)
        return "has an odd number of digits; the file may be cut off";
    for (size_t i = 0; i < line.size(); i += 2) {
        const int high = hexDigit(line[i]);
        const int low = hexDigit(line[i + 1]);
        if (high < 0 || low < 0)
            return "contains something that is no hexadecimal digit";
        record.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    if (record.size() < SHORTEST_RECORD)
        return "is too short for a record; the file may be cut off";
    if (record.size() != SHORTEST_RECORD + record[0])
        return format("announces %u data bytes but has %zu; the file is damaged", unsigned{record[0]},
                      record.size() - SHORTEST_RECORD);
    if (std::accumulate(record.begin(), record.end(), 0u) % 256 != 0)
        return "has a wrong checksum; the file is damaged, get it again";
    return {};
}

/// State of a file that is being read line by line.
class HexReader {
public:
    /// Takes one record. @return an empty string or what is wrong.
    std::string take(const std::vector<uint8_t>& record)
    {
        if (ended_)
            return "follows the end record; are two files joined?";
        const size_t length = record[0];
        const uint64_t offset = record[1] * 256u + record[2];
        switch (record[3]) {
            case HEX_DATA:
                return takeData(record, length, offset);
            case HEX_END:
                ended_ = true;
                return {};
            case HEX_SEGMENT:
            case HEX_LINEAR:
                if (length != 2)
                    return format("is an address record of %zu instead of 2 bytes; the file is damaged", length);
                base_ = (record[DATA] * 256u + record[DATA + 1]) * (record[3] == HEX_LINEAR ? uint64_t{0x10000} : 16u);
                return {};
            case HEX_START_SEGMENT:
            case HEX_START_LINEAR:
                return {};
            default:
                return format("has the unknown record type %u", unsigned{record[3]});
        }
    }

    bool ended() const { return ended_; }
    const Image& image() const { return image_; }

private:
    std::string takeData(const std::vector<uint8_t>& record, size_t length, uint64_t offset)
    {
        for (size_t i = 0; i < length; ++i) {
            const std::string error = image_.define(base_ + offset + i, record[DATA + i]);
            if (!error.empty())
                return "is refused: " + error;
        }
        return {};
    }

    Image image_;
    uint64_t base_ = 0;
    bool ended_ = false;
};

}  // namespace

Result<Image> parseIntelHex(std::string_view text)
{
    HexReader reader;
    std::vector<uint8_t> record;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
            line.remove_suffix(1);
        if (line.empty())
            continue;
        std::string error = decodeLine(line, record);
        if (error.empty())
            error = reader.take(record);
        if (!error.empty())
            return Result<Image>::failure(format("line %zu ", number) + error);
    }
    if (!reader.ended())
        return Result<Image>::failure("there is no end record; the file is cut off, get it again");
    return reader.image();
}

}  // namespace firmware
