// SPDX-License-Identifier: MIT
// The core of the emulated bridge chip: random programs compared with the 8051 simulator s51, and cycle counts.
#include "chip/mcs51.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace vornsim::test {
namespace {

using Bytes = std::vector<uint8_t>;

struct FlatMemory : Mcs51Surroundings {
    uint8_t readCode(uint16_t address) override { return code[address]; }
    uint8_t readData(uint16_t address) override { return data[address]; }
    void writeData(uint16_t address, uint8_t value) override { data[address] = value; }
    uint8_t readRegister(uint8_t address) override { return registers[address]; }
    void writeRegister(uint8_t address, uint8_t value) override { registers[address] = value; }

    Bytes code = Bytes(0x10000, 0), data = Bytes(0x10000, 0), registers = Bytes(0x100, 0);
};

// Where the parts of a program lie in its 2 KiB of code, and what it uses of external memory.
constexpr unsigned PROGRAM_LENGTH = 0x800, MAIN = 0x20, ROUTINES = 0x500, END = 0x600, CONSTANTS = 0x700;
constexpr unsigned ROUTINE_COUNT = 4, ROUTINE_LENGTH = 0x20;
constexpr unsigned DATA_PAGES = 0x20, RESULT_PAGES = 0x40;  // a page each for every program of an image

/// Code memory full of random programs of some 300 instructions, executed one after the other. Each leaves the final
/// content of internal memory and of the registers in a page of external memory. The stack is in the upper half of
/// internal memory; calls go to routines that leave indirectly addressed memory, and with it the stack, alone.
class RandomImage {
public:
    static constexpr unsigned PROGRAMS = 30;

    explicit RandomImage(unsigned seed) : random_(seed)
    {
        for (program_ = 0; program_ < PROGRAMS; ++program_)
            makeProgram(program_ * PROGRAM_LENGTH);
        stop = PROGRAMS * PROGRAM_LENGTH;
        put(stop, {0x80, 0xFE});
    }

    Bytes code = Bytes(0x10000, 0);
    unsigned stop = 0;  ///< address of the jump to itself after the last program

private:
    void makeProgram(unsigned base)
    {
        at_ = base;  // clear internal memory and the registers
        append({0x75, 0xD0, 0x00, 0x78, 0xFF, 0xE4, 0xF6, 0xD8, 0xFD, 0xF5, 0xF0, 0x90, 0x00, 0x00, 0x75, 0x81, 0xA0});
        append({0x80, static_cast<uint8_t>(base + MAIN - at_ - 2)});
        for (unsigned i = 0; i < 0x100; ++i)
            code[base + CONSTANTS + i] = any();
        for (unsigned n = 0; n < ROUTINE_COUNT; ++n) {
            at_ = base + ROUTINES + n * ROUTINE_LENGTH;
            for (int i = 0; i < 4; ++i)
                simple(false);
            append({0x22});
        }
        at_ = base + MAIN;
        while (at_ < base + ROUTINES - 0x40)
            instruction(base);
        append({0x02, static_cast<uint8_t>((base + END) >> 8), static_cast<uint8_t>(base + END)});
        at_ = base + END;
        append({0x75, 0x81, 0xF0, 0xC0, 0xE0, 0xC0, 0xD0, 0xC0, 0xF0, 0xC0, 0x82, 0xC0, 0x83});  // push registers
        append({0x90, static_cast<uint8_t>(RESULT_PAGES + program_), 0x00, 0xE5, 0x00, 0xF0, 0x78, 0x01});
        append({0xA3, 0xE6, 0xF0, 0x08, 0xB8, 0x00, 0xF9});  // copy internal memory, its first byte before
        append({0x02, static_cast<uint8_t>((base + PROGRAM_LENGTH) >> 8), static_cast<uint8_t>(base + PROGRAM_LENGTH)});
    }

