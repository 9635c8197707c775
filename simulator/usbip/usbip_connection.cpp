// SPDX-License-Identifier: MIT
#include "usbip_connection.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace vornsim::usbip {
namespace {

constexpr int64_t REQUEST_TIMEOUT_US = 10'000'000;
constexpr size_t READ_LENGTH = size_t{64} * 1024;

// What one client may have under way, answers that it does not fetch included. A stock kernel lets all USB programs
// together use 16 MiB, and one without that limit still splits what it asks for.
constexpr size_t MOST_HELD_LENGTH = 2 * LONGEST_TRANSFER;
constexpr size_t MOST_HELD_COUNT = 4096;

constexpr uint64_t CLIENT = 1;  // owner of all transfers in the queue

}  // namespace

UsbIpConnection::UsbIpConnection(int fd, ExportTable& exports, const Clock& clock)
    : fd_(fd), exports_(exports), clock_(clock), requestDeadlineUs_(clock.nowUs() + REQUEST_TIMEOUT_US)
{
}

UsbIpConnection::~UsbIpConnection()
{
    if (!export_)
        return;
    export_->log->note("usbip: unplugged" + (complaint_.empty() ? "" : ": " + complaint_));
    exports_.release(*export_, queue_->gone());
}

bool UsbIpConnection::end(const std::string& complaint)
{
    complaint_ = complaint;
    return false;
}

bool UsbIpConnection::onReadable()
{
    const size_t used = input_.size();
    input_.resize(used + READ_LENGTH);
    const ssize_t count = recv(fd_, input_.data() + used, READ_LENGTH, MSG_DONTWAIT);
    input_.resize(used + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    if (count == 0)
        return input_.empty() ? false : end("the client left in the middle of a message");
    if (count < 0)
        return errno == EAGAIN || errno == EINTR ? true : end(std::strerror(errno));
    return takeMessages() && flush();
}

bool UsbIpConnection::takeMessages()
{
    size_t taken = 0;
    bool going = true;
    for (bool more = true; going && more && !lastAnswer_;) {
        const std::span<const uint8_t> rest = std::span<const uint8_t>(input_).subspan(taken);
        size_t length = 0;
        const auto dispatch = [&](const auto& parsed) {
            length = parsed.length;
            going = std::visit([this](const auto& message) { return this->handle(message); }, parsed.message);
        };
        if (export_)
            dispatch(parseCommand(rest));
        else
            dispatch(parseRequest(rest));
        taken += length;
        more = length > 0;
    }
    input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(taken));
    return going;
}

bool UsbIpConnection::handle(const Incomplete& incomplete) const
{
    (void)incomplete;  // the rest will come
    return true;
}

bool UsbIpConnection::handle(const Malformed& malformed)
{
    return end(std::string("the client sent ") + malformed.reason);
}

bool UsbIpConnection::handle(const ListRequest& request)
{
    (void)request;
    queueOutput(packList(exports_.available()));
    lastAnswer_ = true;
    return true;
}

bool UsbIpConnection::handle(const ImportRequest& request)
{
    const ImportStatus status = exports_.claim(request.busId, export_);
    if (status == ImportStatus::OK) {
        export_->log->note("usbip: plugged in as " + request.busId);
        queue_.emplace(*export_->slot, clock_);
        (void)queue_->setInterface(0, 0);  // a device that refuses is as the reset of its port left it
    }
    queueOutput(packImport(status, export_ ? &export_->record : nullptr));
    lastAnswer_ = status != ImportStatus::OK;
    return true;
}

bool UsbIpConnection::handle(const SubmitCommand& command)
{
    if (heldCount_ >= MOST_HELD_COUNT || heldLength_ + command.length > MOST_HELD_LENGTH)
        return end("the client has too many transfers under way");
    auto urb = std::make_unique<Urb>();
    urb->handle = command.sequence;
    urb->owner = CLIENT;
    urb->kind = command.endpoint == 0 ? UrbKind::CONTROL : UrbKind::BULK;
    urb->endpoint = command.endpoint;
    urb->shortIsError = command.shortIsError;
    urb->setup = command.setup;
    urb->length = command.length;
    urb->data.reset(new (std::nothrow) uint8_t[command.length]);  // not zeroed: frames are large
    if (!urb->data)
        return end("there is no memory for its transfers");
    std::copy(command.data.begin(), command.data.end(), urb->data.get());
    ++heldCount_;
    heldLength_ += urb->length;
    if (const int error = queue_->submit(std::move(urb))) {  // which is no more
        --heldCount_;
        heldLength_ -= command.length;
        const AnswerHeader answer = packSubmitAnswer(command.sequence, -error, 0);
        queueOutput({answer.begin(), answer.end()});
    }
    collectDone();
    return !queue_->gone() || end("the camera was unplugged");
}

bool UsbIpConnection::handle(const UnlinkCommand& command)
{
    // One that was answered already is unknown here; its answer is ahead of this one.
    const bool takenBack = queue_->discard(CLIENT, command.victim);
    collectDone();
    const AnswerHeader answer = packUnlinkAnswer(command.sequence, takenBack ? -ECONNRESET : 0);
    queueOutput({answer.begin(), answer.end()});
    return true;
}

void UsbIpConnection::queueOutput(std::vector<uint8_t> bytes)
{
    output_.push_back({std::move(bytes), nullptr, 0, 0});
}

/// Queues the answers of finished transfers. One that was taken back has its answer in that of the unlink command.
void UsbIpConnection::collectDone()
{
    while (std::unique_ptr<Urb> urb = queue_->reap(CLIENT)) {
        if (urb->status == -ENOENT) {
            letGo(*urb);
            continue;
        }
        const AnswerHeader head = packSubmitAnswer(static_cast<uint32_t>(urb->handle), urb->status, urb->actualLength);
        const size_t dataLength = urb->isIn() ? urb->actualLength : 0;
        output_.push_back({{head.begin(), head.end()}, std::move(urb), dataLength, 0});
    }
}

void UsbIpConnection::letGo(const Urb& urb)
{
    --heldCount_;
    heldLength_ -= urb.length;
}

/// Sends as much as the socket takes.
bool UsbIpConnection::flush()
{
    while (!output_.empty()) {
        Output& output = output_.front();
        const size_t headLeft = output.head.size() - std::min(output.sent, output.head.size());
        const size_t dataLeft = output.head.size() + output.dataLength - output.sent - headLeft;
        uint8_t* const data = output.urb ? output.urb->data.get() + (output.dataLength - dataLeft) : nullptr;
        std::array<iovec, 2> parts = {
            {{output.head.data() + (output.head.size() - headLeft), headLeft}, {data, dataLeft}}};
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const ssize_t count = sendmsg(fd_, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0)
            return errno == EAGAIN || errno == EINTR ? true : end(std::strerror(errno));
        output.sent += static_cast<size_t>(count);
        if (output.sent < output.head.size() + output.dataLength)
            continue;
        if (output.urb)
            letGo(*output.urb);
        output_.pop_front();
    }
    return !lastAnswer_;
}

bool UsbIpConnection::onWritable()
{
    return flush();
}

bool UsbIpConnection::onTime()
{
    if (!queue_)
        return end("the client did not say what it wants");
    queue_->advance();
    collectDone();
    if (queue_->gone())
        return end("the camera was unplugged");
    return flush();
}

int64_t UsbIpConnection::nextWakeUs() const
{
    return queue_ ? queue_->nextRetryUs() : requestDeadlineUs_;
}

}  // namespace vornsim::usbip
