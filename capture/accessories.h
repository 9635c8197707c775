// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "capture/session.h"

namespace vorncapture {

/// What a filter wheel says. Positions are in the camera's own numbering.
struct WheelStatus {
    unsigned int count = 0;  ///< positions
    unsigned int current = 0;
    unsigned int target = 0;
    bool moving = false;
};

/// Reads the filter wheel. Errors: UNSUPPORTED and those of Session::operate().
Result<WheelStatus> readWheel(Session& session);

/// Turns the filter wheel to @p position and waits until it stands there.
/// Errors: UNSUPPORTED, BAD_REQUEST (no such position), FAILED (it is blocked), CANCELLED and those of
/// Session::operate().
Status turnWheel(Session& session, unsigned int position, const CancelToken* cancel = nullptr);

/// Opens or shuts the shutter. Errors: UNSUPPORTED and those of Session::operate().
Status moveShutter(Session& session, bool open);

/// The guide relays, one a direction; which way the stars move is a matter of the mount.
enum class GuideRelay : uint16_t { X_PLUS = 1, X_MINUS = 2, Y_PLUS = 4, Y_MINUS = 8 };

/// Longest guide pulse; more is a slip of the keyboard.
constexpr double LONGEST_PULSE_SECONDS = 60.0;

/// Closes a guide relay for @p seconds (above 0, at most LONGEST_PULSE_SECONDS) and opens it again, whatever happens in
/// between: an error and a cancellation too leave all relays open.
/// Errors: UNSUPPORTED, BAD_REQUEST (no such pulse), CANCELLED and those of Session::operate().
Status guidePulse(Session& session, GuideRelay relay, double seconds, const CancelToken* cancel = nullptr);

/// Sets which lines are outputs, drives them, reads them; a bit a line.
/// Errors: UNSUPPORTED, BAD_REQUEST (a bit beyond the last) and those of Session::operate().
Status setLineDirections(Session& session, uint16_t outputs);
Status driveLines(Session& session, uint16_t levels);
Result<uint16_t> readLines(Session& session);

constexpr int LARGEST_GAIN = 63;
constexpr int LARGEST_OFFSET = 512;

/// Gain (0 to LARGEST_GAIN) and offset (0 to LARGEST_OFFSET) of the readout.
struct GainSetting {
    int gain = 0;
    int offset = 0;
};

/// Errors: UNSUPPORTED, BAD_REQUEST (out of range) and those of Session::operate().
Result<GainSetting> readGain(Session& session);
Status setGain(Session& session, const GainSetting& setting);

}  // namespace vorncapture
