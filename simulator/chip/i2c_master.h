// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "chip_time.h"
#include "device/bridge/bus_camera.h"

namespace vornsim {

/// The chip's I2C master with its three registers.
///
/// | Bit | Control and status                                    |
/// |-----|-------------------------------------------------------|
/// | 7   | START: a start condition before the next byte         |
/// | 6   | STOP: a stop condition; reads 1 until it is over      |
/// | 5   | LASTRD: no acknowledge for the next byte that is read |
/// | 2   | BERR: bus error, never set here                       |
/// | 1   | ACK: the slave acknowledged                           |
/// | 0   | DONE: a byte has been transferred                     |
class I2cMaster {
public:
    /// The references must outlive the master.
    I2cMaster(BusCamera& camera, FaultSink& faults) : camera_(camera), faults_(faults) {}

    void writeControl(uint8_t value, Ticks now);
    uint8_t readControl(Ticks now);
    void writeData(uint8_t value, Ticks now);
    uint8_t readData(Ticks now);
    void setFast(bool fast) { byteTicks_ = fast ? FAST_BYTE : SLOW_BYTE; }
    bool fast() const { return byteTicks_ == FAST_BYTE; }

    /// @return when the bus does something next; NO_TICK when it rests.
    Ticks busyUntil() const { return pending_ == Pending::NOTHING ? NO_TICK : doneAt_; }

    /// A slave holds the clock low: nothing that begins is ever done until it lets go.
    void hold(bool held, Ticks now);

private:
    enum class Pending { NOTHING, ADDRESS, OUTPUT, INPUT, STOP };
    static constexpr Ticks SLOW_BYTE = 90 * TICKS_PER_US;  // nine bits at 100 kHz
    static constexpr Ticks FAST_BYTE = 9 * TICKS_PER_US * 5 / 2;

    void begin(Pending what, Ticks now, Ticks duration);
    void finish(Ticks now);

    BusCamera& camera_;
    FaultSink& faults_;
    Ticks byteTicks_ = SLOW_BYTE;
    Pending pending_ = Pending::NOTHING;
    Ticks doneAt_ = 0;
    uint8_t data_ = 0;
    bool start_ = false;     // the next byte is an address
    bool lastRead_ = false;  // the next byte is not acknowledged
    bool notAcknowledged_ = false;
    bool reading_ = false;
    bool stopWanted_ = false;
    bool open_ = false;  // between start and stop
    bool acknowledged_ = false;
    bool done_ = false;
    bool held_ = false;
};

}  // namespace vornsim
