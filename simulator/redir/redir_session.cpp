// SPDX-License-Identifier: MIT
#include "redir_session.h"

#include <sys/socket.h>
#include <usbredirparser.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <utility>

#include "device/usb/usb_requests.h"

namespace vornsim {
namespace {

constexpr uint64_t GUEST = 1;  // owner of all transfers in the queue

/// The longest transfer that a guest may ask for. One read of a whole frame arrives as one packet.
constexpr size_t LONGEST_TRANSFER = size_t{64} * 1024 * 1024;

constexpr uint16_t BULK_PACKET_LENGTH = 512;  // of every bulk endpoint at high speed
constexpr size_t ENDPOINT_SLOTS = 32;

/// Where an endpoint stands in the protocol's tables: OUT 0 to 15, IN 0 to 15.
size_t slotOf(uint8_t address)
{
    return static_cast<size_t>((address & 0x80) >> 3 | (address & 0x0F));
}

uint8_t redirStatus(int status)
{
    switch (status) {
        case 0:
            return usb_redir_success;
        case -ENOENT:
            return usb_redir_cancelled;
        case -EPIPE:
            return usb_redir_stall;
        case -EOVERFLOW:
            return usb_redir_babble;
        default:
            return usb_redir_ioerror;
    }
}

}  // namespace

/// What the parser calls, with the session as its first argument.
struct RedirSession::Callbacks {
    static RedirSession& of(void* session) { return *static_cast<RedirSession*>(session); }

    static void log(void* session, int level, const char* message)
    {
        if (level <= usbredirparser_warning)
            of(session).log_.note(std::string("redir: ") + message);
    }

    static int read(void* session, uint8_t* data, int count)
    {
        const ssize_t got = recv(of(session).fd_, data, static_cast<size_t>(count), MSG_DONTWAIT);
        if (got > 0)
            return static_cast<int>(got);
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            return 0;
        of(session).closed_ = true;
        return -1;
    }

    static int write(void* session, uint8_t* data, int count)
    {
        const ssize_t sent = send(of(session).fd_, data, static_cast<size_t>(count), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0)
            return errno == EAGAIN || errno == EINTR ? 0 : -1;
        return static_cast<int>(sent);
    }

    static void hello(void* session, usb_redir_hello_header* /*hello*/) { of(session).plugIn(); }
    static void reset(void* session) { of(session).reset(); }
    static void rejected(void* session) { of(session).log_.complain("redir: QEMU does not want this device"); }
    static void cancel(void* session, uint64_t id) { (void)of(session).queue_.discard(GUEST, id); }

    static void setConfiguration(void* session, uint64_t id, usb_redir_set_configuration_header* wanted)
    {
        of(session).setConfiguration(id, wanted->configuration);
    }

    static void getConfiguration(void* session, uint64_t id)
    {
        usb_redir_configuration_status_header status{usb_redir_success, of(session).layout_.configurationValue};
        usbredirparser_send_configuration_status(of(session).parser_.get(), id, &status);
    }

    static void setAlternate(void* session, uint64_t id, usb_redir_set_alt_setting_header* wanted)
    {
        of(session).setAlternate(id, wanted->interface, wanted->alt);
    }

    static void getAlternate(void* session, uint64_t id, usb_redir_get_alt_setting_header* wanted)
    {
        usb_redir_alt_setting_status_header status{usb_redir_success, wanted->interface,
                                                   static_cast<uint8_t>(of(session).alternate_)};
        usbredirparser_send_alt_setting_status(of(session).parser_.get(), id, &status);
    }

    static void control(void* session, uint64_t id, usb_redir_control_packet_header* header, uint8_t* data, int length)
    {
        of(session).takeControl(id, *header, {data, static_cast<size_t>(length)});
        usbredirparser_free_packet_data(of(session).parser_.get(), data);
    }

    static void bulk(void* session, uint64_t id, usb_redir_bulk_packet_header* header, uint8_t* data, int length)
    {
        of(session).takeBulk(id, *header, {data, static_cast<size_t>(length)});
        usbredirparser_free_packet_data(of(session).parser_.get(), data);
    }

    // Cameras have no endpoints of these kinds, and QEMU knows it from their list.
    template <typename Header>
    static void refuse(void* /*session*/, uint64_t /*id*/, Header* /*header*/)
    {
    }

