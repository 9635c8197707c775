// SPDX-License-Identifier: MIT
#include "fault_plan.h"

#include <array>
#include <cstdio>
#include <utility>

namespace vornsim {
namespace {

/// What went wrong, for the log.
std::string describe(const FaultRule& rule)
{
    switch (rule.kind) {
        case FaultKind::UNPLUG:
            return "unplugged";
        case FaultKind::STALL:
            return "stalled";
        case FaultKind::BABBLE:
            return "too much sent";
        case FaultKind::IO_ERROR:
            return "no handshake";
        case FaultKind::SILENCE:
            return "no answer";
        case FaultKind::NO_MEMORY:
            return "the host is out of memory";
        case FaultKind::BUSY:
            return "busy";
        case FaultKind::SHORT:
            return std::to_string(rule.missing) + " bytes missing";
        case FaultKind::GARBAGE:
            return "garbage";
        case FaultKind::LATE_ANSWER:
            return std::to_string(rule.seconds) + " s late";
    }
    return "";
}

std::string endpointName(uint8_t address)
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), " on 0x%02x", address);
    return text.data();
}

bool isOfTheHost(FaultKind kind)
{
    return kind == FaultKind::BUSY || kind == FaultKind::NO_MEMORY;
}

}  // namespace

void FaultPlan::Counter::restart(FaultRule::Since since, uint64_t occasion)
{
    if (rule.since != since)
        return;
    if (rule.occasion == FaultRule::EVERY || rule.occasion == occasion) {
        counting = true;
        seen = 0;
    } else if (seen < rule.transfer) {
        counting = false;  // its time has passed; a rule that has begun to take effect goes on
    }
}

bool FaultPlan::Counter::hits(uint8_t address)
{
    if (!counting || !rule.endpoints.contain(address))
        return false;
    ++seen;
    return seen >= rule.transfer && seen - rule.transfer < rule.times;
}

FaultPlan::FaultPlan(const std::vector<FaultRule>& rules, const Clock& clock, DeviceLog& log) : clock_(clock), log_(log)
{
    for (const FaultRule& rule : rules)
        counters_.push_back({rule, rule.since == FaultRule::Since::START, 0});
}

bool FaultPlan::mayClaim()
{
    claimed_ = true;
    restartCounters(FaultRule::Since::OPENING, ++openingCount_);
    return !refuses(FaultKind::BUSY, 0, "");
}

bool FaultPlan::maySubmit(uint8_t address)
{
    return !refuses(FaultKind::NO_MEMORY, address, endpointName(address));
}

bool FaultPlan::refuses(FaultKind kind, uint8_t address, const std::string& where)
{
    for (Counter& counter : counters_) {
        if (counter.rule.kind != kind || !counter.hits(address))
            continue;
        log_.note("fault: " + describe(counter.rule) + where);
        return true;
    }
    return false;
}

const FaultRule* FaultPlan::beginTransfer(uint8_t address)
{
    const FaultRule* fault = nullptr;
    for (Counter& counter : counters_)  // all count it
        if (!isOfTheHost(counter.rule.kind) && counter.hits(address) && fault == nullptr)
            fault = &counter.rule;
    if (fault != nullptr)
        log_.note("fault: " + describe(*fault) + endpointName(address));
    return fault;
}

void FaultPlan::alternateSelected(unsigned alternate)
{
    if (alternate == 0)
        claimed_ = false;
    else if (!std::exchange(claimed_, true))
        restartCounters(FaultRule::Since::OPENING, ++openingCount_);
}

void FaultPlan::transferMoved(const CameraTruth& truth)
{
    const bool begun = !integrating_ && (truth.integrating || truth.frameCount > frameCount_);
    integrating_ = truth.integrating;
    frameCount_ = truth.frameCount;
    if (begun)
        restartCounters(FaultRule::Since::EXPOSURE, ++exposureCount_);
}

void FaultPlan::unplugged(const FaultRule& rule)
{
    replug_.atUs = rule.replugSeconds ? clock_.nowUs() + microseconds(*rule.replugSeconds) : NEVER;
    replug_.samePort = rule.samePort;
}

void FaultPlan::pluggedIn()
{
    replug_ = {};
    claimed_ = integrating_ = false;
    frameCount_ = 0;
}

void FaultPlan::restartCounters(FaultRule::Since since, uint64_t occasion)
{
    for (Counter& counter : counters_)
        counter.restart(since, occasion);
}

void FaultPlan::garble(std::span<uint8_t> bytes)
{
    for (uint8_t& byte : bytes) {
        random_ = random_ * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(random_ >> 24);
    }
}

}  // namespace vornsim
