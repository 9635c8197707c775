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

#include "device/usb/bytes.h"
#include "device/usb/usb_requests.h"
#include "ioctl_data.h"

namespace vornsim {
namespace {

/// What the kernel reports for an xHCI controller: a transfer of any size goes in one piece.
constexpr uint32_t CAPABILITIES = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                  USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
constexpr long SPEED_HIGH = 3;  // USB_SPEED_HIGH of linux/usb/ch9.h

uint64_t fileOf(CameraPort::Client* client)
{
    return reinterpret_cast<uint64_t>(client);
}

/// Some requests carry a number where others have a pointer.
unsigned long argumentOf(CameraPort::Client* client)
{
    return load<unsigned long>(umockdev_ioctl_client_get_arg(client));
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

CameraPort::CameraPort(CameraSlot& slot, const UsbLayout& layout, const Clock& clock, DeviceLog& log,
                       UsbfsMemory& memory, Events events)
    : slot_(slot),
      clock_(clock),
      descriptors_(slot.camera().descriptors()),
      memory_(memory),
      events_(std::move(events)),
      node_(slot, layout, clock, log)
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
    const int64_t wakeUs = const_cast<UsbfsNode&>(node_).queue().nextRetryUs();
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
            reapers_.push_back(client);
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
    const size_t headerLength = isControl ? usb::SETUP_LENGTH : 0;
    if (length < headerLength)
        return EINVAL;

    auto urb = std::make_unique<Urb>();
    urb->handle = record->client_addr;
    urb->owner = fileOf(client);
    urb->kind = isControl ? UrbKind::CONTROL : UrbKind::BULK;
    urb->endpoint = isControl ? 0 : host.endpoint;
    urb->shortIsError = host.flags & USBDEVFS_URB_SHORT_NOT_OK;

    constexpr size_t BUFFER = offsetof(usbdevfs_urb, buffer);
    const bool fetchAll = isControl ? length <= usb::SETUP_LENGTH + UINT16_MAX : !urb->isIn();
    if (ObjectRef<UMockdevIoctlData> bytes = resolve(record, BUFFER, fetchAll ? length : 0)) {
        if (isControl)
            urb->setup = readSetup({bytes->data, usb::SETUP_LENGTH});
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
        const size_t headerLength = urb->kind == UrbKind::CONTROL ? usb::SETUP_LENGTH : 0;
        const auto bytes = resolve(record.get(), offsetof(usbdevfs_urb, buffer), headerLength + urb->actualLength);
        if (!bytes)
            return {-1, EFAULT};
        std::copy_n(urb->data.get(), urb->actualLength, bytes->data + headerLength);
    }
    return {};
}

void CameraPort::settle()
{
    if (node_.queue().gone() && !unpluggedTold_) {
        unpluggedTold_ = true;
        replug_ = slot_.faults().replug();
        events_.unplugged();
    }
    std::erase_if(reapers_, [this](Client* client) {
        const Answer answer = reap(client);
        if (answer.error == EAGAIN)
            return false;
        complete(client, answer);
        return true;
    });
    updateGate();
    if (replug_ && clock_.nowUs() >= replug_->atUs) {
        slot_.plugIn();
        events_.pluggedIn(std::exchange(replug_, std::nullopt)->samePort);
    }
}

void CameraPort::updateGate()
{
    gate_.setReady(node_.queue().hasDone() || node_.queue().gone());
}

}  // namespace vornsim
