// SPDX-License-Identifier: MIT
#include "camera_port.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "ioctl_data.h"

namespace vornsim {
namespace {

/// What the kernel says about an xHCI controller: a transfer of any size goes in one piece.
constexpr uint32_t CAPABILITIES = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                  USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
constexpr long SPEED_HIGH = 3;  // USB_SPEED_HIGH of linux/usb/ch9.h
constexpr size_t SETUP_LENGTH = 8;

uint64_t fileOf(CameraPort::Client* client)
{
    return reinterpret_cast<uint64_t>(client);
}

/// Some requests carry a number where others have a pointer.
unsigned long argumentOf(CameraPort::Client* client)
{
    return load<unsigned long>(umockdev_ioctl_client_get_arg(client));
}

SetupPacket decodeSetup(const uint8_t* bytes)
{
    auto word = [&](size_t offset) { return static_cast<uint16_t>(bytes[offset] | (bytes[offset + 1] << 8)); };
    return {bytes[0], bytes[1], word(2), word(4), word(6)};
}

/// Gives @p urb room for @p length bytes. @return false when there is no memory.
bool allocate(Urb& urb, size_t length, UsbfsMemory& memory)
{
    urb.charge = memory.charge(length);
    if (!urb.charge)
        return false;
    urb.data.reset(new (std::nothrow) uint8_t[length]);  // not zeroed: frames are large
    urb.length = length;
    return urb.data != nullptr;
}

}  // namespace

CameraPort::CameraPort(UsbDevice& device, const UsbLayout& layout, const Clock& clock, DeviceLog& log,
                       UsbfsMemory& memory, Events events)
    : device_(device),
      clock_(clock),
      descriptors_(device.descriptors()),
      memory_(memory),
      events_(std::move(events)),
      node_(device, layout, clock, log)
{
}

CameraPort::~CameraPort()
{
    stop();
}

int CameraPort::start(const std::string& path)
{
    if (int error = gate_.create(path))
        return error;
    thread_ = std::thread([this] { run(); });
    return 0;
}

void CameraPort::stop()
{
    {
        std::lock_guard held(mutex_);
        stopping_ = true;
    }
    posted_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

void CameraPort::postRequest(Client* client)
{
    g_object_ref(client);
    post(JobKind::REQUEST, client);
}

void CameraPort::postRead(Client* client)
{
    g_object_ref(client);
    post(JobKind::READ, client);
}

void CameraPort::postClosed(const void* client)
{
    post(JobKind::CLOSED, static_cast<Client*>(const_cast<void*>(client)));
}

void CameraPort::post(JobKind kind, Client* client)
{
    {
        std::lock_guard held(mutex_);
        jobs_.push_back({kind, client});
    }
    posted_.notify_one();
}

void CameraPort::run()
{
    std::unique_lock held(mutex_);
    while (!stopping_) {
        const int64_t wakeUs = nextWakeUs();
        const auto hasWork = [this] { return stopping_ || !jobs_.empty(); };
        if (wakeUs == NEVER)
            posted_.wait(held, hasWork);
        else
            (void)posted_.wait_for(held, std::chrono::microseconds(wakeUs - clock_.nowUs()), hasWork);
        std::deque<Job> jobs = std::exchange(jobs_, {});
        held.unlock();

        for (const Job& job : jobs)
            handle(job);
        if (clock_.nowUs() >= node_.queue().nextRetryUs())
            node_.queue().advance();
        settle();
        held.lock();
    }
}

int64_t CameraPort::nextWakeUs() const
{
    int64_t wakeUs = const_cast<UsbfsNode&>(node_).queue().nextRetryUs();
    for (const Waiting& waiting : waiting_)
        wakeUs = std::min(wakeUs, waiting.deadlineUs);
    return replug_ ? std::min(wakeUs, replug_->atUs) : wakeUs;
}

void CameraPort::handle(const Job& job)
{
    switch (job.kind) {
        case JobKind::REQUEST:
            if (std::optional<Answer> answer = handleRequest(job.client)) {
                updateGate();  // first, so that the host's next poll() sees it
                complete(job.client, *answer);
            }
            break;
        case JobKind::READ:
            handleRead(job.client);
            break;
        case JobKind::CLOSED:
            readOffsets_.erase(job.client);
            node_.closeFile(fileOf(job.client));
            break;
    }
}

void CameraPort::complete(Client* client, const Answer& answer)
{
    umockdev_ioctl_client_complete(client, answer.result, answer.error);
    g_object_unref(client);
}

/// A node reads as the device's descriptors.
void CameraPort::handleRead(Client* client)
{
    UMockdevIoctlData* buffer = umockdev_ioctl_client_get_arg(client);
    size_t& offset = readOffsets_[client];
    const size_t count = std::min(descriptors_.size() - offset, static_cast<size_t>(buffer->data_len));
    std::copy_n(descriptors_.begin() + static_cast<std::ptrdiff_t>(offset), count, buffer->data);
    offset += count;
    complete(client, {static_cast<long>(count), 0});
}

std::optional<CameraPort::Answer> CameraPort::handleRequest(Client* client)
{
    const auto failOr = [](int error, long result = 0) { return error ? Answer{-1, error} : Answer{result, 0}; };
    const uint64_t file = fileOf(client);
    const unsigned long request = umockdev_ioctl_client_get_request(client);

    switch (request) {  // those that come without a record
        case USBDEVFS_REAPURBNDELAY:
            return reap(client);
        case USBDEVFS_REAPURB: {
            const Answer answer = reap(client);
            if (answer.error != EAGAIN)
                return answer;
            waiting_.push_back({client, file});
            return std::nullopt;
        }
        case USBDEVFS_DISCARDURB:
            return failOr(node_.queue().discard(file, argumentOf(client)) ? 0 : EINVAL);
        case USBDEVFS_RESET:
            return failOr(node_.reset());
        case USBDEVFS_GET_SPEED:
            return Answer{SPEED_HIGH, 0};
        default:
            break;
    }

    const size_t recordLength = _IOC_SIZE(request);
    if (recordLength == 0)
        return Answer{-1, ENOTTY};
    const ObjectRef<UMockdevIoctlData> record = resolve(umockdev_ioctl_client_get_arg(client), 0, recordLength);
    if (!record)
        return Answer{-1, EFAULT};

    switch (request) {
        case USBDEVFS_GET_CAPABILITIES:
            store(record.get(), CAPABILITIES);
            return Answer{};
        case USBDEVFS_SUBMITURB:
            return failOr(submitUrb(client, record.get()));
        case USBDEVFS_CONTROL:
        case USBDEVFS_BULK:
            return submitSynchronous(client, request, record.get());
        case USBDEVFS_CLAIMINTERFACE:
            return failOr(node_.claim(file, load<unsigned>(record.get())));
        case USBDEVFS_RELEASEINTERFACE:
            return failOr(node_.release(file, load<unsigned>(record.get())));
        case USBDEVFS_DISCONNECT_CLAIM:
            return failOr(node_.claim(file, load<usbdevfs_disconnect_claim>(record.get()).interface));
        case USBDEVFS_SETINTERFACE: {
            const auto wanted = load<usbdevfs_setinterface>(record.get());
            return failOr(node_.setInterface(file, wanted.interface, wanted.altsetting));
        }
        case USBDEVFS_SETCONFIGURATION:
            return failOr(node_.setConfiguration(load<int>(record.get())));
        case USBDEVFS_CLEAR_HALT:
        case USBDEVFS_RESETEP:
            return failOr(node_.clearHalt(file, static_cast<uint8_t>(load<unsigned>(record.get()))));
        case USBDEVFS_GETDRIVER: {
            auto driver = load<usbdevfs_getdriver>(record.get());
            if (int error = node_.driverOf(driver.interface))
                return Answer{-1, error};
            std::strcpy(driver.driver, "usbfs");
            store(record.get(), driver);
            return Answer{};
        }
        case USBDEVFS_IOCTL: {
            // Detaching or attaching a kernel driver: there never is one.
            const auto inner = static_cast<unsigned>(load<usbdevfs_ioctl>(record.get()).ioctl_code);
            if (inner == USBDEVFS_DISCONNECT)
                return Answer{-1, ENODATA};
            return inner == USBDEVFS_CONNECT ? Answer{} : Answer{-1, ENOTTY};
        }
        default:
            return Answer{-1, ENOTTY};
    }
}

int CameraPort::submitUrb(Client* client, UMockdevIoctlData* record)
{
    const auto host = load<usbdevfs_urb>(record);
    const bool isControl = host.type == USBDEVFS_URB_TYPE_CONTROL;
    if ((!isControl && host.type != USBDEVFS_URB_TYPE_BULK) || host.buffer_length < 0)
        return EINVAL;
    const auto length = static_cast<size_t>(host.buffer_length);
    const size_t headerLength = isControl ? SETUP_LENGTH : 0;
    if (length < headerLength)
        return EINVAL;

    auto urb = std::make_unique<Urb>();
    urb->handle = record->client_addr;
    urb->owner = fileOf(client);
    urb->kind = isControl ? UrbKind::CONTROL : UrbKind::BULK;
    urb->endpoint = isControl ? 0 : host.endpoint;
    urb->shortIsError = host.flags & USBDEVFS_URB_SHORT_NOT_OK;

    constexpr size_t BUFFER = offsetof(usbdevfs_urb, buffer);
    const bool fetchAll = isControl ? length <= SETUP_LENGTH + UINT16_MAX : !urb->isIn();
    if (ObjectRef<UMockdevIoctlData> bytes = resolve(record, BUFFER, fetchAll ? length : 0)) {
        if (isControl)
            urb->setup = decodeSetup(bytes->data);
        if (!allocate(*urb, isControl ? urb->setup.length : length, memory_))
            return ENOMEM;
        if (urb->length > length - headerLength)
            return EINVAL;
        std::copy_n(bytes->data + headerLength, urb->length, urb->data.get());
    } else if (fetchAll && length > 0) {
        return EFAULT;
    } else if (!allocate(*urb, length, memory_)) {
        return ENOMEM;
    }
    return node_.submit(fileOf(client), std::move(urb));
}

CameraPort::Answer CameraPort::reap(Client* client)
{
    const std::unique_ptr<Urb> urb = node_.queue().reap(fileOf(client));
    if (!urb)
        return {-1, node_.queue().gone() ? ENODEV : EAGAIN};

    // The host passed the place where it wants to read the address of its record. Only now are record and buffer
    // fetched: a buffer that came with the submission would cross the process border twice.
    const auto slot = resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(void*));
    if (!slot)
        return {-1, EFAULT};
    store(slot.get(), urb->handle);
    const auto record = resolve(slot.get(), 0, sizeof(usbdevfs_urb));
    if (!record)
        return {-1, EFAULT};
    auto host = load<usbdevfs_urb>(record.get());
    host.status = urb->status;
    host.actual_length = static_cast<int>(urb->actualLength);
    host.error_count = 0;
    store(record.get(), host);
    if (urb->isIn() && urb->actualLength > 0) {
        const size_t headerLength = urb->kind == UrbKind::CONTROL ? SETUP_LENGTH : 0;
        const auto bytes = resolve(record.get(), offsetof(usbdevfs_urb, buffer), headerLength + urb->actualLength);
        if (!bytes)
            return {-1, EFAULT};
        std::copy_n(urb->data.get(), urb->actualLength, bytes->data + headerLength);
    }
    return {};
}

std::optional<CameraPort::Answer> CameraPort::submitSynchronous(Client* client, unsigned long request,
                                                                UMockdevIoctlData* record)
{
    auto urb = std::make_unique<Urb>();
    urb->owner = ++lastSynchronousOwner_;  // no file: those are addresses
    size_t length = 0;
    size_t pointerOffset = 0;
    unsigned timeoutMs = 0;
    if (request == USBDEVFS_CONTROL) {
        const auto host = load<usbdevfs_ctrltransfer>(record);
        urb->kind = UrbKind::CONTROL;
        urb->setup = {host.bRequestType, host.bRequest, host.wValue, host.wIndex, host.wLength};
        length = host.wLength;
        timeoutMs = host.timeout;
        pointerOffset = offsetof(usbdevfs_ctrltransfer, data);
    } else {
        const auto host = load<usbdevfs_bulktransfer>(record);
        urb->endpoint = static_cast<uint8_t>(host.ep);
        length = host.len;
        timeoutMs = host.timeout;
        pointerOffset = offsetof(usbdevfs_bulktransfer, data);
    }
    if (!allocate(*urb, length, memory_))
        return Answer{-1, ENOMEM};
    if (length > 0) {
        const auto bytes = resolve(record, pointerOffset, length);
        if (!bytes)
            return Answer{-1, EFAULT};
        std::copy_n(bytes->data, length, urb->data.get());
    }

    Waiting waiting{client, urb->owner};
    if (timeoutMs > 0)
        waiting.deadlineUs = clock_.nowUs() + int64_t{1000} * timeoutMs;
    if (int error = node_.submit(fileOf(client), std::move(urb)))
        return Answer{-1, error};
    if (std::optional<Answer> answer = answerWaiting(waiting))
        return answer;
    waiting_.push_back(waiting);
    return std::nullopt;
}

CameraPort::Answer CameraPort::finishSynchronous(const Waiting& waiting, const Urb& urb)
{
    if (urb.status < 0)
        return {-1, waiting.expired ? ETIMEDOUT : -urb.status};
    if (urb.isIn() && urb.actualLength > 0) {
        // Both were fetched when the request came; asking again gives the same copies.
        const unsigned long request = umockdev_ioctl_client_get_request(waiting.client);
        const size_t pointerOffset =
            request == USBDEVFS_CONTROL ? offsetof(usbdevfs_ctrltransfer, data) : offsetof(usbdevfs_bulktransfer, data);
        const auto record = resolve(umockdev_ioctl_client_get_arg(waiting.client), 0, _IOC_SIZE(request));
        const auto bytes = resolve(record.get(), pointerOffset, urb.length);
        std::copy_n(urb.data.get(), urb.actualLength, bytes->data);
    }
    return {static_cast<long>(urb.actualLength), 0};
}

std::optional<CameraPort::Answer> CameraPort::answerWaiting(Waiting& waiting)
{
    if (waiting.owner == fileOf(waiting.client)) {
        const Answer answer = reap(waiting.client);
        return answer.error == EAGAIN ? std::nullopt : std::optional(answer);
    }
    if (clock_.nowUs() >= waiting.deadlineUs && !node_.queue().hasDone(waiting.owner)) {
        waiting.expired = true;
        (void)node_.queue().discard(waiting.owner, 0);
    }
    const std::unique_ptr<Urb> urb = node_.queue().reap(waiting.owner);
    return urb ? std::optional(finishSynchronous(waiting, *urb)) : std::nullopt;
}

void CameraPort::settle()
{
    if (node_.queue().gone() && !unpluggedTold_) {
        unpluggedTold_ = true;
        replug_ = device_.replug();
        events_.unplugged();
    }
    for (auto waiting = waiting_.begin(); waiting != waiting_.end();) {
        const std::optional<Answer> answer = answerWaiting(*waiting);
        if (answer)
            complete(waiting->client, *answer);
        waiting = answer ? waiting_.erase(waiting) : waiting + 1;
    }
    updateGate();
    if (replug_ && clock_.nowUs() >= replug_->atUs) {
        device_.plugIn();
        events_.pluggedIn(std::exchange(replug_, std::nullopt)->samePort);
    }
}

void CameraPort::updateGate()
{
    gate_.setReady(node_.queue().hasDone() || node_.queue().gone());
}

}  // namespace vornsim
