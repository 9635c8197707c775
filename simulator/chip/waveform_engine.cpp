// SPDX-License-Identifier: MIT
#include "waveform_engine.h"

#include <algorithm>

namespace vornsim {
namespace {

constexpr unsigned IDLE = 7;
constexpr unsigned LENGTH = 0, OPCODE = 1, OUTPUT = 2, LOGIC = 3;
constexpr uint8_t NEXT = 0x04, DATA = 0x02, DECISION = 0x01;
constexpr uint8_t ACT_AGAIN = 0x80;
constexpr uint8_t INTERFACE_MODE = 0xC3;  // own clock, 48 MHz, waveform engine in charge
constexpr uint8_t GOOD_MODE = 0xC2;
constexpr uint8_t COUNT_ON_READY_5 = 0x20;
constexpr uint8_t FLOW_ENABLED = 0x80;
constexpr unsigned WAVE_MASK = 3;

}  // namespace

void WaveformEngine::start(bool reading, uint32_t words, Ticks now)
{
    if (busy_)
        faults_.fault("waveform engine: started while it runs");
    if ((settings_.interface & INTERFACE_MODE) != GOOD_MODE)
        faults_.fault("waveform engine: started without its own clock of 48 MHz or while the pins are not its own");
    if ((settings_.flowState & FLOW_ENABLED) != 0)
        faults_.fault("waveform engine: flow states, which are not emulated");
    if (words == 0)
        faults_.fault("waveform engine: started for no word at all");
    busy_ = true;
    reading_ = reading;
    wordsLeft_ = words;
    wave_ = (settings_.selection >> (reading ? 0 : 2)) & WAVE_MASK;
    pins_.begin();
    enter(0, now);
}

void WaveformEngine::abort(Ticks now)
{
    if (!busy_)
        return;
    busy_ = false;
    nextAt_ = NO_TICK;
    pins_.setControls(settings_.idleLevels, false, 0, now);
    pins_.rest();
}

void WaveformEngine::enter(unsigned state, Ticks now, bool again)
{
    state_ = state;
    waiting_ = again;
    if (state == IDLE) {
        pins_.setControls(settings_.idleLevels, false, 0, now);
        if (wordsLeft_ == 0) {
            busy_ = false;
            nextAt_ = NO_TICK;
            pins_.rest();
        } else {
            nextAt_ = now + 1;
        }
        return;
    }
    const uint8_t opcode = entry(OPCODE);
    const bool decision = (opcode & DECISION) != 0;
    const uint8_t length = entry(LENGTH);
    nextAt_ = now + (decision ? 1 : length == 0 ? 256 : length);
    if (again && (length & ACT_AGAIN) == 0)
        return;
    const bool moves = (opcode & NEXT) != 0;
    const bool data = (opcode & DATA) != 0;
    pins_.setControls(entry(OUTPUT), !reading_ && data, reading_ ? uint16_t{0} : source_.nextWord(), now);
    if (reading_ && data) {
        sink_.putWord(pins_.data(now));
        wordsLeft_ -= wordsLeft_ > 0 ? 1U : 0U;
    } else if (!reading_ && moves) {
        source_.takeWord();
        wordsLeft_ -= wordsLeft_ > 0 ? 1U : 0U;
    }
}

/// @return the state that follows a decision state.
unsigned WaveformEngine::decide(Ticks now)
{
    const uint8_t ready = pins_.ready(now);
    const auto term = [&](unsigned number) -> bool {
        switch (number) {
            case 0:
            case 1:
                return ((ready >> number) & 1) != 0;
            case 5:
                return (settings_.readyPins & COUNT_ON_READY_5) != 0 && wordsLeft_ == 0;
            default:
                return false;
        }
    };
    const uint8_t logic = entry(LOGIC);
    const bool a = term((logic >> 3) & 7U);
    const bool b = term(logic & 7U);
    const bool results[] = {a && b, a || b, a != b, !a && b};
    const uint8_t branch = entry(LENGTH);
    return results[logic >> 6] ? (branch >> 3) & 7U : branch & 7U;
}

bool WaveformEngine::run(Ticks until)
{
    bool moved = false;
    while (busy_ && nextAt_ <= until) {
        const Ticks now = nextAt_;
        if (state_ == IDLE) {
            enter(0, now);
            moved = true;
        } else if ((entry(OPCODE) & DECISION) == 0) {
            enter((state_ + 1) & 7U, now);
            moved = true;
        } else {
            const unsigned next = decide(now);
            const bool again = next == state_;
            enter(next, now, again);
            moved = moved || !again;
            // Nothing changes until the camera does, so that a wait of a second costs no more than one of a clock.
            if (again && (entry(LENGTH) & ACT_AGAIN) == 0)
                nextAt_ = std::max(nextAt_, std::min(until + 1, pins_.readyChangesAt()));
        }
    }
    return moved;
}

Ticks WaveformEngine::nextEvent() const
{
    if (!busy_)
        return NO_TICK;
    return waiting_ ? std::max(nextAt_, pins_.readyChangesAt()) : nextAt_;
}

}  // namespace vornsim
