// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "device/usb/simulated_camera.h"
#include "fault_rule.h"

namespace vornsim {

/// When and where an unplugged camera is plugged in again.
struct Replug {
    int64_t atUs = NEVER;  ///< clock time
    bool samePort = true;  ///< false: in the next port that is free
};

/// What goes wrong with one camera. The queue of its transfers reports what happens on the bus and asks which transfers
/// are to fail; it makes them fail itself. A plan without rules affects nothing.
class FaultPlan {
public:
    /// The rules are asked in their order. @p clock and @p log must outlive the plan.
    FaultPlan(const std::vector<FaultRule>& rules, const Clock& clock, DeviceLog& log);

    bool empty() const { return counters_.empty(); }

    /// A program wants the camera's interface for itself. @return false when it shall seem to be taken.
    bool mayClaim();

    /// A program hands over a transfer on an endpoint (direction in bit 7). @return false when the host's system shall
    /// have no memory for it.
    bool maySubmit(uint8_t address);

    /// A transfer begins. @return what goes wrong with it, valid as long as the plan, or null.
    const FaultRule* beginTransfer(uint8_t address);

    /// An alternate setting was selected: one with endpoints is an opening, where no claim was reported before.
    void alternateSelected(unsigned alternate);

    /// A transfer has moved on; @p truth shows whether an exposure has begun with it.
    void transferMoved(const CameraTruth& truth);

    /// The camera leaves the bus because of @p rule, or is back.
    void unplugged(const FaultRule& rule);
    void pluggedIn();
    const Replug& replug() const { return replug_; }

    /// Makes random bytes of @p bytes.
    void garble(std::span<uint8_t> bytes);

private:
    /// A rule with what it has seen.
    struct Counter {
        FaultRule rule;
        bool counting = false;
        uint64_t seen = 0;

        /// A new opening or exposure has begun.
        void restart(FaultRule::Since since, uint64_t occasion);
        /// Counts a transfer. @return whether it is affected.
        bool hits(uint8_t address);
    };

    bool refuses(FaultKind kind, uint8_t address, const std::string& where);
    void restartCounters(FaultRule::Since since, uint64_t occasion);

    const Clock& clock_;
    DeviceLog& log_;
    std::vector<Counter> counters_;
    Replug replug_;
    bool claimed_ = false;
    uint64_t openingCount_ = 0;
    uint64_t exposureCount_ = 0;
    bool integrating_ = false;
    uint64_t frameCount_ = 0;
    uint32_t random_ = 1;
};

}  // namespace vornsim
