// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

/// Small bridge programs for the packer's tests.
namespace firmware {

using Bytes = std::vector<uint8_t>;

inline Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline Bytes readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A dump of a program with its vectors and @p code at 0x002E; unused bytes between the vectors are 0xFF.
inline Bytes dumpWith(const Bytes& code)
{
    Bytes dump(0x2E, 0xFF);
    const Bytes reset = {0x02, 0x00, 0x2E, 0x32};
    std::copy(reset.begin(), reset.end(), dump.begin());
    for (const size_t vector : {0x0Bu, 0x13u, 0x1Bu, 0x23u})
        dump[vector] = 0x32;
    const Bytes timer = {0x02, 0x00, 0x30};
    std::copy(timer.begin(), timer.end(), dump.begin() + 0x2B);
    dump.insert(dump.end(), code.begin(), code.end());
    return dump;
}

/// `boot: sjmp boot`, `tick: reti`.
inline const Bytes IDLE_CODE = {0x80, 0xFE, 0x32};

/// The same program, written by hand in the other formats.
inline const std::string IDLE_HEX =
    ":0400000002002E329A\r\n"
    ":01000B0032C2\n:0100130032BA\n:01001B0032B2\n:0100230032AA\n\n"
    ":03002B00020030A0\n"
    ":03002E0080FE321F\n"
    ":00000001FF\n";
inline const Bytes IDLE_RECORDS = {4,    0x00, 0x00, 0x02, 0x00, 0x2E, 0x32, 1,    0x0B, 0x00, 0x32, 1,    0x13,
                                   0x00, 0x32, 1,    0x1B, 0x00, 0x32, 1,    0x23, 0x00, 0x32, 3,    0x2B, 0x00,
                                   0x02, 0x00, 0x30, 3,    0x2E, 0x00, 0x80, 0xFE, 0x32, 0,    0,    0};

}  // namespace firmware