    uint8_t any() { return static_cast<uint8_t>(random_()); }
    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }
    void put(unsigned address, const Bytes& bytes) { std::copy(bytes.begin(), bytes.end(), code.begin() + address); }
    void append(const Bytes& bytes)
    {
        put(at_, bytes);
        at_ += static_cast<unsigned>(bytes.size());
    }
    uint8_t direct()
    {
        constexpr uint8_t REGISTERS[] = {0xE0, 0xF0, 0x82, 0x83};
        return below(4) == 0 ? REGISTERS[below(4)] : static_cast<uint8_t>(below(0x80));
    }
    uint8_t bit()
    {
        constexpr uint8_t BASES[] = {0xE0, 0xF0, 0x00, 0x28, 0x50, 0x78};
        return below(8) == 0 ? uint8_t{0xD7} : static_cast<uint8_t>(BASES[below(6)] + below(8));
    }

    /// An instruction that goes on to the next. @param indirect it may write through R0 and R1
    void simple(bool indirect = true)
    {
        for (;;) {
            const uint8_t opcode = any();
            const unsigned row = opcode >> 4, low = opcode & 0xF;
            const bool writesIndirectly = (low == 6 || low == 7) && (row < 2 || row == 7 || row == 0xA || row > 0xB);
            if (low == 1 || opcode == 0xA5 || (writesIndirectly && !indirect))
                continue;
            if (low >= 6 && row != 0xB && !(row == 0xD && low >= 8)) {
                append({opcode});
                if (row == 7)
                    append({any()});
                else if (row == 8 || row == 0xA)
                    append({direct()});
                return;
            }
            switch (opcode) {
                case 0x00:
                case 0x03:
                case 0x13:
                case 0x23:
                case 0x33:
                case 0x04:
                case 0x14:
                case 0xC4:
                case 0xD4:
                case 0xE4:
                case 0xF4:
                case 0xA3:
                case 0xA4:
                case 0xB3:
                case 0xC3:
                case 0xD3:
                    return append({opcode});
                case 0x84:
                    return append({0x75, 0xF0, static_cast<uint8_t>(1 + below(255)), opcode});  // not by 0
                case 0x24:
                case 0x34:
                case 0x44:
                case 0x54:
                case 0x64:
                case 0x94:
                case 0x74:
                    return append({opcode, any()});
                case 0x05:
                case 0x15:
                case 0x25:
                case 0x35:
                case 0x45:
                case 0x55:
                case 0x65:
                case 0x95:
                case 0xC5:
                case 0xE5:
                case 0xF5:
                case 0x42:
                case 0x52:
                case 0x62:
                    return append({opcode, direct()});
                case 0x43:
                case 0x53:
                case 0x63:
                case 0x75:
                    return append({opcode, direct(), any()});
                case 0x85:
                    return append({opcode, direct(), direct()});
                case 0x90:
                    return append({opcode, any(), any()});
                case 0x72:
                case 0x82:
                case 0xA0:
                case 0xB0:
                case 0x92:
                case 0xA2:
                case 0xB2:
                case 0xC2:
                case 0xD2:
                    return append({opcode, bit()});
                case 0x93:
                    return append(
                        {0x90, static_cast<uint8_t>((program_ * PROGRAM_LENGTH + CONSTANTS) >> 8), 0, opcode});
                case 0x83:
                    return append({0x54,  0x0F,  opcode, 0x80,  0x10,  // the 16 bytes after a jump over them
                                   any(), any(), any(),  any(), any(), any(), any(), any(),
                                   any(), any(), any(),  any(), any(), any(), any(), any()});
                case 0xE0:
                case 0xF0:
                    return append({0x90, static_cast<uint8_t>(DATA_PAGES + program_), any(), opcode});
                default:
                    break;
            }
        }
    }

