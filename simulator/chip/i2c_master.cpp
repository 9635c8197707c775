// SPDX-License-Identifier: MIT
#include "i2c_master.h"

namespace vornsim {
namespace {

constexpr uint8_t START = 0x80;
constexpr uint8_t STOP = 0x40;
constexpr uint8_t LAST_READ = 0x20;
constexpr uint8_t ACKNOWLEDGED = 0x02;
constexpr uint8_t DONE = 0x01;

}  // namespace

void I2cMaster::begin(Pending what, Ticks now, Ticks duration)
{
    pending_ = what;
    doneAt_ = held_ ? NO_TICK : now + duration;
    if (what != Pending::STOP)
        done_ = false;
}

/// Ends what is over by @p now.
void I2cMaster::finish(Ticks now)
{
    if (pending_ == Pending::NOTHING || now < doneAt_)
        return;
    const Pending ended = pending_;
    pending_ = Pending::NOTHING;
    done_ = ended != Pending::STOP;
    switch (ended) {
        case Pending::ADDRESS:
            reading_ = (data_ & 1) != 0;
            open_ = true;
            notAcknowledged_ = false;
            acknowledged_ = camera_.i2cStart(static_cast<uint8_t>(data_ >> 1), reading_);
            break;
        case Pending::OUTPUT:
            acknowledged_ = acknowledged_ && camera_.i2cWrite(data_);
            break;
        case Pending::INPUT:
            data_ = acknowledged_ ? camera_.i2cRead() : uint8_t{0xFF};
            break;
        case Pending::STOP:
            stopWanted_ = false;
            camera_.i2cStop();
            open_ = false;
            break;
        case Pending::NOTHING:
            break;
    }
}

void I2cMaster::hold(bool held, Ticks now)
{
    held_ = held;
    if (!held && doneAt_ == NO_TICK)
        doneAt_ = now + byteTicks_;
}

void I2cMaster::writeControl(uint8_t value, Ticks now)
{
    finish(now);
    if (stopWanted_ && (value & (START | STOP)) != 0)
        faults_.fault("I2C: a new condition while the bus is busy with a STOP");
    if ((value & START) != 0)
        start_ = true;
    if ((value & LAST_READ) != 0)
        lastRead_ = true;
    if ((value & STOP) != 0 && !stopWanted_) {
        if (pending_ != Pending::NOTHING && doneAt_ != NO_TICK)
            faults_.fault("I2C: STOP while a byte is on its way");
        if (open_ && reading_ && acknowledged_ && !notAcknowledged_)
            faults_.fault("I2C: STOP after a byte that was acknowledged, so that the slave keeps the bus");
        stopWanted_ = true;
        begin(Pending::STOP, now, byteTicks_ / 9);
    }
}

uint8_t I2cMaster::readControl(Ticks now)
{
    finish(now);
    return static_cast<uint8_t>((stopWanted_ ? STOP : 0) | (acknowledged_ ? ACKNOWLEDGED : 0) | (done_ ? DONE : 0));
}

void I2cMaster::writeData(uint8_t value, Ticks now)
{
    finish(now);
    if (pending_ != Pending::NOTHING) {
        if (doneAt_ != NO_TICK)
            faults_.fault("I2C: a byte is written while the bus is busy");
        return;
    }
    if (!start_ && (!open_ || reading_))
        faults_.fault("I2C: a byte is written without a start condition");
    data_ = value;
    begin(start_ ? Pending::ADDRESS : Pending::OUTPUT, now, byteTicks_);
    start_ = false;
}

uint8_t I2cMaster::readData(Ticks now)
{
    finish(now);
    const uint8_t value = data_;
    if (stopWanted_ || !open_ || !reading_) {
        done_ = false;
        return value;
    }
    if (pending_ != Pending::NOTHING) {
        if (doneAt_ != NO_TICK)
            faults_.fault("I2C: a byte is read while the bus is busy");
        return value;
    }
    if (notAcknowledged_)
        faults_.fault("I2C: a byte is read after the last one");
    notAcknowledged_ = lastRead_;
    lastRead_ = false;
    begin(Pending::INPUT, now, byteTicks_);
    return value;
}

}  // namespace vornsim
