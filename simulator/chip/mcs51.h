// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vornsim {

/// What an 8051 core has around it: code memory, external data memory and the special function registers of its chip.
class Mcs51Surroundings {
public:
    virtual ~Mcs51Surroundings() = default;

    /// @return the byte of code memory at @p address.
    virtual uint8_t readCode(uint16_t address) = 0;
    virtual uint8_t readData(uint16_t address) = 0;
    virtual void writeData(uint16_t address, uint8_t value) = 0;

    /// A special function register that is none of the core's own, 0x80 to 0xFF.
    virtual uint8_t readRegister(uint8_t address) = 0;
    virtual void writeRegister(uint8_t address, uint8_t value) = 0;

    /// An instruction is about to change a register of the chip by reading, altering and writing it.
    virtual void updatesRegister(uint8_t address) { (void)address; }

    /// The core met the one opcode that means nothing (0xA5).
    virtual void undefinedOpcode(uint16_t address) { (void)address; }
};

/// The 8051 core of the bridge chip: all instructions with the cycles that this core takes for them (four clocks each),
/// 256 bytes of internal memory and two data pointers.
class Mcs51 {
public:
    /// Everything the core remembers; comparable, so that a loop can be recognised as one.
    struct State {
        std::array<uint8_t, 256> memory{};  ///< internal memory
        std::array<uint16_t, 2> pointers{};
        uint16_t programCounter = 0;
        uint8_t accumulator = 0;
        uint8_t b = 0;
        uint8_t status = 0;  ///< PSW without the parity bit
        uint8_t stackPointer = 7;
        uint8_t selectedPointer = 0;
        bool inInterrupt = false;

        bool operator==(const State&) const = default;
    };

    /// @p surroundings must outlive the core.
    explicit Mcs51(Mcs51Surroundings& surroundings) : around_(surroundings) {}

    /// Reset: registers take their initial values, internal memory keeps its content.
    void reset();

    /// Executes one instruction. @return cycles taken.
    unsigned step();

    /// Calls an interrupt routine. @return whether it began: not while another one runs.
    bool interrupt(uint16_t vector);

    /// Cycles added to the two of a MOVX; 1 after power-up.
    void setStretch(unsigned cycles) { stretch_ = cycles; }

    const State& state() const { return state_; }
    State& state() { return state_; }

private:
    uint8_t fetch() { return around_.readCode(state_.programCounter++); }
    uint8_t& workingRegister(unsigned number) { return state_.memory[(state_.status & 0x18U) + number]; }
    uint8_t& indirect(uint8_t opcode) { return state_.memory[workingRegister(opcode & 1U)]; }
    uint16_t& dataPointer() { return state_.pointers[state_.selectedPointer & 1U]; }
    uint8_t statusWithParity() const;

    uint8_t readDirect(uint8_t address);
    void writeDirect(uint8_t address, uint8_t value);
    bool readBit(uint8_t bit);
    void writeBit(uint8_t bit, bool value);
    void announceUpdate(uint8_t address);

    bool flag(uint8_t mask) const { return (state_.status & mask) != 0; }
    void setFlag(uint8_t mask, bool value);

    void push(uint8_t value) { state_.memory[++state_.stackPointer] = value; }
    uint8_t pop() { return state_.memory[state_.stackPointer--]; }
    void call(uint16_t target);
    void branch(bool taken);

    uint8_t operand(uint8_t opcode);
    void add(uint8_t value, bool carry);
    void subtract(uint8_t value);
    void decimalAdjust();
    void divide();
    void compareAndBranch(uint8_t left, uint8_t right);
    void updateDirect(uint8_t opcode);
    void executeColumn(uint8_t opcode);
    void executeOther(uint8_t opcode);
    void executeBits(uint8_t opcode);
    void executeMoves(uint8_t opcode);
    void executeAccumulator(uint8_t opcode);

    Mcs51Surroundings& around_;
    State state_;
    unsigned stretch_ = 1;
};

}  // namespace vornsim
