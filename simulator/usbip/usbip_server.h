// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "device/usb/usb_device.h"
#include "export_table.h"

namespace vornsim::usbip {

/// Listens for clients and serves each in a thread of its own.
class UsbIpServer {
public:
    /// Receives the reason why a client was dropped; called from several threads.
    using Complain = void (*)(const std::string& text);

    /// @p exports and @p clock must outlive the server.
    UsbIpServer(ExportTable& exports, const Clock& clock, Complain complain);
    ~UsbIpServer();
    UsbIpServer(const UsbIpServer&) = delete;
    UsbIpServer& operator=(const UsbIpServer&) = delete;

    /// Starts to listen on "ADDRESS:PORT"; "[::1]:3240" is an IPv6 address, port 0 any free port.
    /// @return an empty text, or what went wrong.
    std::string listen(const std::string& address);

    /// The port listened on.
    uint16_t port() const { return port_; }

    /// Whether only programs on this machine reach the address listened on.
    bool loopbackOnly() const { return loopbackOnly_; }

    /// Serves clients until @p stopFd becomes readable; all connections have ended then.
    void run(int stopFd);

private:
    struct Client;

    void accept(int stopFd);
    void serve(Client& client, int stopFd);
    void forgetFinished();

    ExportTable& exports_;
    const Clock& clock_;
    Complain complain_;
    int listener_ = -1;
    uint16_t port_ = 0;
    bool loopbackOnly_ = true;
    std::list<Client> clients_;
};

}  // namespace vornsim::usbip
