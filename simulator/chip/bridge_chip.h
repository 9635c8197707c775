// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <span>
#include <string>

#include "chip_endpoint.h"
#include "chip_time.h"
#include "i2c_master.h"
#include "mcs51.h"
#include "parallel_pins.h"
#include "waveform_engine.h"

namespace vornsim {

/// The USB bridge chip of a camera, executing whatever program was loaded into it: 8051 core, 8 KiB of memory, four
/// large endpoints, I2C master, timer 2, autopointers, ports and waveform engine. Of what the program does wrong it
/// complains once, in the words "chip: ..."; a program that leaves its memory stands still from then on.
///
/// Descriptors and standard requests belong to the chip's own hardware and are not here.
class BridgeChip final : private Mcs51Surroundings, private FaultSink {
public:
    static constexpr size_t MEMORY_LENGTH = 0x2000;

    /// The references must outlive the chip. @param highSpeed packets of 512 bytes, else of 64
    /// @param start the time at which it is powered up
    BridgeChip(BusCamera& camera, DeviceLog& log, bool highSpeed, Ticks start);

    // ---- What the host does to the chip over endpoint 0 ----

    /// Reads or writes program memory; @p address must be below MEMORY_LENGTH.
    uint8_t peek(uint16_t address) const { return memory_[address]; }
    void poke(uint16_t address, uint8_t value);
    /// CPUCS as the host sees and writes it: bit 0 holds the core.
    uint8_t cpuControl() const { return cpuControl_; }
    void setCpuControl(uint8_t value);

    // ---- Bulk endpoints: 2 and 4 take packets, 6 and 8 offer them; NAK unless they do ----

    bool accepts(unsigned endpoint) const { return !nakAll_ && fifo(endpoint).acceptsPacket(); }
    void receive(unsigned endpoint, std::span<const uint8_t> packet);
    const ChipEndpoint::Packet* offered(unsigned endpoint) const;
    void fetched(unsigned endpoint);
    size_t packetLength() const { return fifos_[0].packetLength(); }

    // ---- Time ----

    Ticks now() const { return now_; }
    /// Executes up to @p until. @param watched an endpoint: returns as soon as it offers a packet; 0: none
    void run(Ticks until, unsigned watched = 0);
    /// @return when something may happen on an endpoint without the host: at once, unless the program has been seen to
    /// wait in a loop.
    Ticks nextEvent() const;

    bool running() const { return running_; }
    I2cMaster& i2c() { return i2c_; }
    uint8_t controlLevels() const { return pins_.controls(); }  ///< of the parallel bus, bit n: CTLn
    const PortLines& port(unsigned number) const { return ports_[number]; }

private:
    // The core's surroundings.
    uint8_t readCode(uint16_t address) override;
    uint8_t readData(uint16_t address) override;
    void writeData(uint16_t address, uint8_t value) override;
    uint8_t readRegister(uint8_t address) override;
    void writeRegister(uint8_t address, uint8_t value) override;
    void updatesRegister(uint8_t address) override;
    void undefinedOpcode(uint16_t address) override;

    void fault(const char* text) override;
    void crash(const char* text);

    ChipEndpoint& fifo(unsigned endpoint) { return fifos_[endpoint / 2 - 1]; }
    const ChipEndpoint& fifo(unsigned endpoint) const { return fifos_[endpoint / 2 - 1]; }

    uint8_t readChipRegister(uint8_t offset);
    void writeChipRegister(uint8_t offset, uint8_t value);
    void writeEndpointRegister(uint8_t offset, uint8_t value);
    void resetFifo(uint8_t value);
    void checkDelay();
    uint8_t endpointStatus() const;
    void trigger(uint8_t value);
    uint8_t throughAutopointer(unsigned number, bool writing, uint8_t value);
    uint8_t pinsOf(unsigned port);
    void portRegisterWritten(unsigned port);
    void serialPinsChanged();

    void passTime(unsigned cycles);
    void runTimer(unsigned cycles);
    Ticks timerOverflowsAt() const;
    void lookForLoop(Ticks until);
    void skipLoop(Ticks until);

    BusCamera& camera_;
    DeviceLog& log_;
    std::set<std::string> faults_;  // complained about

    Mcs51 core_;
    Mcs51::State& coreState_;
    std::array<uint8_t, MEMORY_LENGTH> memory_{};
    std::array<uint8_t, 0x200> scratch_{};          // data memory at 0xE000
    std::array<uint8_t, 0x100> registers_{};        // 0xE600; those with a meaning of their own are elsewhere
    std::array<uint8_t, 0x80> specialRegisters_{};  // 0x80 of internal memory, likewise
    std::array<ChipEndpoint, 4> fifos_;             // 2, 4, 6, 8
    ParallelPins pins_;
    WaveformEngine engine_;
    I2cMaster i2c_;
    std::array<PortLines, 5> ports_{};

    uint8_t cpuControl_ = 0x03;  // held, 12 MHz
    bool running_ = false;
    bool highSpeed_;
    bool nakAll_ = false;
    Ticks now_;
    Ticks ticksPerCycle_ = 16;
    uint64_t cycles_ = 0;
    uint64_t delayedWriteAt_ = 0;  // when a register was written last that needs time
    bool delayedWrite_ = false;

    uint16_t timer_ = 0;
    unsigned timerClocks_ = 0;

    // SPI: what the camera's slave sees on the lines of port A.
    uint8_t serialLevels_ = 0xFF;
    unsigned serialBits_ = 0;
    uint8_t serialIn_ = 0;   // towards the camera
    uint8_t serialOut_ = 0;  // towards the bridge
    unsigned serialOutBits_ = 0;

    // Recognition of loops that only wait.
    Mcs51::State mark_;
    Ticks markAt_ = 0;
    unsigned sinceMark_ = 0;  // instructions
    unsigned patience_ = 64;  // after so many another mark is set
    bool touched_ = true;     // something happened since the mark that the core's state does not show
    Ticks loopTicks_ = 0;     // duration of the loop in which the program waits; 0: it does not
};

}  // namespace vornsim
