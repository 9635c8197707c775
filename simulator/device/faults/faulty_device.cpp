// SPDX-License-Identifier: MIT
#include "faulty_device.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace vornsim {
namespace {

constexpr uint8_t DIRECTION_IN = 0x80;
constexpr uint8_t RECIPIENT_ENDPOINT = 2;
constexpr uint8_t REQUEST_CLEAR_FEATURE = 1;

int64_t microseconds(double seconds)
{
    return static_cast<int64_t>(seconds * 1e6);
}

/// @return @p length without the last @p missing bytes.
size_t shortened(size_t length, uint64_t missing)
{
    return missing < length ? length - static_cast<size_t>(missing) : 0;
}

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

}  // namespace

void FaultyDevice::Counter::restart(FaultRule::Since since, uint64_t occasion)
{
    if (rule.since != since)
        return;
    if (rule.occasion == FaultRule::EVERY || rule.occasion == occasion) {
        counting = true;
        seen = 0;
    } else if (seen < rule.transfer) {
        counting = false;  // its time has passed; a rule that has begun to hurt goes on
    }
}

bool FaultyDevice::Counter::hits(uint8_t address)
{
    if (!counting || !rule.endpoints.contain(address))
        return false;
    ++seen;
    return seen >= rule.transfer && seen - rule.transfer < rule.times;
}

FaultyDevice::FaultyDevice(Maker make, const std::vector<FaultRule>& rules, const Clock& clock, DeviceLog& log)
    : make_(std::move(make)), clock_(clock), log_(log)
{
    for (const FaultRule& rule : rules)
        counters_.push_back({rule, rule.since == FaultRule::Since::START, 0});
    plugIn();
}

void FaultyDevice::plugIn()
{
    device_ = make_();
    camera_ = dynamic_cast<const SimulatedCamera*>(device_.get());
    transfers_.clear();
    halted_.clear();
    replug_ = {};
    gone_ = claimed_ = integrating_ = false;
    frameCount_ = 0;
}

ControlResult FaultyDevice::control(const SetupPacket& setup, std::span<uint8_t> data)
{
    const auto address = static_cast<uint8_t>(setup.requestType & DIRECTION_IN);
    Transfer& transfer = current(address);
    std::optional<BulkResult> result = answerItself(address, transfer);
    if (!result) {
        const bool garbage = transfer.fault && transfer.fault->kind == FaultKind::GARBAGE;
        if (garbage && address == 0)
            garble(data);
        if (setup.requestType == RECIPIENT_ENDPOINT && setup.request == REQUEST_CLEAR_FEATURE)
            halted_.erase(static_cast<uint8_t>(setup.index));
        const ControlResult answer = device_->control(setup, data);
        result = {answer.status, answer.length, answer.complete, answer.retryAtUs};
        if (garbage && address != 0)
            garble(data.first(std::min(answer.length, data.size())));
        if (transfer.fault && transfer.fault->kind == FaultKind::SHORT)
            result->length = shortened(result->length, transfer.fault->missing);
    }
    finish(address, *result);
    return {result->status, result->length, result->complete, result->retryAtUs};
}

bool FaultyDevice::setInterface(unsigned interface, unsigned alternate)
{
    if (gone_)
        return false;
    halted_.clear();
    if (alternate == 0)
        claimed_ = false;
    else if (!std::exchange(claimed_, true))  // not every transport tells of claims
        restartCounters(FaultRule::Since::OPENING, ++openingCount_);
    return device_->setInterface(interface, alternate);
}

BulkResult FaultyDevice::bulkOut(uint8_t endpoint, std::span<const uint8_t> data)
{
    Transfer& transfer = current(endpoint);
    if (const auto result = answerItself(endpoint, transfer))
        return finish(endpoint, *result);
    if (transfer.fault && transfer.fault->kind == FaultKind::SHORT) {
        const auto part = data.first(shortened(data.size(), transfer.fault->missing));
        BulkResult result = part.empty() ? BulkResult{} : device_->bulkOut(endpoint, part);
        result.complete = result.complete || result.length == part.size();
        return finish(endpoint, result);
    }
    if (transfer.fault && transfer.fault->kind == FaultKind::GARBAGE) {
        std::vector<uint8_t> garbled(data.begin(), data.end());
        garble(garbled);
        return finish(endpoint, device_->bulkOut(endpoint, garbled));
    }
    return finish(endpoint, device_->bulkOut(endpoint, data));
}

