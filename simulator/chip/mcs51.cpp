// SPDX-License-Identifier: MIT
#include "mcs51.h"

#include <bit>

namespace vornsim {
namespace {

constexpr uint8_t CARRY = 0x80;
constexpr uint8_t HALF_CARRY = 0x40;
constexpr uint8_t OVERFLOW_FLAG = 0x04;
constexpr uint8_t PARITY = 0x01;

// The core's own special function registers.
constexpr uint8_t SFR_SP = 0x81;
constexpr uint8_t SFR_DPL0 = 0x82;
constexpr uint8_t SFR_DPH0 = 0x83;
constexpr uint8_t SFR_DPL1 = 0x84;
constexpr uint8_t SFR_DPH1 = 0x85;
constexpr uint8_t SFR_DPS = 0x86;
constexpr uint8_t SFR_PSW = 0xD0;
constexpr uint8_t SFR_ACC = 0xE0;
constexpr uint8_t SFR_B = 0xF0;
constexpr uint8_t FIRST_SFR = 0x80;

constexpr unsigned MOVX_FAST = 2;  // without stretch cycles

/// Cycles of each instruction, from the chip's manual; a row for each high digit of the opcode. The core takes a cycle
/// for each byte it fetches, more where it must change the program counter or compute.
constexpr uint8_t CYCLES[256] = {
    // 0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F
    1, 3, 4, 1, 1, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // NOP AJMP LJMP RR INC
    4, 3, 4, 1, 1, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // JBC ACALL LCALL RRC DEC
    4, 3, 4, 1, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // JB AJMP RET RL ADD
    4, 3, 4, 1, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // JNB ACALL RETI RLC ADDC
    3, 3, 2, 3, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // JC AJMP ORL
    3, 3, 2, 3, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // JNC ACALL ANL
    3, 3, 2, 3, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // JZ AJMP XRL
    3, 3, 2, 3, 2, 3, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,  // JNZ ACALL ORL C, JMP MOV
    3, 3, 2, 3, 5, 3, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,  // SJMP AJMP ANL C, MOVC DIV MOV
    3, 3, 2, 3, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // MOV DPTR ACALL MOV bit, MOVC SUBB
    2, 3, 2, 3, 5, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,  // ORL C,/ AJMP MOV C, INC DPTR MUL MOV
    2, 3, 2, 1, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4,  // ANL C,/ ACALL CPL CJNE
    2, 3, 2, 1, 1, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // PUSH AJMP CLR SWAP XCH
    2, 3, 2, 1, 1, 4, 1, 1, 3, 3, 3, 3, 3, 3, 3, 3,  // POP ACALL SETB DA DJNZ XCHD
    2, 3, 2, 2, 1, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // MOVX AJMP CLR A MOV A,
    2, 3, 2, 2, 1, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // MOVX ACALL CPL A MOV ,A
};

bool isMovx(uint8_t opcode)
{
    return (opcode & 0xEC) == 0xE0 && (opcode & 0x0F) != 1;
}

/// @return the byte address of a bit address.
uint8_t byteOfBit(uint8_t bit)
{
    return bit < FIRST_SFR ? static_cast<uint8_t>(0x20 + bit / 8) : static_cast<uint8_t>(bit & 0xF8);
}

uint16_t withLowByte(uint16_t word, uint8_t value)
{
    return static_cast<uint16_t>((word & 0xFF00) | value);
}

uint16_t withHighByte(uint16_t word, uint8_t value)
{
    return static_cast<uint16_t>((word & 0x00FF) | value << 8);
}

}  // namespace

void Mcs51::reset()
{
    const std::array<uint8_t, 256> memory = state_.memory;
    state_ = {};
    state_.memory = memory;
    stretch_ = 1;
}

bool Mcs51::interrupt(uint16_t vector)
{
    if (state_.inInterrupt)
        return false;
    state_.inInterrupt = true;
    call(vector);
    return true;
}

uint8_t Mcs51::statusWithParity() const
{
    const bool odd = std::popcount(state_.accumulator) % 2 != 0;
    return static_cast<uint8_t>((state_.status & ~PARITY) | (odd ? PARITY : 0));
}

void Mcs51::setFlag(uint8_t mask, bool value)
{
    state_.status = static_cast<uint8_t>(value ? state_.status | mask : state_.status & ~mask);
}

// ---- Addressing ----

uint8_t Mcs51::readDirect(uint8_t address)
{
    if (address < FIRST_SFR)
        return state_.memory[address];
    switch (address) {
        case SFR_ACC:
            return state_.accumulator;
        case SFR_B:
            return state_.b;
        case SFR_PSW:
            return statusWithParity();
        case SFR_SP:
            return state_.stackPointer;
        case SFR_DPL0:
        case SFR_DPL1:
            return static_cast<uint8_t>(state_.pointers[(address - SFR_DPL0) / 2U] & 0xFF);
        case SFR_DPH0:
        case SFR_DPH1:
            return static_cast<uint8_t>(state_.pointers[(address - SFR_DPL0) / 2U] >> 8);
        case SFR_DPS:
            return state_.selectedPointer;
        default:
            return around_.readRegister(address);
    }
}

void Mcs51::writeDirect(uint8_t address, uint8_t value)
{
    if (address < FIRST_SFR) {
        state_.memory[address] = value;
        return;
    }
    switch (address) {
        case SFR_ACC:
            state_.accumulator = value;
            return;
        case SFR_B:
            state_.b = value;
            return;
        case SFR_PSW:
            state_.status = static_cast<uint8_t>(value & ~PARITY);
            return;
        case SFR_SP:
            state_.stackPointer = value;
            return;
        case SFR_DPL0:
        case SFR_DPL1: {
            uint16_t& pointer = state_.pointers[(address - SFR_DPL0) / 2U];
            pointer = withLowByte(pointer, value);
            return;
        }
        case SFR_DPH0:
        case SFR_DPH1: {
            uint16_t& pointer = state_.pointers[(address - SFR_DPL0) / 2U];
            pointer = withHighByte(pointer, value);
            return;
        }
        case SFR_DPS:
            state_.selectedPointer = value & 1;
            return;
        default:
            around_.writeRegister(address, value);
    }
}

void Mcs51::announceUpdate(uint8_t address)
{
    if (address >= FIRST_SFR)
        around_.updatesRegister(address);
}

bool Mcs51::readBit(uint8_t bit)
{
    return ((readDirect(byteOfBit(bit)) >> (bit & 7)) & 1) != 0;
}

void Mcs51::writeBit(uint8_t bit, bool value)
{
    const uint8_t address = byteOfBit(bit);
    announceUpdate(address);
    const auto mask = static_cast<uint8_t>(1U << (bit & 7));
    const uint8_t before = readDirect(address);
    writeDirect(address, static_cast<uint8_t>(value ? before | mask : before & ~mask));
}

/// @return the source of the instructions whose low digit tells it: 4 immediate, 5 direct, 6 and 7 indirect, 8 to F a
/// working register.
uint8_t Mcs51::operand(uint8_t opcode)
{
    switch (opcode & 0x0F) {
        case 4:
            return fetch();
        case 5:
            return readDirect(fetch());
        case 6:
        case 7:
            return indirect(opcode);
        default:
            return workingRegister(opcode & 7U);
    }
}

void Mcs51::call(uint16_t target)
{
    push(static_cast<uint8_t>(state_.programCounter & 0xFF));
    push(static_cast<uint8_t>(state_.programCounter >> 8));
    state_.programCounter = target;
}

void Mcs51::branch(bool taken)
{
    const auto distance = static_cast<int8_t>(fetch());
    if (taken)
        state_.programCounter = static_cast<uint16_t>(state_.programCounter + distance);
}

// ---- Arithmetic ----

void Mcs51::add(uint8_t value, bool carry)
{
    const unsigned a = state_.accumulator;
    const unsigned sum = a + value + (carry ? 1U : 0U);
    setFlag(CARRY, sum > 0xFF);
    setFlag(HALF_CARRY, (a & 0xF) + (value & 0xFU) + (carry ? 1U : 0U) > 0xF);
    setFlag(OVERFLOW_FLAG, (~(a ^ value) & (a ^ sum) & 0x80) != 0);
    state_.accumulator = static_cast<uint8_t>(sum);
}

void Mcs51::subtract(uint8_t value)
{
    const unsigned a = state_.accumulator;
    const unsigned borrow = flag(CARRY) ? 1 : 0;
    const unsigned difference = a - value - borrow;
    setFlag(CARRY, a < value + borrow);
    setFlag(HALF_CARRY, (a & 0xF) < (value & 0xFU) + borrow);
    setFlag(OVERFLOW_FLAG, ((a ^ value) & (a ^ difference) & 0x80) != 0);
    state_.accumulator = static_cast<uint8_t>(difference);
}

void Mcs51::decimalAdjust()
{
    unsigned a = state_.accumulator;
    if ((a & 0xF) > 9 || flag(HALF_CARRY))
        a += 6;
    if ((a >> 4) > 9 || flag(CARRY))
        a += 0x60;
    if (a > 0xFF)
        setFlag(CARRY, true);  // never cleared by this instruction
    state_.accumulator = static_cast<uint8_t>(a);
}

void Mcs51::divide()
{
    setFlag(CARRY, false);
    setFlag(OVERFLOW_FLAG, state_.b == 0);
    if (state_.b == 0)
        return;  // both registers are undefined then
    const uint8_t quotient = state_.accumulator / state_.b;
    state_.b = state_.accumulator % state_.b;
    state_.accumulator = quotient;
}

void Mcs51::compareAndBranch(uint8_t left, uint8_t right)
{
    setFlag(CARRY, left < right);
    branch(left != right);
}

// ---- Instructions ----

unsigned Mcs51::step()
{
    const uint16_t address = state_.programCounter;
    const uint8_t opcode = fetch();
    const unsigned low = opcode & 0x0F;
    if (low >= 4)
        executeColumn(opcode);
    else if (low == 1) {
        const uint8_t lowByte = fetch();
        const auto target = static_cast<uint16_t>((state_.programCounter & 0xF800) | (opcode & 0xE0U) << 3 | lowByte);
        if ((opcode & 0x10) != 0)
            call(target);
        else
            state_.programCounter = target;
    } else {
        executeOther(opcode);
    }
    if (opcode == 0xA5)
        around_.undefinedOpcode(address);
    return isMovx(opcode) ? MOVX_FAST + stretch_ : CYCLES[opcode];
}

/// The instructions in columns 4 to F of the opcode table: one operation a row, on the source that the column tells.
void Mcs51::executeColumn(uint8_t opcode)
{
    const unsigned low = opcode & 0x0F;
    switch (opcode >> 4) {
        case 0x0:  // INC
        case 0x1:  // DEC
        {
            const auto change = static_cast<uint8_t>(opcode < 0x10 ? 1 : 0xFF);
            if (low == 4) {
                state_.accumulator = static_cast<uint8_t>(state_.accumulator + change);
            } else if (low == 5) {
                const uint8_t address = fetch();
                announceUpdate(address);
                writeDirect(address, static_cast<uint8_t>(readDirect(address) + change));
            } else {
                uint8_t& cell = low < 8 ? indirect(opcode) : workingRegister(low & 7);
                cell = static_cast<uint8_t>(cell + change);
            }
            return;
        }
        case 0x2:
            return add(operand(opcode), false);
        case 0x3:
            return add(operand(opcode), flag(CARRY));
        case 0x4:
            state_.accumulator |= operand(opcode);
            return;
        case 0x5:
            state_.accumulator &= operand(opcode);
            return;
        case 0x6:
            state_.accumulator ^= operand(opcode);
            return;
        case 0x9:
            return subtract(operand(opcode));
        case 0xB:  // CJNE
        {
            if (low == 4)
                return compareAndBranch(state_.accumulator, fetch());
            if (low == 5)
                return compareAndBranch(state_.accumulator, readDirect(fetch()));
            const uint8_t left = low < 8 ? indirect(opcode) : workingRegister(low & 7);
            return compareAndBranch(left, fetch());
        }
        default:
            return executeMoves(opcode);
    }
}

/// Columns 4 to F of the rows that move and exchange, and the odd ones among them.
void Mcs51::executeMoves(uint8_t opcode)
{
    const unsigned low = opcode & 0x0F;
    const auto cell = [&]() -> uint8_t& { return low < 8 ? indirect(opcode) : workingRegister(low & 7); };
    switch (opcode) {
        case 0x74:
            state_.accumulator = fetch();
            return;
        case 0x75: {
            const uint8_t address = fetch();
            return writeDirect(address, fetch());
        }
        case 0x84:
            return divide();
        case 0x85: {
            const uint8_t value = readDirect(fetch());
            return writeDirect(fetch(), value);
        }
        case 0xA4: {
            const unsigned product = unsigned{state_.accumulator} * state_.b;
            state_.accumulator = static_cast<uint8_t>(product);
            state_.b = static_cast<uint8_t>(product >> 8);
            setFlag(CARRY, false);
            setFlag(OVERFLOW_FLAG, product > 0xFF);
            return;
        }
        case 0xA5:
            return;
        case 0xC4:
            state_.accumulator = static_cast<uint8_t>(state_.accumulator << 4 | state_.accumulator >> 4);
            return;
        case 0xC5: {
            const uint8_t address = fetch();
            announceUpdate(address);
            const uint8_t value = readDirect(address);
            writeDirect(address, state_.accumulator);
            state_.accumulator = value;
            return;
        }
        case 0xD4:
            return decimalAdjust();
        case 0xD5: {
            const uint8_t address = fetch();
            announceUpdate(address);
            const auto value = static_cast<uint8_t>(readDirect(address) - 1);
            writeDirect(address, value);
            return branch(value != 0);
        }
        case 0xD6:
        case 0xD7: {
            uint8_t& other = indirect(opcode);
            const uint8_t value = other;
            other = static_cast<uint8_t>((value & 0xF0) | (state_.accumulator & 0x0F));
            state_.accumulator = static_cast<uint8_t>((state_.accumulator & 0xF0) | (value & 0x0F));
            return;
        }
        case 0xE4:
            state_.accumulator = 0;
            return;
        case 0xE5:
            state_.accumulator = readDirect(fetch());
            return;
        case 0xF4:
            state_.accumulator = static_cast<uint8_t>(~state_.accumulator);
            return;
        case 0xF5:
            return writeDirect(fetch(), state_.accumulator);
        default:
            break;
    }
    switch (opcode >> 4) {
        case 0x7:
            cell() = fetch();
            return;
        case 0x8:
            return writeDirect(fetch(), cell());
        case 0xA:
            cell() = readDirect(fetch());
            return;
        case 0xC: {
            const uint8_t value = cell();
            cell() = state_.accumulator;
            state_.accumulator = value;
            return;
        }
        case 0xD:
            return branch(--cell() != 0);
        case 0xE:
            state_.accumulator = cell();
            return;
        case 0xF:
            cell() = state_.accumulator;
            return;
        default:
            return;
    }
}

/// Columns 0, 2 and 3: jumps, bits, single-operand instructions on the accumulator, MOVC and MOVX.
void Mcs51::executeOther(uint8_t opcode)
{
    switch (opcode) {
        case 0x00:
            return;
        case 0x02:
        case 0x12: {
            const uint8_t high = fetch();
            const auto target = static_cast<uint16_t>(high << 8 | fetch());
            if (opcode == 0x12)
                call(target);
            else
                state_.programCounter = target;
            return;
        }
        case 0x22:
        case 0x32: {
            const uint8_t high = pop();
            state_.programCounter = static_cast<uint16_t>(high << 8 | pop());
            if (opcode == 0x32)
                state_.inInterrupt = false;
            return;
        }
        case 0x40:
            return branch(flag(CARRY));
        case 0x50:
            return branch(!flag(CARRY));
        case 0x60:
            return branch(state_.accumulator == 0);
        case 0x70:
            return branch(state_.accumulator != 0);
        case 0x80:
            return branch(true);
        case 0x73:
            state_.programCounter = static_cast<uint16_t>(dataPointer() + state_.accumulator);
            return;
        case 0x42:
        case 0x43:
        case 0x52:
        case 0x53:
        case 0x62:
        case 0x63:
            return updateDirect(opcode);
        case 0xC0:
            return push(readDirect(fetch()));
        case 0xD0: {
            const uint8_t value = pop();
            return writeDirect(fetch(), value);
        }
        case 0x03:
        case 0x13:
        case 0x23:
        case 0x33:
        case 0x83:
        case 0x93:
        case 0xE0:
        case 0xE2:
        case 0xE3:
        case 0xF0:
        case 0xF2:
        case 0xF3:
        case 0x90:
        case 0xA3:
            return executeAccumulator(opcode);
        default:
            return executeBits(opcode);
    }
}

/// ORL, ANL and XRL on a directly addressed byte.
void Mcs51::updateDirect(uint8_t opcode)
{
    const uint8_t address = fetch();
    announceUpdate(address);
    const uint8_t value = (opcode & 1) != 0 ? fetch() : state_.accumulator;
    const uint8_t before = readDirect(address);
    switch (opcode >> 4) {
        case 4:
            return writeDirect(address, before | value);
        case 5:
            return writeDirect(address, before & value);
        default:
            return writeDirect(address, before ^ value);
    }
}

/// Rotations, and what moves bytes through the data pointers.
void Mcs51::executeAccumulator(uint8_t opcode)
{
    uint8_t& a = state_.accumulator;
    const bool carry = flag(CARRY);
    // The upper half of the address of MOVX @Ri comes from a register of the chip.
    constexpr uint8_t SFR_MPAGE = 0x92;
    const auto paged = [&] {
        return static_cast<uint16_t>(around_.readRegister(SFR_MPAGE) << 8 | workingRegister(opcode & 1U));
    };
    switch (opcode) {
        case 0x03:
            a = static_cast<uint8_t>(a >> 1 | a << 7);
            return;
        case 0x13:
            setFlag(CARRY, (a & 1) != 0);
            a = static_cast<uint8_t>(a >> 1 | (carry ? 0x80 : 0));
            return;
        case 0x23:
            a = static_cast<uint8_t>(a << 1 | a >> 7);
            return;
        case 0x33:
            setFlag(CARRY, (a & 0x80) != 0);
            a = static_cast<uint8_t>(a << 1 | (carry ? 1 : 0));
            return;
        case 0x83:
            a = around_.readCode(static_cast<uint16_t>(state_.programCounter + a));
            return;
        case 0x93:
            a = around_.readCode(static_cast<uint16_t>(dataPointer() + a));
            return;
        case 0xE0:
            a = around_.readData(dataPointer());
            return;
        case 0xF0:
            return around_.writeData(dataPointer(), a);
        case 0x90: {
            const uint8_t high = fetch();
            dataPointer() = static_cast<uint16_t>(high << 8 | fetch());
            return;
        }
        case 0xA3:
            ++dataPointer();
            return;
        default:
            if (opcode < 0xF0)
                a = around_.readData(paged());
            else
                around_.writeData(paged(), a);
            return;
    }
}

void Mcs51::executeBits(uint8_t opcode)
{
    switch (opcode) {
        case 0x10: {  // JBC
            const uint8_t bit = fetch();
            const bool set = readBit(bit);
            if (set)
                writeBit(bit, false);
            return branch(set);
        }
        case 0x20:
            return branch(readBit(fetch()));
        case 0x30:
            return branch(!readBit(fetch()));
        case 0x72:
            return setFlag(CARRY, static_cast<int>(flag(CARRY)) + static_cast<int>(readBit(fetch())) > 0);
        case 0x82:
            return setFlag(CARRY, static_cast<int>(flag(CARRY)) + static_cast<int>(readBit(fetch())) > 1);
        case 0x92:
            return writeBit(fetch(), flag(CARRY));
        case 0xA0:
            return setFlag(CARRY, static_cast<int>(flag(CARRY)) + static_cast<int>(!readBit(fetch())) > 0);
        case 0xA2:
            return setFlag(CARRY, readBit(fetch()));
        case 0xB0:
            return setFlag(CARRY, static_cast<int>(flag(CARRY)) + static_cast<int>(!readBit(fetch())) > 1);
        case 0xB2: {
            const uint8_t bit = fetch();
            return writeBit(bit, !readBit(bit));
        }
        case 0xB3:
            return setFlag(CARRY, !flag(CARRY));
        case 0xC2:
            return writeBit(fetch(), false);
        case 0xC3:
            return setFlag(CARRY, false);
        case 0xD2:
            return writeBit(fetch(), true);
        case 0xD3:
            return setFlag(CARRY, true);
        default:
            return;
    }
}

}  // namespace vornsim
