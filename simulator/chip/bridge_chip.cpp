// SPDX-License-Identifier: MIT
#include "bridge_chip.h"

#include <algorithm>

namespace vornsim {
namespace {

// Special function registers.
constexpr uint8_t PORT_LATCHES[] = {0x80, 0x90, 0xA0, 0xB0, 0xB1};
constexpr uint8_t FIRST_DIRECTION = 0xB2;  // five in a row
constexpr uint8_t POWER_CONTROL = 0x87;
constexpr uint8_t CLOCK_CONTROL = 0x8E;
constexpr uint8_t AUTOPOINTER_HIGH[] = {0x9A, 0x9D};
constexpr uint8_t AUTOPOINTER_LOW[] = {0x9B, 0x9E};
constexpr uint8_t AUTOPOINTER_SETUP = 0xAF;
constexpr uint8_t INTERRUPT_ENABLE = 0xA8;
constexpr uint8_t ENDPOINT_STATUS = 0xAA;
constexpr uint8_t WAVEFORM_TRIGGER = 0xBB;
constexpr uint8_t TIMER_CONTROL = 0xC8;
constexpr uint8_t TIMER_RELOAD_LOW = 0xCA;
constexpr uint8_t TIMER_RELOAD_HIGH = 0xCB;
constexpr uint8_t TIMER_LOW = 0xCC;
constexpr uint8_t TIMER_HIGH = 0xCD;

constexpr uint8_t TIMER_OVERFLOW = 0x80;
constexpr uint8_t TIMER_RUNS = 0x04;
constexpr uint8_t TIMER_FAST = 0x20;  // in CLOCK_CONTROL
constexpr uint8_t STRETCH = 0x07;     // in CLOCK_CONTROL
constexpr uint8_t INTERRUPTS_ON = 0x80;
constexpr uint8_t TIMER_INTERRUPT = 0x20;
constexpr uint16_t TIMER_VECTOR = 0x2B;

// Chip registers, offsets from 0xE600.
constexpr uint16_t CHIP_REGISTERS = 0xE600;
constexpr uint8_t CPUCS = 0x00;
constexpr uint8_t IFCONFIG = 0x01;
constexpr uint8_t PINFLAGS = 0x02;  // two
constexpr uint8_t FIFORESET = 0x04;
constexpr uint8_t REVCTL = 0x0B;
constexpr uint8_t EP2CFG = 0x12;      // four
constexpr uint8_t EP2FIFOCFG = 0x18;  // four
constexpr uint8_t INPKTEND = 0x48;
constexpr uint8_t OUTPKTEND = 0x49;
constexpr uint8_t I2CS = 0x78;
constexpr uint8_t I2DAT = 0x79;
constexpr uint8_t I2CTL = 0x7A;
constexpr uint8_t XAUTODAT1 = 0x7B;
constexpr uint8_t XAUTODAT2 = 0x7C;
constexpr uint8_t USBCS = 0x80;
constexpr uint8_t EP2BCH = 0x90;  // high, low, -, - for each endpoint
constexpr uint8_t EP8BCL = 0x9D;
constexpr uint8_t EP2FIFOBCH = 0xAB;  // high, low for each endpoint
constexpr uint8_t EP8FIFOBCL = 0xB2;
constexpr uint8_t GPIFWFSELECT = 0xC0;
constexpr uint8_t GPIFIDLECTL = 0xC2;
constexpr uint8_t GPIFADRH = 0xC4;  // two
constexpr uint8_t FLOWSTATE = 0xC6;
constexpr uint8_t GPIFTCB3 = 0xCE;  // four, highest first
constexpr uint8_t GPIFREADYCFG = 0xF3;
constexpr uint8_t GPIFABORT = 0xF5;

constexpr uint8_t WAVEFORM_MODE = 0x02, MODE_MASK = 0x03;  // in IFCONFIG
constexpr uint8_t WORD_WIDE = 0x01, AUTO_IN = 0x08, AUTO_OUT = 0x10;
constexpr uint8_t NAK_ALL = 0x80;
constexpr uint8_t SKIP = 0x80;
constexpr uint8_t HIGH_SPEED = 0x80, RENUMERATE = 0x02, DISCONNECT = 0x08;
constexpr uint8_t CPU_HELD = 0x01, CLOCK_SPEED = 0x18, CLOCK_OUT = 0x02;
constexpr uint8_t TRIGGER_READ = 0x04, TRIGGER_IDLE = 0x80;
constexpr uint8_t ENDPOINT_POWER_ON[] = {0xA2, 0xA0, 0xE2, 0xE0};
constexpr uint8_t FIFO_POWER_ON = 0x05;

// Writes to some registers need time before the next one: at these clocks three cycles besides the instructions that
// load an address and a value (six) as the chip's own sample programs leave them.
constexpr uint64_t DELAY_CYCLES = 9;

// SPI on port A.
constexpr uint8_t SERIAL_SELECT = 0x80, SERIAL_CLOCK = 0x40, SERIAL_TO_CAMERA = 0x20, SERIAL_FROM_CAMERA = 0x10;

// Instructions for which a loop is looked for: few at first, more as long as nothing else happens.
constexpr unsigned SHORT_LOOP = 64;
constexpr unsigned LONGEST_LOOP = 65536;

bool needsDelay(uint8_t offset)
{
    return offset == PINFLAGS || offset == PINFLAGS + 1 || offset == FIFORESET || offset == REVCTL ||
           (offset >= EP2FIFOCFG && offset <= 0x37) || (offset >= INPKTEND && offset <= 0x57) ||
           (offset >= EP2BCH && offset <= EP8BCL) || (offset >= GPIFADRH && offset < FLOWSTATE) ||
           (offset >= GPIFTCB3 && offset <= 0xEC);
}

}  // namespace

BridgeChip::BridgeChip(BusCamera& camera, DeviceLog& log, bool highSpeed, Ticks start)
    : camera_(camera),
      log_(log),
      core_(*this),
      coreState_(core_.state()),
      fifos_{{{*this, false, highSpeed ? 512U : 64U},
              {*this, false, highSpeed ? 512U : 64U},
              {*this, true, highSpeed ? 512U : 64U},
              {*this, true, highSpeed ? 512U : 64U}}},
      pins_(camera, *this),
      engine_(pins_, fifos_[0], fifos_[3], *this),
      i2c_(camera, *this),
      highSpeed_(highSpeed),
      now_(start)
{
    std::copy(std::begin(ENDPOINT_POWER_ON), std::end(ENDPOINT_POWER_ON), registers_.begin() + EP2CFG);
    std::fill_n(registers_.begin() + EP2FIFOCFG, 4, FIFO_POWER_ON);
}

void BridgeChip::fault(const char* text)
{
    if (faults_.insert(text).second)
        log_.complain(std::string("chip: ") + text);
}

void BridgeChip::crash(const char* text)
{
    fault(text);
    running_ = false;
}

// ---- The host's side ----

void BridgeChip::poke(uint16_t address, uint8_t value)
{
    memory_[address] = value;
    touched_ = true;
}

void BridgeChip::setCpuControl(uint8_t value)
{
    const bool wasHeld = (cpuControl_ & CPU_HELD) != 0;
    cpuControl_ = value;
    constexpr Ticks SPEEDS[] = {16, 8, 4, 4};  // 12, 24, 48 MHz and four clocks a cycle
    ticksPerCycle_ = SPEEDS[(value & CLOCK_SPEED) >> 3];
    if ((value & CPU_HELD) != 0) {
        running_ = false;
    } else if (wasHeld) {
        core_.reset();
        for (const uint8_t each : {TIMER_CONTROL, TIMER_RELOAD_LOW, TIMER_RELOAD_HIGH, INTERRUPT_ENABLE, POWER_CONTROL})
            specialRegisters_[each & 0x7F] = 0;
        specialRegisters_[CLOCK_CONTROL & 0x7F] = 1;
        timer_ = 0;
        running_ = true;
        touched_ = true;
        camera_.bridgeStarted();
        log_.note("chip: program started");
    }
}

void BridgeChip::receive(unsigned endpoint, std::span<const uint8_t> packet)
{
    fifo(endpoint).receive(packet);
    touched_ = true;
}

const ChipEndpoint::Packet* BridgeChip::offered(unsigned endpoint) const
{
    return nakAll_ ? nullptr : fifo(endpoint).offered();
}

void BridgeChip::fetched(unsigned endpoint)
{
    fifo(endpoint).fetched();
    touched_ = true;
}

// ---- Memory as the core sees it ----

uint8_t BridgeChip::readCode(uint16_t address)
{
    if (address < MEMORY_LENGTH)
        return memory_[address];
    crash("code is read beyond the chip's memory");
    return 0;
}

uint8_t BridgeChip::readData(uint16_t address)
{
    if (address < MEMORY_LENGTH)
        return memory_[address];
    if ((address & 0xFF00) == CHIP_REGISTERS)
        return readChipRegister(static_cast<uint8_t>(address & 0xFF));
    if (address >= 0xF000 && (address & 0x3FF) < ChipEndpoint::BUFFER_LENGTH)
        return fifos_[(address >> 10) & 3].read(address & 0x1FF);
    if (address >= 0xE000 && address < 0xE200)
        return scratch_[address & 0x1FF];
    if (address >= 0xE400 && address < 0xE480) {
        if ((registers_[IFCONFIG] & MODE_MASK) != WAVEFORM_MODE)
            fault("waveform memory is read while the interface is in another mode");
        return engine_.memory()[address & 0x7F];
    }
    if (address < 0xE740 || address > 0xE7FF)
        fault("data is read where there is no memory");
    return 0xFF;
}

void BridgeChip::writeData(uint16_t address, uint8_t value)
{
    const auto store = [&](uint8_t& cell) {
        touched_ = touched_ || cell != value;
        cell = value;
    };
    if (address < MEMORY_LENGTH)
        return store(memory_[address]);
    if (address >= 0xE000 && address < 0xE200)
        return store(scratch_[address & 0x1FF]);
    touched_ = true;
    if ((address & 0xFF00) == CHIP_REGISTERS)
        return writeChipRegister(static_cast<uint8_t>(address & 0xFF), value);
    if (address >= 0xF000 && (address & 0x3FF) < ChipEndpoint::BUFFER_LENGTH)
        return fifos_[(address >> 10) & 3].write(address & 0x1FF, value);
    if (address >= 0xE400 && address < 0xE480) {
        if ((registers_[IFCONFIG] & MODE_MASK) != WAVEFORM_MODE)
            fault("waveform memory is written while the interface is in another mode");
        engine_.memory()[address & 0x7F] = value;
        return;
    }
    if (address < 0xE740 || address > 0xE7FF)
        fault("data is written where there is no memory");
}

void BridgeChip::undefinedOpcode(uint16_t /*address*/)
{
    crash("an opcode is executed that means nothing");
}

void BridgeChip::updatesRegister(uint8_t address)
{
    if (std::find(std::begin(PORT_LATCHES), std::end(PORT_LATCHES), address) != std::end(PORT_LATCHES))
        fault("a port is read, altered and written, which may take the levels of its inputs for its own");
}

uint8_t BridgeChip::readRegister(uint8_t address)
{
    switch (address) {
        case PORT_LATCHES[0]:
        case PORT_LATCHES[1]:
        case PORT_LATCHES[2]:
        case PORT_LATCHES[3]:
        case PORT_LATCHES[4]: {
            touched_ = true;  // what the camera drives may change at any time
            const auto* port = std::find(std::begin(PORT_LATCHES), std::end(PORT_LATCHES), address);
            return pinsOf(static_cast<unsigned>(port - PORT_LATCHES));
        }
        case ENDPOINT_STATUS:
            return endpointStatus();
        case WAVEFORM_TRIGGER:
            return engine_.busy() ? 0 : TRIGGER_IDLE;
        case TIMER_LOW:
            touched_ = true;
            return static_cast<uint8_t>(timer_ & 0xFF);
        case TIMER_HIGH:
            touched_ = true;
            return static_cast<uint8_t>(timer_ >> 8);
        default:
            return specialRegisters_[address & 0x7F];
    }
}

void BridgeChip::writeRegister(uint8_t address, uint8_t value)
{
    touched_ = true;
    specialRegisters_[address & 0x7F] = value;
    for (unsigned port = 0; port < ports_.size(); ++port)
        if (address == PORT_LATCHES[port] || address == FIRST_DIRECTION + port)
            return portRegisterWritten(port);
    switch (address) {
        case CLOCK_CONTROL:
            core_.setStretch(value & STRETCH);
            return;
        case WAVEFORM_TRIGGER:
            checkDelay();
            return trigger(value);
        case TIMER_LOW:
            timer_ = static_cast<uint16_t>((timer_ & 0xFF00) | value);
            return;
        case TIMER_HIGH:
            timer_ = static_cast<uint16_t>((timer_ & 0x00FF) | value << 8);
            return;
        case INTERRUPT_ENABLE:
            if ((value & INTERRUPTS_ON) != 0 && (value & ~(INTERRUPTS_ON | TIMER_INTERRUPT)) != 0)
                fault("an interrupt is enabled that is not emulated");
            return;
        case POWER_CONTROL:
            if ((value & 1) != 0)
                crash("the core goes to sleep and nothing will wake it");
            return;
        default:
            return;
    }
}

// ---- Chip registers ----

uint8_t BridgeChip::readChipRegister(uint8_t offset)
{
    switch (offset) {
        case CPUCS:
            return cpuControl_;
        case I2CS:
            return i2c_.readControl(now_);
        case I2DAT:
            touched_ = true;
            return i2c_.readData(now_);
        case I2CTL:
            return i2c_.fast() ? 1 : 0;
        case XAUTODAT1:
        case XAUTODAT2:
            return throughAutopointer(offset - XAUTODAT1, false, 0);
        case USBCS:
            return highSpeed_ ? HIGH_SPEED : 0;
        default:
            break;
    }
    if (offset >= EP2BCH && offset <= EP8BCL) {
        const size_t count = fifos_[(offset - EP2BCH) / 4U].byteCount();
        return static_cast<uint8_t>((offset & 1) == 0 ? count >> 8 : count);
    }
    if (offset >= EP2FIFOBCH && offset <= EP8FIFOBCL) {
        const ChipEndpoint& endpoint = fifos_[(offset - EP2FIFOBCH) / 2U];
        const size_t count = offset < EP2FIFOBCH + 4 ? endpoint.waitingBytes() : endpoint.byteCount();
        return static_cast<uint8_t>(((offset - EP2FIFOBCH) & 1) == 0 ? count >> 8 : count);
    }
    return registers_[offset];
}

void BridgeChip::writeChipRegister(uint8_t offset, uint8_t value)
{
    if (needsDelay(offset))
        checkDelay();
    registers_[offset] = value;
    if (offset >= EP2CFG && offset < EP2CFG + 4 && value != ENDPOINT_POWER_ON[offset - EP2CFG])
        fault("an endpoint gets another type than the descriptors tell");
    switch (offset) {
        case CPUCS: {
            // The core cannot hold itself.
            cpuControl_ = static_cast<uint8_t>((value & (CLOCK_SPEED | CLOCK_OUT)) | (cpuControl_ & CPU_HELD));
            constexpr Ticks SPEEDS[] = {16, 8, 4, 4};
            ticksPerCycle_ = SPEEDS[(value & CLOCK_SPEED) >> 3];
            return;
        }
        case IFCONFIG:
            engine_.settings().interface = value;
            return;
        case REVCTL:
            if (value != 0)
                fault("REVCTL takes the endpoints out of the hands of the chip, which is not emulated");
            return;
        case I2CS:
            return i2c_.writeControl(value, now_);
        case I2DAT:
            return i2c_.writeData(value, now_);
        case I2CTL:
            return i2c_.setFast((value & 1) != 0);
        case XAUTODAT1:
        case XAUTODAT2:
            (void)throughAutopointer(offset - XAUTODAT1, true, value);
            return;
        case USBCS:
            if ((value & (RENUMERATE | DISCONNECT)) != 0)
                fault("the program takes descriptors or the connection away from the chip");
            return;
        case GPIFWFSELECT:
            engine_.settings().selection = value;
            return;
        case GPIFIDLECTL:
            engine_.settings().idleLevels = value;
            return;
        case FLOWSTATE:
            engine_.settings().flowState = value;
            return;
        case GPIFREADYCFG:
            engine_.settings().readyPins = value;
            return;
        case GPIFABORT:
            return engine_.abort(now_);
        default:
            return writeEndpointRegister(offset, value);
    }
}

void BridgeChip::writeEndpointRegister(uint8_t offset, uint8_t value)
{
    const unsigned number = value & 0x0F;  // where the value names an endpoint
    const bool named = number >= 2 && number <= 8 && number % 2 == 0;
    switch (offset) {
        case FIFORESET:
            return resetFifo(value);
        case INPKTEND:
            if (!named || number < 6)
                return fault("INPKTEND names no IN endpoint");
            return fifo(number).commit(fifo(number).byteCount());
        case OUTPKTEND:
            if (!named || number > 4 || (value & SKIP) == 0)
                return fault("OUTPKTEND names no OUT endpoint, or does not skip");
            return fifo(number).arm();
        default:
            break;
    }
    if (offset >= EP2FIFOCFG && offset < EP2FIFOCFG + 4) {
        if (offset >= EP2FIFOCFG + 2 && (value & AUTO_IN) != 0)
            fault("AUTOIN is not emulated");
        if (offset < EP2FIFOCFG + 2)
            fifos_[offset - EP2FIFOCFG].setAutomatic((value & AUTO_OUT) != 0);
        return;
    }
    if (offset >= EP2BCH && offset <= EP8BCL && (offset & 3) == 1) {
        const unsigned index = (offset - EP2BCH) / 4U;
        if (index >= 2)
            return fifos_[index].commit(static_cast<size_t>(registers_[offset - 1] << 8 | value));
        if ((value & SKIP) == 0)
            fault("a received packet is passed on instead of being released");
        fifos_[index].arm();
    }
}

void BridgeChip::resetFifo(uint8_t value)
{
    nakAll_ = (value & NAK_ALL) != 0;
    const unsigned number = value & 0x0F;
    if (number == 0)
        return;
    if (number > 8 || number % 2 != 0)
        return fault("FIFORESET names no endpoint");
    if (engine_.busy())
        fault("a FIFO is reset while the waveform engine runs");
    fifo(number).reset();
}

void BridgeChip::checkDelay()
{
    if (delayedWrite_ && cycles_ - delayedWriteAt_ < DELAY_CYCLES)
        fault("a synchronisation delay is missing between two register writes");
    delayedWrite_ = true;
    delayedWriteAt_ = cycles_;
}

uint8_t BridgeChip::endpointStatus() const
{
    unsigned status = 0;
    for (unsigned i = 0; i < fifos_.size(); ++i)
        status |= (fifos_[i].empty() ? 1U : 0U) << (2 * i) | (fifos_[i].full() ? 2U : 0U) << (2 * i);
    return static_cast<uint8_t>(status);
}

void BridgeChip::trigger(uint8_t value)
{
    const bool reading = (value & TRIGGER_READ) != 0;
    const unsigned index = value & 3U;
    if (index != (reading ? 3U : 0U))
        return fault("the waveform engine is started for an endpoint that is not connected to it");
    if ((registers_[EP2FIFOCFG + index] & WORD_WIDE) == 0)
        fault("the waveform engine moves words, but the FIFO bytes");
    uint32_t count = 0;
    for (unsigned i = 0; i < 4; ++i) {
        count = count << 8 | registers_[GPIFTCB3 + i];
        registers_[GPIFTCB3 + i] = 0;
    }
    engine_.start(reading, count, now_);
}

uint8_t BridgeChip::throughAutopointer(unsigned number, bool writing, uint8_t value)
{
    touched_ = true;
    uint8_t& high = specialRegisters_[AUTOPOINTER_HIGH[number] & 0x7F];
    uint8_t& low = specialRegisters_[AUTOPOINTER_LOW[number] & 0x7F];
    const uint8_t setup = specialRegisters_[AUTOPOINTER_SETUP & 0x7F];
    const auto address = static_cast<uint16_t>(high << 8 | low);
    if ((setup & 1) == 0 || address == CHIP_REGISTERS + XAUTODAT1 || address == CHIP_REGISTERS + XAUTODAT2) {
        fault("an autopointer is used that is not enabled or points to itself");
        return 0xFF;
    }
    if (writing)
        writeData(address, value);
    else
        value = readData(address);
    if ((setup & (2U << number)) != 0) {
        low = static_cast<uint8_t>(low + 1);
        high = static_cast<uint8_t>(high + (low == 0 ? 1 : 0));
    }
    return value;
}

// ---- Ports ----

uint8_t BridgeChip::pinsOf(unsigned port)
{
    uint8_t inputs = camera_.portInputs(port);
    if (port == 0 && camera_.spiMode() != SpiMode::NONE && (serialLevels_ & SERIAL_SELECT) == 0) {
        const bool high = ((serialOut_ << serialOutBits_) & 0x80) != 0;
        inputs = static_cast<uint8_t>(high ? inputs | SERIAL_FROM_CAMERA : inputs & ~SERIAL_FROM_CAMERA);
    }
    const PortLines& lines = ports_[port];
    return static_cast<uint8_t>((lines.latch & lines.direction) | (inputs & ~lines.direction));
}

void BridgeChip::portRegisterWritten(unsigned port)
{
    const PortLines lines{specialRegisters_[PORT_LATCHES[port] & 0x7F],
                          specialRegisters_[(FIRST_DIRECTION + port) & 0x7F]};
    const PortLines before = ports_[port];
    if (lines.latch == before.latch && lines.direction == before.direction)
        return;
    ports_[port] = lines;
    camera_.portChanged(port, lines);
    if (port == 0 && camera_.spiMode() != SpiMode::NONE)
        serialPinsChanged();
}

void BridgeChip::serialPinsChanged()
{
    // Pins that the bridge does not drive are pulled up.
    const auto levels = static_cast<uint8_t>(ports_[0].latch | static_cast<uint8_t>(~ports_[0].direction));
    const auto changed = static_cast<uint8_t>(levels ^ serialLevels_);
    serialLevels_ = levels;
    if ((changed & SERIAL_SELECT) != 0) {
        serialBits_ = 0;
        serialOutBits_ = 0;
        if ((levels & SERIAL_SELECT) != 0)
            return camera_.spiDeselect();
        camera_.spiSelect();
        serialOut_ = camera_.spiOutput();
        return;
    }
    if ((levels & SERIAL_SELECT) != 0 || (changed & SERIAL_CLOCK) == 0)
        return;
    if ((levels & SERIAL_CLOCK) == 0) {  // the slave puts out its next bit
        serialOutBits_ = serialBits_;
        if (serialBits_ == 0)
            serialOut_ = camera_.spiOutput();
        return;
    }
    serialIn_ = static_cast<uint8_t>(serialIn_ << 1 | ((levels & SERIAL_TO_CAMERA) != 0 ? 1 : 0));
    if (++serialBits_ == 8) {
        serialBits_ = 0;
        camera_.spiInput(serialIn_);
    }
}

// ---- Time ----

void BridgeChip::runTimer(unsigned cycles)
{
    uint8_t& control = specialRegisters_[TIMER_CONTROL & 0x7F];
    if ((control & TIMER_RUNS) == 0)
        return;
    const unsigned divisor = (specialRegisters_[CLOCK_CONTROL & 0x7F] & TIMER_FAST) != 0 ? 4 : 12;
    timerClocks_ += 4 * cycles;
    const unsigned counts = timerClocks_ / divisor;
    timerClocks_ %= divisor;
    if (timer_ + counts > 0xFFFF) {
        const unsigned reload =
            specialRegisters_[TIMER_RELOAD_HIGH & 0x7F] * 256U + specialRegisters_[TIMER_RELOAD_LOW & 0x7F];
        timer_ = static_cast<uint16_t>(reload + (timer_ + counts - 0x10000) % (0x10000 - reload));
        control |= TIMER_OVERFLOW;
        touched_ = true;
    } else {
        timer_ = static_cast<uint16_t>(timer_ + counts);
    }
}

Ticks BridgeChip::timerOverflowsAt() const
{
    if ((specialRegisters_[TIMER_CONTROL & 0x7F] & TIMER_RUNS) == 0)
        return NO_TICK;
    const unsigned divisor = (specialRegisters_[CLOCK_CONTROL & 0x7F] & TIMER_FAST) != 0 ? 4 : 12;
    return now_ + Ticks{(0x10000U - timer_) * divisor - timerClocks_} * ticksPerCycle_ / 4;
}

void BridgeChip::passTime(unsigned cycles)
{
    cycles_ += cycles;
    now_ += Ticks{cycles} * ticksPerCycle_;
    runTimer(cycles);
    if (engine_.busy() && engine_.run(now_))
        touched_ = true;
}

void BridgeChip::run(Ticks until, unsigned watched)
{
    while (now_ < until && (watched == 0 || offered(watched) == nullptr)) {
        if (!running_) {
            (void)engine_.run(until);
            now_ = until;
            return;
        }
        passTime(core_.step());
        const uint8_t enabled = specialRegisters_[INTERRUPT_ENABLE & 0x7F];
        if ((enabled & INTERRUPTS_ON) != 0 && (enabled & TIMER_INTERRUPT) != 0 &&
            (specialRegisters_[TIMER_CONTROL & 0x7F] & TIMER_OVERFLOW) != 0 && core_.interrupt(TIMER_VECTOR))
            passTime(4);
        lookForLoop(until);
    }
}

/// A program that comes back to the same place with the same state, and did nothing on the way, goes round until
/// something changes around it. Such rounds need not be executed one by one.
void BridgeChip::lookForLoop(Ticks until)
{
    ++sinceMark_;
    if (!touched_ && coreState_.programCounter == mark_.programCounter && coreState_ == mark_) {
        loopTicks_ = now_ - markAt_;
        skipLoop(until);
    } else if (sinceMark_ >= patience_) {
        loopTicks_ = 0;
        patience_ = touched_ ? SHORT_LOOP : std::min(2 * patience_, LONGEST_LOOP);
    } else {
        loopTicks_ = touched_ ? 0 : loopTicks_;
        return;
    }
    mark_ = coreState_;
    markAt_ = now_;
    sinceMark_ = 0;
    touched_ = false;
}

void BridgeChip::skipLoop(Ticks until)
{
    const Ticks event = std::min({until, timerOverflowsAt(), engine_.nextEvent(), i2c_.busyUntil()});
    if (event <= now_ || loopTicks_ == 0)
        return;
    const Ticks rounds = (event - now_) / loopTicks_;
    const auto cycles = static_cast<uint64_t>(rounds * loopTicks_ / ticksPerCycle_);
    now_ += rounds * loopTicks_;
    cycles_ += cycles;
    if ((specialRegisters_[TIMER_CONTROL & 0x7F] & TIMER_RUNS) != 0)
        runTimer(static_cast<unsigned>(cycles));
    if (engine_.busy() && engine_.run(now_))
        touched_ = true;
}

Ticks BridgeChip::nextEvent() const
{
    if (!running_)
        return NO_TICK;
    if (loopTicks_ == 0 || touched_)
        return now_;
    return std::max(now_, std::min({timerOverflowsAt(), engine_.nextEvent(), i2c_.busyUntil()}));
}

}  // namespace vornsim