    template <typename Header>
    static void refuseData(void* session, uint64_t /*id*/, Header* /*header*/, uint8_t* data, int /*length*/)
    {
        usbredirparser_free_packet_data(of(session).parser_.get(), data);
    }
};

void RedirSession::FreeParser::operator()(usbredirparser* parser) const
{
    usbredirparser_destroy(parser);
}

RedirSession::RedirSession(int fd, CameraSlot& slot, const UsbLayout& layout, const Clock& clock, DeviceLog& log)
    : fd_(fd), layout_(layout), log_(log), queue_(slot, clock), parser_(usbredirparser_create())
{
    if (!parser_)
        throw std::bad_alloc();
    parser_->priv = this;
    parser_->log_func = Callbacks::log;
    parser_->read_func = Callbacks::read;
    parser_->write_func = Callbacks::write;
    parser_->hello_func = Callbacks::hello;
    parser_->reset_func = Callbacks::reset;
    parser_->filter_reject_func = Callbacks::rejected;
    parser_->cancel_data_packet_func = Callbacks::cancel;
    parser_->set_configuration_func = Callbacks::setConfiguration;
    parser_->get_configuration_func = Callbacks::getConfiguration;
    parser_->set_alt_setting_func = Callbacks::setAlternate;
    parser_->get_alt_setting_func = Callbacks::getAlternate;
    parser_->control_packet_func = Callbacks::control;
    parser_->bulk_packet_func = Callbacks::bulk;
    parser_->start_iso_stream_func = Callbacks::refuse;
    parser_->stop_iso_stream_func = Callbacks::refuse;
    parser_->start_interrupt_receiving_func = Callbacks::refuse;
    parser_->stop_interrupt_receiving_func = Callbacks::refuse;
    parser_->alloc_bulk_streams_func = Callbacks::refuse;
    parser_->free_bulk_streams_func = Callbacks::refuse;
    parser_->start_bulk_receiving_func = Callbacks::refuse;
    parser_->stop_bulk_receiving_func = Callbacks::refuse;
    parser_->iso_packet_func = Callbacks::refuseData;
    parser_->interrupt_packet_func = Callbacks::refuseData;

    std::array<uint32_t, USB_REDIR_CAPS_SIZE> capabilities{};
    for (const int capability : {usb_redir_cap_connect_device_version, usb_redir_cap_ep_info_max_packet_size,
                                 usb_redir_cap_64bits_ids, usb_redir_cap_32bits_bulk_length})
        usbredirparser_caps_set_cap(capabilities.data(), capability);
    usbredirparser_init(parser_.get(), "vornsim", capabilities.data(), USB_REDIR_CAPS_SIZE, usbredirparser_fl_usb_host);
}

RedirSession::~RedirSession() = default;

bool RedirSession::onReadable()
{
    if (usbredirparser_do_read(parser_.get()) != 0 && closed_)
        return false;  // a message that makes no sense was skipped; it is in the log
    answerFinished();
    return flush();
}

bool RedirSession::onWritable()
{
    return flush();
}

bool RedirSession::onTime()
{
    queue_.advance();
    answerFinished();
    return flush();
}

bool RedirSession::wantsToWrite() const
{
    return usbredirparser_has_data_to_write(parser_.get()) > 0;
}

bool RedirSession::flush()
{
    if (wantsToWrite() && usbredirparser_do_write(parser_.get()) != 0)
        return false;
    return !queue_.gone() || wantsToWrite();
}

void RedirSession::plugIn()
{
    sendEndpoints();
    usb_redir_device_connect_header connect{};
    connect.speed = usb_redir_speed_high;
    connect.device_class = layout_.deviceClass;
    connect.device_subclass = layout_.subClass;
    connect.device_protocol = layout_.protocol;
    connect.vendor_id = layout_.vendorId;
    connect.product_id = layout_.productId;
    connect.device_version_bcd = layout_.release;
    usbredirparser_send_device_connect(parser_.get(), &connect);
    log_.note("redir: plugged in");
}

/// The interfaces, and the endpoints of the alternate setting in force.
void RedirSession::sendEndpoints()
{
    usb_redir_interface_info_header interfaces{};
    usb_redir_ep_info_header endpoints{};
    std::fill_n(endpoints.type, ENDPOINT_SLOTS, static_cast<uint8_t>(usb_redir_type_invalid));
    for (const uint8_t address : std::to_array<uint8_t>({0x00, 0x80})) {
        endpoints.type[slotOf(address)] = usb_redir_type_control;
        endpoints.max_packet_size[slotOf(address)] = 64;
    }
    for (const AlternateSetting& setting : layout_.settings) {
        const uint32_t count = interfaces.interface_count;
        if (setting.alternate == 0 && count < std::size(interfaces.interface)) {
            interfaces.interface[count] = setting.interface;
            interfaces.interface_class[count] = setting.deviceClass;
            interfaces.interface_subclass[count] = setting.subClass;
            interfaces.interface_protocol[count] = setting.protocol;
            interfaces.interface_count++;
        }
        if (setting.alternate != alternate_)
            continue;
        for (const uint8_t address : setting.endpoints) {
            endpoints.type[slotOf(address)] = usb_redir_type_bulk;
            endpoints.interface[slotOf(address)] = setting.interface;
            endpoints.max_packet_size[slotOf(address)] = BULK_PACKET_LENGTH;
        }
    }
    usbredirparser_send_interface_info(parser_.get(), &interfaces);
    usbredirparser_send_ep_info(parser_.get(), &endpoints);
}

void RedirSession::reset()
{
    queue_.cancel([](const Urb&) { return true; }, -ENOENT);
    alternate_ = 0;
    (void)queue_.setInterface(0, 0);  // a device that refuses is as the reset left it
}

void RedirSession::setConfiguration(uint64_t id, uint8_t configuration)
{
    const bool ok = queue_.control({0, usb::SET_CONFIGURATION, configuration, 0, 0}) == TransferStatus::OK;
    reset();
    sendEndpoints();
    usb_redir_configuration_status_header status{redirStatus(ok ? 0 : -EPIPE), configuration};
    usbredirparser_send_configuration_status(parser_.get(), id, &status);
}

void RedirSession::setAlternate(uint64_t id, uint8_t interface, uint8_t alternate)
{
    const bool ok = queue_.setInterface(interface, alternate);
    if (ok)
        alternate_ = alternate;
    sendEndpoints();
    usb_redir_alt_setting_status_header status{redirStatus(ok ? 0 : -EPIPE), interface,
                                               static_cast<uint8_t>(alternate_)};
    usbredirparser_send_alt_setting_status(parser_.get(), id, &status);
}

void RedirSession::takeControl(uint64_t id, const usb_redir_control_packet_header& header,
                               std::span<const uint8_t> data)
{
    auto urb = std::make_unique<Urb>();
    urb->handle = id;
    urb->kind = UrbKind::CONTROL;
    urb->setup = {header.requesttype, header.request, header.value, header.index, header.length};
    submit(std::move(urb), header.length, data);
}

void RedirSession::takeBulk(uint64_t id, const usb_redir_bulk_packet_header& header, std::span<const uint8_t> data)
{
    auto urb = std::make_unique<Urb>();
    urb->handle = id;
    urb->endpoint = header.endpoint;
    submit(std::move(urb), header.length | static_cast<size_t>(header.length_high) << 16, data);
}

void RedirSession::submit(std::unique_ptr<Urb> urb, size_t length, std::span<const uint8_t> data)
{
    Urb refused;
    refused.handle = urb->handle;
    refused.kind = urb->kind;
    refused.endpoint = urb->endpoint;
    refused.setup = urb->setup;
    refused.status = -ENOMEM;
    urb->owner = GUEST;
    urb->length = length;
    if (length <= LONGEST_TRANSFER && data.size() <= length)
        urb->data.reset(new (std::nothrow) uint8_t[length]);  // not zeroed: frames are large
    if (urb->data) {
        std::copy(data.begin(), data.end(), urb->data.get());
        refused.status = -queue_.submit(std::move(urb));
    }
    if (refused.status != 0)
        answer(refused);
}

/// Answers what is done, and disconnects when the device has left the bus.
void RedirSession::answerFinished()
{
    while (const std::unique_ptr<Urb> urb = queue_.reap(GUEST))
        answer(*urb);
    if (!queue_.gone() || closed_)
        return;
    closed_ = true;
    log_.note("redir: unplugged");
    usbredirparser_send_device_disconnect(parser_.get());
}

void RedirSession::answer(const Urb& urb)
{
    uint8_t* const data = urb.isIn() && urb.actualLength > 0 ? urb.data.get() : nullptr;
    const int dataLength = data ? static_cast<int>(urb.actualLength) : 0;
    if (urb.kind == UrbKind::CONTROL) {
        usb_redir_control_packet_header header{};
        header.requesttype = urb.setup.requestType;
        header.request = urb.setup.request;
        header.endpoint = static_cast<uint8_t>(urb.setup.requestType & 0x80);
        header.value = urb.setup.value;
        header.index = urb.setup.index;
        header.status = redirStatus(urb.status);
        header.length = static_cast<uint16_t>(urb.actualLength);
        usbredirparser_send_control_packet(parser_.get(), urb.handle, &header, data, dataLength);
        return;
    }
    usb_redir_bulk_packet_header header{};
    header.endpoint = urb.endpoint;
    header.status = redirStatus(urb.status);
    header.length = static_cast<uint16_t>(urb.actualLength & 0xFFFF);
    header.length_high = static_cast<uint16_t>(urb.actualLength >> 16);
    usbredirparser_send_bulk_packet(parser_.get(), urb.handle, &header, data, dataLength);
}

}  // namespace vornsim
