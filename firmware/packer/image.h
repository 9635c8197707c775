// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

/// Turns program images for the bridge's 8051 into the table that the library uploads. Everything here is pure: bytes
/// in, bytes or one line about the failure out; any input is safe.
namespace firmware {

/// A value, or one line for people: what is wrong, where, and what to do about it.
template <typename Value>
class Result {
public:
    Result(Value value) : value_(std::move(value)) {}

    /// @return a result without a value; @p error must not be empty.
    static Result failure(const std::string& error)
    {
        Result result;
        result.error_ = error;
        return result;
    }

    bool ok() const { return error_.empty(); }
    const Value& value() const { return value_; }
    const std::string& error() const { return error_; }

private:
    Result() = default;

    Value value_{};
    std::string error_;
};

constexpr size_t IMAGE_LENGTH = 0x1A98;  ///< addresses 0x0000 to 0x1A97 of the bridge's memory
constexpr size_t CODE_START = 0x002E;    ///< first address after the interrupt vectors

/// An interrupt vector that the table has a record of its own for. The 7 bytes between two vectors are never loaded.
struct Vector {
    uint16_t address = 0;
    uint8_t length = 0;
    std::array<uint8_t, 4> code = {};  ///< what must stand there
    uint8_t fixedLength = 0;           ///< bytes of `code` that are prescribed, the others are free
    const char* name = "";
};

constexpr std::array<Vector, 6> VECTORS = {{
    {0x0000, 4, {0x02, 0x00, 0x2E, 0x32}, 4, "reset: ljmp 0x002E, then reti for interrupt 0"},
    {0x000B, 1, {0x32}, 1, "timer 0: reti"},
    {0x0013, 1, {0x32}, 1, "interrupt 1: reti"},
    {0x001B, 1, {0x32}, 1, "timer 1: reti"},
    {0x0023, 1, {0x32}, 1, "serial port 0: reti"},
    {0x002B, 3, {0x02}, 1, "timer 2: ljmp"},
}};

/// @return whether @p address lies between two vectors.
bool isVectorGap(size_t address);

/// The bridge's program memory as far as a program defines it.
class Image {
public:
    /// Defines one byte. @return an empty string, or why it cannot be: beyond the table's last address, between two
    /// vectors, or defined before as something else.
    std::string define(uint64_t where, uint8_t value);

    bool defines(size_t address) const { return address < IMAGE_LENGTH && defined_[address]; }
    uint8_t at(size_t address) const { return address < IMAGE_LENGTH ? bytes_[address] : uint8_t{0}; }

    /// @return an empty string when all six vectors are as the table demands, else what the first wrong one is.
    std::string checkVectors() const;

    /// Gives every undefined byte from CODE_START on a value: `02 00 00` over and over, after one or two `00` when a
    /// gap's length is not a multiple of three. Executed from any offset but the operand of a gap's last jump this is
    /// no-operations and a jump to 0x0000, so that a stray jump restarts the program.
    void fillWithRestarts();

private:
    std::array<uint8_t, IMAGE_LENGTH> bytes_ = {};
    std::bitset<IMAGE_LENGTH> defined_;
};

/// Reads a memory dump whose first byte belongs to address 0. Between the vectors and beyond the table's last address,
/// where a dump cannot help having bytes, only the fillers 0x00 and 0xFF are accepted.
Result<Image> parseBinary(std::span<const uint8_t> bytes);

}  // namespace firmware
