// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "chip_time.h"
#include "device/bridge/bus_camera.h"

namespace vornsim {

/// The camera's end of the parallel bus, as levels on wires:
///
/// | Line | HANDSHAKE                       | STROBED                         |
/// |------|---------------------------------|---------------------------------|
/// | CTL0 | request, low                    | -                               |
/// | CTL1 | direction, 0: camera to bridge  | strobe, low                     |
/// | CTL2 | -                               | direction, 0: camera to bridge  |
/// | RDY0 | acknowledge, low                | a word is there                 |
/// | RDY1 | acknowledge, low                | there is room for a word        |
class ParallelPins {
public:
    ParallelPins(BusCamera& camera, FaultSink& faults) : camera_(camera), faults_(faults) {}

    /// The bridge begins a transaction, which ends with rest().
    void begin();
    void rest();
    /// The camera is about to be called for something else: what was taken from it becomes known to it.
    void settle();

    /// The bridge drives its control lines (bit n: CTLn), and @p word when @p driving.
    void setControls(uint8_t levels, bool driving, uint16_t word, Ticks now);
    /// @return the levels of the control lines (bit n: CTLn).
    uint8_t controls() const { return controls_; }
    /// @return the levels of RDY0 (bit 0) and RDY1 (bit 1).
    uint8_t ready(Ticks now);
    /// @return when these levels may change by themselves.
    Ticks readyChangesAt() const { return changesAt_; }
    /// @return what the camera drives.
    uint16_t data(Ticks now) const;

private:
    bool wordAvailable(Ticks now);
    void takeWord(Ticks now);

    BusCamera& camera_;
    FaultSink& faults_;
    ParallelBus bus_;
    OfferedWords offered_;
    bool known_ = false;  // offered_ is what the camera has
    size_t taken_ = 0;    // bytes of it
    uint8_t controls_ = 0xFF;
    uint16_t word_ = 0xFFFF;
    Ticks wordFrom_ = 0;         // when word_ is right
    bool acknowledged_ = false;  // HANDSHAKE: answers the request
    bool requested_ = false;
    Ticks changesAt_ = NO_TICK;
    std::vector<uint8_t> received_;  // words from the bridge in this transaction
};

}  // namespace vornsim