    void instruction(unsigned base)
    {
        const unsigned routine = base + ROUTINES + below(ROUTINE_COUNT) * ROUTINE_LENGTH;
        const auto low = static_cast<uint8_t>(routine & 0xFF);
        switch (below(16)) {
            case 0:
                return append({0xC0, direct(), 0xD0, direct()});
            case 1:
                return append({0x12, static_cast<uint8_t>(routine >> 8), low});
            case 2:
                return append({static_cast<uint8_t>((routine >> 8 & 7) << 5 | 0x11), low});
            case 3: {
                const unsigned next = at_ + 6;  // jump to what follows by way of the accumulator
                const uint8_t a = any();
                return append(
                    {0x90, static_cast<uint8_t>((next - a) >> 8), static_cast<uint8_t>(next - a), 0x74, a, 0x73});
            }
            case 4:
            case 5:
            case 6: {
                // A conditional jump over one instruction.
                const std::vector<Bytes> jumps = {
                    {0x10, bit()}, {0x20, bit()}, {0x30, bit()},    {0x40},        {0x50},
                    {0x60},        {0x70},        {0x80},           {0xB4, any()}, {0xB5, direct()},
                    {0xB6, any()}, {0xBA, any()}, {0xD5, direct()}, {0xDB}};
                append(jumps[below(static_cast<unsigned>(jumps.size()))]);
                const unsigned distance = at_;
                append({0});
                simple();
                code[distance] = static_cast<uint8_t>(at_ - distance - 1);
                return;
            }
            case 7: {
                const unsigned next = at_ + (below(2) != 0 ? 3 : 2);
                if (next == at_ + 3)
                    append({0x02, static_cast<uint8_t>(next >> 8), static_cast<uint8_t>(next)});
                else
                    append({static_cast<uint8_t>((next >> 8 & 7) << 5 | 0x01), static_cast<uint8_t>(next)});
                return;
            }
            default:
                return simple();
        }
    }

    std::mt19937 random_;
    unsigned program_ = 0;
    unsigned at_ = 0;
};

/// @return an Intel HEX file of 64 KiB.
std::string intelHex(const Bytes& bytes)
{
    std::string text;
    char part[16];
    for (size_t start = 0; start < bytes.size(); start += 16) {
        unsigned sum = static_cast<unsigned>(16 + (start >> 8) + (start & 0xFF));
        (void)std::snprintf(part, sizeof part, ":10%04X00", static_cast<unsigned>(start));
        text += part;
        for (size_t i = start; i < start + 16; ++i) {
            sum += bytes[i];
            (void)std::snprintf(part, sizeof part, "%02X", bytes[i]);
            text += part;
        }
        (void)std::snprintf(part, sizeof part, "%02X\n", (0x100 - (sum & 0xFF)) & 0xFF);
        text += part;
    }
    return text + ":00000001FF\n";
}

constexpr unsigned FIRST_RESULT = DATA_PAGES << 8, LAST_RESULT = 0x5DFF;

