// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vornsim {

/// What goes wrong.
enum class FaultKind {
    UNPLUG,       ///< the device leaves the bus
    STALL,        ///< a bulk endpoint stays halted until the host clears it
    BABBLE,       ///< the device sends more than it was asked for
    IO_ERROR,     ///< no handshake
    SILENCE,      ///< no answer until the host gives up
    NO_MEMORY,    ///< the host's system has no memory for the transfer
    BUSY,         ///< the interface seems to belong to another program
    SHORT,        ///< the last bytes are missing
    GARBAGE,      ///< all bytes are random ones
    LATE_ANSWER,  ///< the answer takes its time
};

/// One thing that shall go wrong with a simulated camera, and when.
struct FaultRule {
    /// From when on transfers are counted.
    enum class Since {
        START,
        OPENING,   ///< a program takes the camera's interface
        EXPOSURE,  ///< an exposure has begun; the command that begins it is not counted
    };

    /// Which transfers are counted: those whose endpoint, with the direction in bit 7, has @ref value in the bits of
    /// @ref mask.
    struct Endpoints {
        uint8_t mask = 0;
        uint8_t value = 0;
        bool contain(uint8_t address) const { return (address & mask) == value; }
    };

    static constexpr uint64_t FOR_EVER = UINT64_MAX;
    static constexpr uint64_t EVERY = 0;

    FaultKind kind = FaultKind::UNPLUG;
    uint64_t camera = 1;
    Since since = Since::START;
    uint64_t occasion = 1;  ///< which opening or exposure, or EVERY
    Endpoints endpoints;
    uint64_t transfer = 1;  ///< the first that is affected
    uint64_t times = 1;     ///< how many in a row, or FOR_EVER
    uint64_t missing = 0;   ///< SHORT: bytes
    double seconds = 0;     ///< LATE_ANSWER: how late
    std::optional<double> replugSeconds;
    bool samePort = true;
};

/// @return @p seconds of a rule in the clock's unit.
constexpr int64_t microseconds(double seconds)
{
    return static_cast<int64_t>(seconds * 1e6);
}

/// The language that parseFault() reads, with examples, for people.
extern const char* const FAULT_HELP;

/// Reads a rule such as "exposure=2,transfer=17,error=NO_DEVICE,replug=3". @return the rule, or a text that says what
/// is wrong and what is allowed.
std::variant<FaultRule, std::string> parseFault(std::string_view text);

}  // namespace vornsim
