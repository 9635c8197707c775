// SPDX-License-Identifier: MIT
#include "urb_queue.h"

#include <algorithm>
#include <cerrno>

namespace vornsim {
namespace {

/// A device that asks to be tried again at once is tried again after one microframe, as a host controller would.
constexpr int64_t MICROFRAME_US = 125;

constexpr uint8_t RECIPIENT_INTERFACE = 1;
constexpr uint8_t REQUEST_SET_INTERFACE = 11;

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
    if (!device_.hostMay(HostAction::SUBMIT, urb->address()))
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
        if (!gone_ && !pending.empty() && chosen(*pending.front()))
            device_.takenBack(pending.front()->address());
        auto first =
            std::stable_partition(pending.begin(), pending.end(), [&](const auto& urb) { return !chosen(*urb); });
        std::for_each(first, pending.end(), [&](auto& urb) {
            urb->status = status;
            done_.push_back(std::move(urb));
        });
        pending.erase(first, pending.end());
    }
    advance();  // those behind the ones taken back may now go
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

bool UrbQueue::step(Pending& pending)
{
    Urb& urb = *pending.front();
    BulkResult result = urb.kind == UrbKind::CONTROL ? stepControl(urb) : stepBulk(urb);

    const size_t space = urb.length - urb.actualLength;
    if (result.length > space)
        result.status = TransferStatus::BABBLE;
    urb.actualLength += std::min(result.length, space);

    if (result.status == TransferStatus::GONE) {
        unplug();
        return true;
    }
    const bool full = result.length >= space && urb.length > 0;
    if (result.status != TransferStatus::OK || result.complete || full) {
        finishHead(pending, statusCode(result.status));
        return true;
    }
    if (result.retryAtUs != NEVER)
        nextRetryUs_ = std::min(nextRetryUs_, std::max(result.retryAtUs, clock_.nowUs() + MICROFRAME_US));
    return result.length > 0;
}

BulkResult UrbQueue::stepControl(Urb& urb)
{
    if (urb.setup.requestType == RECIPIENT_INTERFACE && urb.setup.request == REQUEST_SET_INTERFACE) {
        // for devices that is a call of its own
        const bool ok = device_.setInterface(urb.setup.index, urb.setup.value);
        return {ok ? TransferStatus::OK : TransferStatus::STALL, 0, true, NEVER};
    }
    const ControlResult result = device_.control(urb.setup, {urb.data.get(), urb.length});
    return {result.status, result.length, result.complete, result.retryAtUs};
}

BulkResult UrbQueue::stepBulk(Urb& urb)
{
    const std::span<uint8_t> rest(urb.data.get() + urb.actualLength, urb.length - urb.actualLength);
    return urb.isIn() ? device_.bulkIn(urb.endpoint, rest) : device_.bulkOut(urb.endpoint, rest);
}

void UrbQueue::finishHead(Pending& pending, int status)
{
    std::unique_ptr<Urb> urb = std::move(pending.front());
    pending.pop_front();
    urb->status = status;
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