/// Runs an image in s51. @return the external memory as it prints it; addresses that it does not print are missing.
std::map<unsigned, uint8_t> runInS51(const RandomImage& image)
{
    const auto folder = std::filesystem::temp_directory_path() / ("mcs51_test." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    const auto file = [&](const char* name) { return (folder / name).string(); };
    std::ofstream(file("image.hex")) << intelHex(image.code);
    std::ofstream(file("commands")) << "file \"" << file("image.hex") << "\"\nfill xram 0 65535 0\nbreak " << image.stop
                                    << "\nrun 0\ndump xram " << FIRST_RESULT << " " << LAST_RESULT << " 16\nquit\n";
    // Not through a pipe: s51 drops what a full pipe does not take.
    const std::string line =
        "s51 -b -t 8052 -S in=/dev/null,out=/dev/null <" + file("commands") + " >" + file("output") + " 2>&1";
    std::map<unsigned, uint8_t> memory;
    if (std::system(line.c_str()) == 0) {  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
        std::ifstream lines(file("output"));
        for (std::string text; std::getline(lines, text);) {  // "0x2010  00 11 ..." is a row of the dump
            std::istringstream parts(text);
            std::string word;
            if (!(parts >> word) || word.rfind("0x", 0) != 0)
                continue;
            for (auto address = static_cast<unsigned>(std::stoul(word, nullptr, 16));
                 parts >> word && word.size() == 2 && word.find_first_not_of("0123456789abcdef") == std::string::npos;
                 ++address)
                memory[address] = static_cast<uint8_t>(std::stoul(word, nullptr, 16));
        }
    }
    std::filesystem::remove_all(folder);
    return memory;
}

TEST(Mcs51, AgreesWithS51OnRandomPrograms)
{
    if (std::system("command -v s51 >/dev/null") != 0)  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
        GTEST_SKIP() << "s51 is missing: apt-get install sdcc-ucsim";
    constexpr unsigned IMAGES = 8;
    static_assert(IMAGES * RandomImage::PROGRAMS >= 200);
    for (unsigned seed = 1; seed <= IMAGES; ++seed) {
        const RandomImage image(seed);
        std::map<unsigned, uint8_t> expected = runInS51(image);
        ASSERT_EQ(expected.size(), LAST_RESULT + 1 - FIRST_RESULT) << "s51 printed something else";
        FlatMemory memory;
        memory.code = image.code;
        Mcs51 core(memory);
        for (unsigned steps = 0; core.state().programCounter != image.stop; ++steps) {
            ASSERT_LT(steps, 100000U);
            (void)core.step();
        }
        for (unsigned address = FIRST_RESULT; address <= LAST_RESULT; ++address)
            ASSERT_EQ(memory.data[address], expected[address])
                << "seed " << seed << ", address " << std::hex << address;
    }
}

// The cycles of this chip's core, which differ from other 8051s: the manual's figures, a program counted by hand.
TEST(Mcs51, TakesTheCyclesOfThisCore)
{
    struct Row {
        Bytes code;
        unsigned cycles;
    };
    const Row ROWS[] = {{{0x00}, 1},          {{0x74, 1}, 2},    {{0x75, 0x30, 1}, 3}, {{0x85, 0x30, 0x31}, 3},
                        {{0x02, 0, 0}, 4},    {{0x12, 0, 0}, 4}, {{0x22}, 4},          {{0x32}, 4},
                        {{0x80, 0}, 3},       {{0x60, 0}, 3},    {{0x20, 0, 0}, 4},    {{0xB4, 0, 0}, 4},
                        {{0xD5, 0x30, 0}, 4}, {{0xD8, 0}, 3},    {{0x93}, 3},          {{0xA3}, 3},
                        {{0x90, 0, 0}, 3},    {{0xA4}, 5},       {{0x84}, 5},          {{0xE0}, 3},
                        {{0xF2}, 3},          {{0xC0, 0xE0}, 2}, {{0x01, 0}, 3},       {{0x11, 0}, 3},
                        {{0x73}, 3},          {{0xA2, 0}, 2},    {{0xD2, 0}, 2},       {{0xE8}, 1}};
    for (const Row& row : ROWS) {
        FlatMemory memory;
        std::copy(row.code.begin(), row.code.end(), memory.code.begin());
        Mcs51 core(memory);
        EXPECT_EQ(core.step(), row.cycles) << std::hex << unsigned{row.code[0]};
        core.reset();
        core.setStretch(0);
        EXPECT_EQ(core.step(), row.code[0] == 0xE0 || row.code[0] == 0xF2 ? 2 : row.cycles);
    }
}

TEST(Mcs51, SwitchesDataPointersAndBanksAndInterrupts)
{
    FlatMemory memory;
    // mov dptr,#1234; inc dps; mov dptr,#5678; mov psw,#10; mov r1,#9; reti at 2B
    const Bytes code = {0x90, 0x12, 0x34, 0x05, 0x86, 0x90, 0x56, 0x78, 0x75, 0xD0, 0x10, 0x79, 0x09};
    std::copy(code.begin(), code.end(), memory.code.begin());
    memory.code[0x2B] = 0x32;
    Mcs51 core(memory);
    for (int i = 0; i < 5; ++i)
        (void)core.step();
    EXPECT_EQ(core.state().pointers, (std::array<uint16_t, 2>{0x1234, 0x5678}));
    EXPECT_EQ(core.state().memory[0x11], 9);
    EXPECT_TRUE(core.interrupt(0x2B));
    EXPECT_FALSE(core.interrupt(0x2B)) << "one at a time";
    (void)core.step();
    EXPECT_EQ(core.state().programCounter, code.size());
    EXPECT_TRUE(core.interrupt(0x2B));
}

}  // namespace
}  // namespace vornsim::test
