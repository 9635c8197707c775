// SPDX-License-Identifier: MIT
#include "parallel_pins.h"

namespace vornsim {
namespace {

constexpr uint8_t CTL0 = 0x01;
constexpr uint8_t CTL1 = 0x02;
constexpr uint8_t CTL2 = 0x04;
constexpr uint8_t RDY0 = 0x01;
constexpr uint8_t RDY1 = 0x02;
constexpr Ticks LOOK_AGAIN = 10 * TICKS_PER_US;
constexpr uint16_t FLOATING = 0xA5C3;  // a word that nobody drives yet

}  // namespace

void ParallelPins::begin()
{
    settle();
    received_.clear();
    bus_ = camera_.parallelBus();
}

void ParallelPins::settle()
{
    if (taken_ > 0)
        camera_.wordsTaken(taken_);
    taken_ = 0;
    known_ = false;
    changesAt_ = NO_TICK;
}

void ParallelPins::rest()
{
    settle();
    if (!received_.empty())
        camera_.wordsReceived(received_);
    received_.clear();
}

bool ParallelPins::wordAvailable(Ticks now)
{
    if (known_ && taken_ < offered_.bytes.size())
        return true;
    if (!known_ || taken_ > 0 || now >= changesAt_) {
        settle();
        offered_ = camera_.offeredWords(now / TICKS_PER_US);
        known_ = true;
        // Cameras say when a good deal more is ready; some of it is there before.
        changesAt_ = offered_.moreAtUs == NEVER ? NO_TICK : now + LOOK_AGAIN;
    }
    return !offered_.bytes.empty();
}

void ParallelPins::takeWord(Ticks now)
{
    if (!wordAvailable(now)) {
        faults_.fault("parallel bus: a word is taken where the camera has none");
        word_ = FLOATING;
        return;
    }
    word_ = static_cast<uint16_t>(offered_.bytes[taken_] | offered_.bytes[taken_ + 1] << 8);
    taken_ += 2;
}

void ParallelPins::setControls(uint8_t levels, bool driving, uint16_t word, Ticks now)
{
    const auto fallen = static_cast<uint8_t>(controls_ & ~levels);
    const auto risen = static_cast<uint8_t>(~controls_ & levels);
    controls_ = levels;
    const auto receive = [&] {
        received_.push_back(static_cast<uint8_t>(word & 0xFF));
        received_.push_back(static_cast<uint8_t>(word >> 8));
        if (!driving)
            faults_.fault("parallel bus: the bridge writes a word without driving the bus");
    };
    switch (bus_.kind) {
        case ParallelBus::Kind::HANDSHAKE:
            if ((fallen & CTL0) != 0)
                requested_ = true;
            if ((risen & CTL0) != 0)
                requested_ = acknowledged_ = false;
            if (requested_ && !acknowledged_ && (levels & CTL1) != 0) {
                receive();
                acknowledged_ = true;
            }
            return;
        case ParallelBus::Kind::STROBED:
            if ((fallen & CTL1) == 0)
                return;
            if ((levels & CTL2) != 0) {
                receive();
            } else {
                takeWord(now);
                wordFrom_ = now + bus_.settlingClocks;
            }
            return;
        case ParallelBus::Kind::NONE:
            return;
    }
}

uint8_t ParallelPins::ready(Ticks now)
{
    switch (bus_.kind) {
        case ParallelBus::Kind::HANDSHAKE:
            if (requested_ && !acknowledged_ && wordAvailable(now)) {
                takeWord(now);
                wordFrom_ = now;
                acknowledged_ = true;
            }
            return acknowledged_ ? 0 : RDY0 | RDY1;
        case ParallelBus::Kind::STROBED:
            return static_cast<uint8_t>((wordAvailable(now) ? RDY0 : 0) | RDY1);
        case ParallelBus::Kind::NONE:
            return RDY0 | RDY1;
    }
    return 0;
}

uint16_t ParallelPins::data(Ticks now) const
{
    return now >= wordFrom_ ? word_ : FLOATING;
}

}  // namespace vornsim
