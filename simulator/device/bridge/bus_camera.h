// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "device/usb/simulated_camera.h"
#include "device/usb/usb_device.h"

namespace vornsim {

/// What a camera has for the bridge on the 16-bit parallel bus at some moment. The first byte of each pair is the low
/// half of a bus word.
struct OfferedWords {
    std::span<const uint8_t> bytes;  ///< whole words that are ready now; valid until the camera is called again
    int64_t moreAtUs = NEVER;        ///< clock time at which more will be ready, as far as the camera knows
};

/// State of one 8-bit port of the bridge.
struct PortLines {
    uint8_t latch = 0;      ///< levels that output pins drive
    uint8_t direction = 0;  ///< 1: output
};

/// How words cross the parallel bus.
struct ParallelBus {
    enum class Kind {
        NONE,       ///< nothing is connected: no word ever passes
        HANDSHAKE,  ///< request and acknowledge, four phases a word (STANDARD)
        STROBED,    ///< the bridge waits for the camera's ready line and pulls a strobe (CLASSIC, QUICKER, ADVANCED)
    };
    Kind kind = Kind::NONE;
    int settlingClocks = 0;  ///< STROBED: clocks of 48 MHz from the strobe until the word on the bus is right
};

/// What an SPI exchange is for; the value is the sub-code with which a host asks the bridge for it.
enum class SpiMode : uint8_t {
    NONE = 0,       ///< no slave
    REGISTERS = 1,  ///< register writes of two bytes
    COMMANDS = 2,   ///< commands with their answers
};

/// A camera without its USB bridge: configuration EEPROM, command engine, sensor electronics and accessories, as the
/// bridge's pins and buses see them. It does not know what serves USB in front of it: the native bridge or an emulated
/// chip. The defaults are those of pins that nothing is connected to.
///
/// All calls are made in the order of time, on the time of the clock that the camera was made with; a front that keeps
/// a time of its own makes the camera with a clock that shows it. Times are in microseconds.
class BusCamera {
public:
    virtual ~BusCamera() = default;

    /// The bridge's program was started or started again. Call before the program does anything.
    virtual void bridgeStarted() {}

    /// @return what is really the case in the camera, for tests.
    virtual CameraTruth truth() const { return {}; }

    // ---- Ports ----

    /// The latch or the direction of port 0 to 4 (A to E) has changed; line L of the bridge is bit L & 7 of port
    /// L >> 3. Call for each change: cameras count edges.
    virtual void portChanged(unsigned port, const PortLines& lines) { (void)port, (void)lines; }

    /// @return the levels that the camera drives on a port; only pins that are inputs of the bridge are read.
    virtual uint8_t portInputs(unsigned port)
    {
        (void)port;
        return 0xFF;
    }

    // ---- I2C: the bridge is the master ----

    /// A start condition and an address. @param address 7 bits @return whether a slave acknowledged it.
    virtual bool i2cStart(uint8_t address, bool reading)
    {
        (void)address, (void)reading;
        return false;
    }

    /// A byte to the slave that acknowledged its address. @return whether it acknowledged the byte.
    virtual bool i2cWrite(uint8_t byte)
    {
        (void)byte;
        return false;
    }

    /// @return the next byte from the slave that acknowledged its address.
    virtual uint8_t i2cRead() { return 0xFF; }

    /// A stop condition. Slaves execute what was written now.
    virtual void i2cStop() {}

    // ---- SPI: the bridge is the master ----

    /// @return what the camera's SPI slave is for. The wires do not carry this; the native bridge compares it with what
    /// the host asked for.
    virtual SpiMode spiMode() const { return SpiMode::NONE; }

    /// The select line goes low (active).
    virtual void spiSelect() {}

    /// @return the byte that the slave sends next, highest bit first, while it receives one.
    virtual uint8_t spiOutput() { return 0xFF; }

    /// The byte that was received meanwhile.
    virtual void spiInput(uint8_t byte) { (void)byte; }

    /// The select line goes high. Register writes are executed now; commands as soon as their payload is complete.
    virtual void spiDeselect() {}

    // ---- Parallel bus ----

    virtual ParallelBus parallelBus() const { return {}; }

    /// Words the camera has ready at @p nowUs, from the oldest on. Nothing is taken by this call.
    virtual OfferedWords offeredWords(int64_t nowUs)
    {
        (void)nowUs;
        return {};
    }

    /// The bridge has taken the first @p byteCount bytes (even) of what was offered.
    virtual void wordsTaken(size_t byteCount) { (void)byteCount; }

    /// The words of one output transaction of the bridge, from its start until the bus rests again: an even number of
    /// bytes. A command must lie within one.
    virtual void wordsReceived(std::span<const uint8_t> bytes) { (void)bytes; }
};

}  // namespace vornsim
