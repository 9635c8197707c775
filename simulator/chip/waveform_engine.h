// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "chip_endpoint.h"
#include "chip_time.h"
#include "parallel_pins.h"

namespace vornsim {

/// The chip's waveform engine (GPIF): a machine of seven states and an idle state that moves words between the
/// parallel bus and the FIFOs, as the four waveforms in its memory say, one state a clock or longer.
///
/// | Offset | Size | A waveform                                                                                     |
/// |--------|------|------------------------------------------------------------------------------------------------|
/// | 0      | 8    | length in clocks (0: 256), or of a decision state: 7 act again, 5:3 and 2:0 next state if 1, 0 |
/// | 8      | 8    | 2 next FIFO word, 1 sample or drive data, 0 decision state                                     |
/// | 16     | 8    | levels of the control lines                                                                    |
/// | 24     | 8    | logic of a decision state: 7:6 AND, OR, XOR, NOT A AND B, 5:3 term A, 2:0 term B               |
///
/// Terms: 0 to 4 the ready lines, 5 the sixth or "the count has expired", 6 FIFO flag, 7 a bit that is always 0 here.
class WaveformEngine {
public:
    struct Settings {
        uint8_t interface = 0;      ///< IFCONFIG
        uint8_t readyPins = 0;      ///< GPIFREADYCFG
        uint8_t idleLevels = 0xFF;  ///< GPIFIDLECTL
        uint8_t selection = 0;      ///< GPIFWFSELECT: which wave serves what
        uint8_t flowState = 0;      ///< FLOWSTATE
    };
    using Memory = std::array<uint8_t, 128>;

    /// The references must outlive the engine.
    WaveformEngine(ParallelPins& pins, ChipEndpoint& source, ChipEndpoint& sink, FaultSink& faults)
        : pins_(pins), source_(source), sink_(sink), faults_(faults)
    {
    }

    Memory& memory() { return memory_; }
    Settings& settings() { return settings_; }

    /// Begins a FIFO transaction of @p words: into the sink when @p reading, else out of the source.
    void start(bool reading, uint32_t words, Ticks now);
    void abort(Ticks now);
    bool busy() const { return busy_; }
    /// Lets time pass up to @p until. @return whether anything happened besides waiting for the camera.
    bool run(Ticks until);
    /// @return when the engine does something next, as far as it knows; NO_TICK if nothing happens by itself.
    Ticks nextEvent() const;

private:
    void enter(unsigned state, Ticks now, bool again = false);
    unsigned decide(Ticks now);
    uint8_t entry(unsigned row) const { return memory_[wave_ * 32U + row * 8U + state_]; }

    ParallelPins& pins_;
    ChipEndpoint& source_;
    ChipEndpoint& sink_;
    FaultSink& faults_;
    Memory memory_{};
    Settings settings_;
    bool busy_ = false;
    bool reading_ = false;
    bool waiting_ = false;  // in a decision state that leads to itself
    unsigned wave_ = 0;
    unsigned state_ = 7;
    uint32_t wordsLeft_ = 0;
    Ticks nextAt_ = NO_TICK;  // end of the current state
};

}  // namespace vornsim
