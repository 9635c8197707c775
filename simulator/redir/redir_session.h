// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "bus/stream_session.h"
#include "bus/urb_queue.h"
#include "bus/usb_layout.h"
#include "device/usb/usb_device.h"

// libusbredirparser's types, named without its header so that only this room's sources need it.
struct usbredirparser;
struct usb_redir_control_packet_header;
struct usb_redir_bulk_packet_header;

namespace vornsim {

/// One simulated device plugged into a guest of QEMU: speaks the USB redirection protocol from the side of the machine
/// that has the device. The guest's own host controller driver asks for the transfers, and QEMU hands them on.
class RedirSession final : public StreamSession {
public:
    /// @p fd, which stays the caller's, and the others must outlive the session. The camera in @p slot has valid
    /// descriptors.
    RedirSession(int fd, CameraSlot& slot, const UsbLayout& layout, const Clock& clock, DeviceLog& log);
    ~RedirSession() override;

    bool onReadable() override;
    bool onWritable() override;
    bool onTime() override;
    bool wantsToWrite() const override;
    int64_t nextWakeUs() const override { return queue_.nextRetryUs(); }

    /// Whether the device left the bus by itself, rather than QEMU the session.
    bool unplugged() const { return queue_.gone(); }

private:
    struct Callbacks;  // of the parser
    struct FreeParser {
        void operator()(usbredirparser* parser) const;
    };

    void plugIn();
    void sendEndpoints();
    void reset();
    void setConfiguration(uint64_t id, uint8_t configuration);
    void setAlternate(uint64_t id, uint8_t interface, uint8_t alternate);
    void takeControl(uint64_t id, const usb_redir_control_packet_header& header, std::span<const uint8_t> data);
    void takeBulk(uint64_t id, const usb_redir_bulk_packet_header& header, std::span<const uint8_t> data);

    void submit(std::unique_ptr<Urb> urb, size_t length, std::span<const uint8_t> data);
    void answerFinished();
    void answer(const Urb& urb);
    bool flush();

    const int fd_;
    const UsbLayout layout_;
    DeviceLog& log_;
    UrbQueue queue_;
    unsigned alternate_ = 0;
    bool closed_ = false;  ///< by QEMU
    std::unique_ptr<usbredirparser, FreeParser> parser_;
};

}  // namespace vornsim