BulkResult FaultyDevice::bulkIn(uint8_t endpoint, std::span<uint8_t> buffer)
{
    Transfer& transfer = current(endpoint);
    if (const auto result = answerItself(endpoint, transfer))
        return finish(endpoint, *result);
    const std::span<uint8_t> rest = buffer.subspan(std::min(transfer.held, buffer.size()));
    BulkResult result = device_->bulkIn(endpoint, rest);
    if (transfer.fault && transfer.fault->kind == FaultKind::GARBAGE)
        garble(rest.first(std::min(result.length, rest.size())));
    if (transfer.fault && transfer.fault->kind == FaultKind::SHORT) {
        // Which bytes are the last ones shows at the end.
        const size_t length = transfer.held + result.length;
        const bool over = result.complete || result.length >= rest.size();
        transfer.held = over ? 0 : length;
        result.length = over ? shortened(length, transfer.fault->missing) : 0;
        result.complete = over;
    }
    result.complete = result.complete || (result.length >= rest.size() && !rest.empty());
    return finish(endpoint, result);
}

bool FaultyDevice::hostMay(HostAction action, uint8_t address)
{
    if (action == HostAction::CLAIM) {
        claimed_ = true;
        restartCounters(FaultRule::Since::OPENING, ++openingCount_);
    }
    for (Counter& counter : counters_) {
        const FaultKind kind = action == HostAction::CLAIM ? FaultKind::BUSY : FaultKind::NO_MEMORY;
        if (counter.rule.kind != kind || !counter.hits(address))
            continue;
        log_.note("fault: " + describe(counter.rule) + (action == HostAction::CLAIM ? "" : endpointName(address)));
        return false;
    }
    return true;
}

FaultyDevice::Transfer& FaultyDevice::current(uint8_t address)
{
    const auto [found, isNew] = transfers_.try_emplace(address);
    Transfer& transfer = found->second;
    if (!isNew || gone_)
        return transfer;
    for (Counter& counter : counters_) {
        const bool ofTheHost = counter.rule.kind == FaultKind::BUSY || counter.rule.kind == FaultKind::NO_MEMORY;
        if (ofTheHost || !counter.hits(address) || transfer.fault)
            continue;
        transfer.fault = &counter.rule;
        transfer.notBeforeUs = clock_.nowUs() + microseconds(counter.rule.seconds);
        log_.note("fault: " + describe(counter.rule) + endpointName(address));
    }
    return transfer;
}

std::optional<BulkResult> FaultyDevice::answerItself(uint8_t address, const Transfer& transfer)
{
    if (gone_)
        return BulkResult{TransferStatus::GONE, 0, true};
    if (halted_.count(address))
        return BulkResult{TransferStatus::STALL, 0, true};
    if (!transfer.fault)
        return std::nullopt;
    switch (transfer.fault->kind) {
        case FaultKind::UNPLUG:
            unplug(*transfer.fault);
            return BulkResult{TransferStatus::GONE, 0, true};
        case FaultKind::STALL:
            if ((address & ~DIRECTION_IN) != 0)  // endpoint 0 recovers by itself
                halted_.insert(address);
            return BulkResult{TransferStatus::STALL, 0, true};
        case FaultKind::BABBLE:
            return BulkResult{TransferStatus::BABBLE, 0, true};
        case FaultKind::IO_ERROR:
            return BulkResult{TransferStatus::IO_ERROR, 0, true};
        case FaultKind::SILENCE:
            return BulkResult{};
        case FaultKind::LATE_ANSWER:
            if (clock_.nowUs() < transfer.notBeforeUs)
                return BulkResult{TransferStatus::OK, 0, false, transfer.notBeforeUs};
            return std::nullopt;
        case FaultKind::NO_MEMORY:
        case FaultKind::BUSY:
        case FaultKind::SHORT:
        case FaultKind::GARBAGE:
            break;
    }
    return std::nullopt;
}

BulkResult FaultyDevice::finish(uint8_t address, BulkResult result)
{
    if (result.complete || result.status != TransferStatus::OK)
        transfers_.erase(address);
    if (!gone_)
        noticeExposure();
    return result;
}

void FaultyDevice::unplug(const FaultRule& rule)
{
    gone_ = true;
    replug_.atUs = rule.replugSeconds ? clock_.nowUs() + microseconds(*rule.replugSeconds) : NEVER;
    replug_.samePort = rule.samePort;
}

void FaultyDevice::noticeExposure()
{
    if (!camera_)
        return;
    const CameraTruth truth = camera_->truth();
    const bool begun = !integrating_ && (truth.integrating || truth.frameCount > frameCount_);
    integrating_ = truth.integrating;
    frameCount_ = truth.frameCount;
    if (begun)
        restartCounters(FaultRule::Since::EXPOSURE, ++exposureCount_);
}

void FaultyDevice::restartCounters(FaultRule::Since since, uint64_t occasion)
{
    for (Counter& counter : counters_)
        counter.restart(since, occasion);
}

void FaultyDevice::garble(std::span<uint8_t> bytes)
{
    for (uint8_t& byte : bytes) {
        random_ = random_ * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(random_ >> 24);
    }
}

}  // namespace vornsim
