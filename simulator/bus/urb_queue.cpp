// SPDX-License-Identifier: MIT
#include "urb_queue.h"

#include <algorithm>
#include <cerrno>

#include "device/usb/usb_requests.h"

namespace vornsim {
namespace {

using namespace usb;

/// A device that asks to be tried again at once is tried again after one microframe, as a host controller would.
constexpr int64_t MICROFRAME_US = 125;

int statusCode(TransferStatus status)
{
    switch (status) {
        case TransferStatus::OK:
            return 0;
        case TransferStatus::STALL:
            return -EPIPE;
        case TransferStatus::BABBLE:
            return -EOVERFLOW;
        case TransferStatus::IO_ERROR:
            return -EPROTO;
        case TransferStatus::GONE:
            return -ESHUTDOWN;
    }
    return -EPROTO;
}

}  // namespace

int UrbQueue::submit(std::unique_ptr<Urb> urb)
{
    if (gone_)
        return ENODEV;
    if (!faults_.maySubmit(urb->address()))
        return ENOMEM;
    pending_[urb->endpoint].push_back(std::move(urb));
    advance();
    return 0;
}

bool UrbQueue::discard(uint64_t owner, uint64_t handle)
{
    bool found = false;
    cancel(
        [&](const Urb& urb) {
            const bool chosen = urb.owner == owner && urb.handle == handle;
            found = found || chosen;
            return chosen;
        },
        -ENOENT);
    return found;
}

void UrbQueue::cancel(const std::function<bool(const Urb&)>& chosen, int status)
{
    for (auto& [endpoint, pending] : pending_) {
        auto first =
            std::stable_partition(pending.begin(), pending.end(), [&](const auto& urb) { return !chosen(*urb); });
        std::for_each(first, pending.end(), [&](auto& urb) {
            urb->status = status;
            done_.push_back(std::move(urb));
        });
        pending.erase(first, pending.end());
    }
    advance();  // those after the ones taken back may now go
}

void UrbQueue::forget(uint64_t owner)
{
    cancel([&](const Urb& urb) { return urb.owner == owner; }, -ENOENT);
    std::erase_if(done_, [&](const auto& urb) { return urb->owner == owner; });
}

void UrbQueue::advance()
{
    bool moved = true;
    while (moved && !gone_) {
        moved = false;
        nextRetryUs_ = NEVER;
        for (auto& [endpoint, pending] : pending_)
            while (!gone_ && !pending.empty() && step(pending))
                moved = true;
    }
}

void UrbQueue::begin(Urb& urb)
{
    urb.begun = true;
    urb.fault = faults_.beginTransfer(urb.address());
    if (urb.fault == nullptr)
        return;
    urb.notBeforeUs = clock_.nowUs() + microseconds(urb.fault->seconds);
    if (urb.fault->kind == FaultKind::GARBAGE && !urb.isIn())
        faults_.garble({urb.data.get(), urb.length});
}

/// @return what the plan makes of this step without asking the device, or null when the device is to be asked.
std::optional<BulkResult> UrbQueue::failByPlan(const Urb& urb)
{
    const auto failed = [](TransferStatus status) { return BulkResult{status, 0, true}; };
    if (halted_.contains(urb.address()))
        return failed(TransferStatus::STALL);
    if (urb.fault == nullptr)
        return std::nullopt;
    switch (urb.fault->kind) {
        case FaultKind::UNPLUG:
            faults_.unplugged(*urb.fault);
            return failed(TransferStatus::GONE);
        case FaultKind::STALL:
            if (urb.kind == UrbKind::BULK)  // endpoint 0 recovers by itself
                halted_.insert(urb.address());
            return failed(TransferStatus::STALL);
        case FaultKind::BABBLE:
            return failed(TransferStatus::BABBLE);
        case FaultKind::IO_ERROR:
            return failed(TransferStatus::IO_ERROR);
        case FaultKind::SILENCE:
            return BulkResult{};
        case FaultKind::LATE_ANSWER:
            if (clock_.nowUs() < urb.notBeforeUs)
                return BulkResult{TransferStatus::OK, 0, false, urb.notBeforeUs};
            return std::nullopt;
        case FaultKind::SHORT:
            if (urb.kind == UrbKind::BULK && !urb.isIn() && urb.length <= urb.fault->missing)
                return BulkResult{TransferStatus::OK, 0, true};
            return std::nullopt;
        case FaultKind::NO_MEMORY:
        case FaultKind::BUSY:
        case FaultKind::GARBAGE:
            break;
    }
    return std::nullopt;
}

bool UrbQueue::step(Pending& pending)
{
    Urb& urb = *pending.front();
    if (!urb.begun)
        begin(urb);
    BulkResult result;
    if (const std::optional<BulkResult> fault = failByPlan(urb))
        result = *fault;
    else
        result = urb.kind == UrbKind::CONTROL ? stepControl(urb) : stepBulk(urb);

    const size_t space = urb.length - urb.actualLength;
    if (result.length > space)
        result.status = TransferStatus::BABBLE;
    const size_t moved = std::min(result.length, space);
    if (urb.isIn() && urb.fault != nullptr && urb.fault->kind == FaultKind::GARBAGE)
        faults_.garble({urb.data.get() + urb.actualLength, moved});
    urb.actualLength += moved;

    if (result.status == TransferStatus::GONE) {
        unplug();
        return true;
    }
    const bool full = result.length >= space && urb.length > 0;
    const bool over = result.status != TransferStatus::OK || result.complete || full;
    if (over)
        finishHead(pending, statusCode(result.status));
    else if (result.retryAtUs != NEVER)
        nextRetryUs_ = std::min(nextRetryUs_, std::max(result.retryAtUs, clock_.nowUs() + MICROFRAME_US));
    if (!faults_.empty())
        faults_.transferMoved(slot_.camera().truth());
    return over || result.length > 0;
}

BulkResult UrbQueue::stepControl(Urb& urb)
{
    if (urb.setup.requestType == RECIPIENT_INTERFACE && urb.setup.request == SET_INTERFACE) {
        // for devices that is a call of its own
        const bool ok = setInterface(urb.setup.index, urb.setup.value);
        return {ok ? TransferStatus::OK : TransferStatus::STALL, 0, true};
    }
    if (urb.setup.requestType == RECIPIENT_ENDPOINT && urb.setup.request == CLEAR_FEATURE)
        halted_.erase(static_cast<uint8_t>(urb.setup.index));
    const ControlResult result = slot_.camera().control(urb.setup, {urb.data.get(), urb.length});
    return {result.status, result.length, true};
}

BulkResult UrbQueue::stepBulk(Urb& urb)
{
    size_t end = urb.length;
    if (!urb.isIn() && urb.fault != nullptr && urb.fault->kind == FaultKind::SHORT)
        end -= static_cast<size_t>(urb.fault->missing);  // which is less, or the device would not be asked
    const std::span<uint8_t> rest(urb.data.get() + urb.actualLength, end - urb.actualLength);
    BulkResult result =
        urb.isIn() ? slot_.camera().bulkIn(urb.endpoint, rest) : slot_.camera().bulkOut(urb.endpoint, rest);
    result.complete = result.complete || (end < urb.length && result.length == rest.size());
    return result;
}

bool UrbQueue::setInterface(unsigned interface, unsigned alternate)
{
    if (gone_)
        return false;
    halted_.clear();
    faults_.alternateSelected(alternate);
    return slot_.camera().setInterface(interface, alternate);
}

TransferStatus UrbQueue::control(const SetupPacket& setup)
{
    if (gone_)
        return TransferStatus::GONE;
    Urb urb;
    urb.kind = UrbKind::CONTROL;
    urb.setup = setup;
    begin(urb);
    const std::optional<BulkResult> fault = failByPlan(urb);
    const TransferStatus status = fault ? fault->status : stepControl(urb).status;
    if (status == TransferStatus::GONE)
        unplug();
    return status;
}

void UrbQueue::finishHead(Pending& pending, int status)
{
    std::unique_ptr<Urb> urb = std::move(pending.front());
    pending.pop_front();
    urb->status = status;
    const bool partial = urb->isIn() || urb->kind == UrbKind::CONTROL;
    if (partial && urb->fault != nullptr && urb->fault->kind == FaultKind::SHORT)
        urb->actualLength -= static_cast<size_t>(std::min<uint64_t>(urb->actualLength, urb->fault->missing));
    if (status == 0 && urb->shortIsError && urb->actualLength < urb->length)
        urb->status = -EREMOTEIO;
    done_.push_back(std::move(urb));
}

std::unique_ptr<Urb> UrbQueue::reap(uint64_t owner)
{
    auto found = std::find_if(done_.begin(), done_.end(), [&](const auto& urb) { return urb->owner == owner; });
    if (found == done_.end())
        return nullptr;
    std::unique_ptr<Urb> urb = std::move(*found);
    done_.erase(found);
    return urb;
}

bool UrbQueue::hasDone(uint64_t owner) const
{
    return std::any_of(done_.begin(), done_.end(), [&](const auto& urb) { return urb->owner == owner; });
}

void UrbQueue::unplug()
{
    gone_ = true;
    nextRetryUs_ = NEVER;
    cancel([](const Urb&) { return true; }, -ESHUTDOWN);
}

}  // namespace vornsim
