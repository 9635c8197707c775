// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace vornsim {

/// A filter wheel. Positions are numbered from 1, as engraved on the wheel. It turns the shorter way round; at power-up
/// it looks for position 1 for HOMING_US.
class FilterWheel {
public:
    static constexpr int64_t US_PER_POSITION = 800000;
    static constexpr int64_t HOMING_US = 5500000;

    /// @p count 0: there is no wheel.
    FilterWheel(unsigned count, int64_t nowUs);

    unsigned count() const { return count_; }
    bool moving(int64_t nowUs) const { return nowUs < arrivesAtUs_; }
    /// @return the position in the light path; while the wheel moves, the one it started from.
    unsigned current(int64_t nowUs) const { return moving(nowUs) ? start_ : target_; }
    unsigned target() const { return target_; }

    /// Starts a move. @return false when there is no such position.
    bool moveTo(unsigned position, int64_t nowUs);

private:
    unsigned count_;
    unsigned start_ = 1;
    unsigned target_ = 1;
    int64_t arrivesAtUs_ = 0;
};

/// A mount that is moved through the camera's guide relays: while one is closed the stars drift across the sensor.
/// Relay 0 moves them right, 1 left, 2 down, 3 up.
class GuidedMount {
public:
    static constexpr double PIXELS_PER_S = 4.0;

    /// Sets which relays are closed (bit n: relay n).
    void setRelays(uint8_t closed, int64_t nowUs);
    uint8_t relays() const { return closed_; }

    /// @return how far the stars have moved since power-up, in pixels.
    double driftX(int64_t nowUs) const { return x_ + axis(0) * seconds(nowUs); }
    double driftY(int64_t nowUs) const { return y_ + axis(2) * seconds(nowUs); }

private:
    double axis(unsigned firstRelay) const;
    double seconds(int64_t nowUs) const { return static_cast<double>(nowUs - sinceUs_) * 1e-6; }

    uint8_t closed_ = 0;
    int64_t sinceUs_ = 0;
    double x_ = 0.0;
    double y_ = 0.0;
};

/// A mechanical shutter, and the time it lets light in.
class Shutter {
public:
    /// @p present false: nothing ever covers the sensor.
    explicit Shutter(bool present) : present_(present), open_(!present) {}

    bool present() const { return present_; }
    bool open() const { return open_; }
    void set(bool open, int64_t nowUs);

    /// Starts to measure the light of a new integration.
    void beginIntegration(int64_t nowUs);
    /// @return seconds of light since then.
    double lightSeconds(int64_t nowUs) const;

private:
    bool present_;
    bool open_;
    int64_t sinceUs_ = 0;
    double seconds_ = 0.0;
};

}  // namespace vornsim
